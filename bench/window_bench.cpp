// The window at 100,000 items (offscreen): a keystroke in the prefix field
// until the preview column shows it, against the engine's own preview of the
// same list in the same run, and the longest time the main thread stops
// answering while five characters are typed in a row.
#include "DocumentWindow.h"
#include "DocumentWindows.h"
#include "Heartbeat.h"
#include "MyDocument.h"
#include "QXLog.h"
#include "QXWindowController.h"

#include <QAbstractButton>
#include <QApplication>
#include <QComboBox>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QLineEdit>
#include <QMessageBox>
#include <QProcess>
#include <QPushButton>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

namespace {
constexpr int kItems = 100000;

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

FileList benchItems() {
    FileList items;
    items.reserve(kItems);
    for (int i = 0; i < kItems; ++i)
        items.append(QXFileItem::fileItemWithFile(QStringLiteral("/bench/shot%1/plate.%2.exr")
                                                      .arg(i / 1000)
                                                      .arg(i % 1000, 4, 10, QLatin1Char('0'))));
    return items;
}

QString lastPreview(DocumentWindow* window) {
    QAbstractItemModel* model = window->tableModel();
    return model->index(model->rowCount() - 1, 1).data().toString();
}

// The column is up to date once the busy indicator is off and the last row shows the text:
// the model reads previews live, so the row alone may show it before the preview has ended.
bool previewShown(DocumentWindow* window, const QString& expected) {
    auto* busy = window->findChild<QWidget*>(QStringLiteral("previewSpinner"));
    return !busy->isVisible() && lastPreview(window) == expected;
}

// A folder of count empty files, named as a shot's frames.
QStringList makeFrames(const QString& folder, int count) {
    QDir().mkpath(folder);
    QStringList paths;
    paths.reserve(count);
    for (int i = 0; i < count; ++i) {
        const QString path =
            folder + QStringLiteral("/plate.%1.exr").arg(i, 6, 10, QLatin1Char('0'));
        QFile(path).open(QIODevice::WriteOnly);
        paths << path;
    }
    return paths;
}

// Presses a button of every sheet that shows until stopped: the
// confirmation's Rename, then the summary's OK.
class SheetAnswerer : public QObject {
public:
    SheetAnswerer() {
        m_poll.setInterval(5);
        connect(&m_poll, &QTimer::timeout, this, [this] {
            auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            if (!box || !box->isVisible()) return;
            if (box->text() == QLatin1String("Rename complete")) m_completed = true;
            for (QAbstractButton* button : box->buttons())
                if (button->text() == QLatin1String("Rename") ||
                    button->text() == QLatin1String("OK")) {
                    button->click();
                    return;
                }
        });
        m_poll.start();
    }
    bool completed() const { return m_completed; }

private:
    QTimer m_poll;
    bool m_completed = false;
};

// Renames count files from a window (prefix "x"), timed from the click to
// the summary sheet; the longest main-thread stall meanwhile goes to stall.
double renameFromWindow(const QString& folder, int count, double* stall) {
    DocumentWindow* window = DocumentWindows::newUntitled();
    window->document().addItemsOnThread(makeFrames(folder, count));
    auto* popUp = window->findChild<QComboBox*>(QStringLiteral("taskPopUp"));
    const int prefixTask = popUp->findData(12);
    popUp->setCurrentIndex(prefixTask);
    emit popUp->activated(prefixTask);
    QTest::keyClick(window->findChild<QLineEdit*>(QStringLiteral("prefixField")), 'x');
    const QString expected =
        QStringLiteral("xplate.%1.exr").arg(count - 1, 6, 10, QLatin1Char('0'));
    (void)QTest::qWaitFor([&] { return previewShown(window, expected); }, 60000);

    SheetAnswerer answerer;
    Heartbeat meter(1);
    QElapsedTimer t;
    t.start();
    meter.start();
    window->findChild<QPushButton*>(QStringLiteral("renameBtn"))->click();
    (void)QTest::qWaitFor([&] { return answerer.completed(); }, 120000);
    const double ms = static_cast<double>(t.nsecsElapsed()) / 1e6;
    *stall = meter.stop();
    window->controller().setDocumentEdited(false);
    delete window;
    return ms;
}

double renameWithCli(const QString& cli, const QString& folder, int count) {
    makeFrames(folder, count);
    QProcess p;
    p.setStandardOutputFile(QProcess::nullDevice());
    QElapsedTimer t;
    t.start();
    p.start(cli,
            {QStringLiteral("-t"), QStringLiteral("prefix"), QStringLiteral("-s"),
             QStringLiteral("prefix=x"), QStringLiteral("--apply"), QStringLiteral("-y"), folder});
    p.waitForFinished(-1);
    return static_cast<double>(t.nsecsElapsed()) / 1e6;
}
} // namespace

int main(int argc, char** argv) {
    QTemporaryDir home;
    qputenv("HOME", home.path().toUtf8());
    qputenv("XDG_CONFIG_HOME", (home.path() + QStringLiteral("/.config")).toUtf8());
    qputenv("QT_QPA_PLATFORM", "offscreen");
    QApplication app(argc, argv);
    QXLog::createNewLog(QStringLiteral("window_bench"));
    const FileList items = benchItems();

    // Baseline: the engine's preview of the same list with the same prefix, no window.
    std::vector<double> engine;
    {
        MyDocument doc;
        doc.setFileArray(items);
        doc.setSelectedTag(12);
        for (int i = 0; i < 5; ++i) {
            doc.setFieldText(QStringLiteral("prefixField"), QString(QChar(u'a' + i)));
            QElapsedTimer t;
            t.start();
            doc.generatePreviewsOnThread();
            engine.push_back(static_cast<double>(t.nsecsElapsed()) / 1e6);
        }
    }

    DocumentWindow* window = DocumentWindows::newUntitled();
    window->document().setFileArray(benchItems());
    window->reloadTable();
    auto* popUp = window->findChild<QComboBox*>(QStringLiteral("taskPopUp"));
    const int prefixTask = popUp->findData(12);
    popUp->setCurrentIndex(prefixTask);
    emit popUp->activated(prefixTask);
    auto* field = window->findChild<QLineEdit*>(QStringLiteral("prefixField"));

    // One keystroke at a time, each until the last row shows it.
    std::vector<double> keystroke;
    Heartbeat meter(1);
    std::vector<double> stalls;
    for (int i = 0; i < 7; ++i) {
        field->clear();
        QTest::qWait(300); // the clear's own preview ends
        const QString expected = QString(QChar(u'a' + i)) + QStringLiteral("plate.0999.exr");
        QElapsedTimer t;
        t.start();
        meter.start();
        QTest::keyClick(field, static_cast<char>('a' + i));
        (void)QTest::qWaitFor([&] { return previewShown(window, expected); }, 30000);
        keystroke.push_back(static_cast<double>(t.nsecsElapsed()) / 1e6);
        stalls.push_back(meter.stop());
    }

    // Five characters in a row, 60 ms apart (a quick typist), until the last shows.
    std::vector<double> typing;
    for (int round = 0; round < 5; ++round) {
        field->clear();
        QTest::qWait(300);
        meter.start();
        for (int c = 0; c < 5; ++c) {
            QTest::keyClick(field, static_cast<char>('k' + c));
            QTest::qWait(60);
        }
        (void)QTest::qWaitFor(
            [&] { return previewShown(window, QStringLiteral("klmnoplate.0999.exr")); }, 30000);
        typing.push_back(meter.stop());
    }

    const double engineMs = median(engine);
    const double keyMs = median(keystroke);
    std::printf("keystroke to full preview column, %d items: median %.1f ms (target 300)\n", kItems,
                keyMs);
    std::printf("  engine preview alone (baseline):      median %.1f ms, ratio %.2fx\n", engineMs,
                keyMs / engineMs);
    std::printf("  longest main-thread stall per keystroke: median %.1f ms\n", median(stalls));
    std::printf("longest main-thread stall typing five characters: median %.1f ms, worst %.1f ms "
                "(target under 50)\n",
                median(typing), *std::max_element(typing.begin(), typing.end()));

    // Check Gaps: the report is a sheet; the stall is the main thread's share.
    const int gapTask = popUp->findData(8);
    popUp->setCurrentIndex(gapTask);
    emit popUp->activated(gapTask);
    std::vector<double> gapStalls;
    for (int round = 0; round < 3; ++round) {
        SheetAnswerer answerer;
        meter.start();
        window->findChild<QPushButton*>(QStringLiteral("renameBtn"))->click();
        gapStalls.push_back(meter.stop());
    }
    std::printf("Check Gaps at %d items, longest main-thread stall: median %.1f ms\n", kItems,
                median(gapStalls));
    window->controller().setDocumentEdited(false);
    delete window;

    // Rename from the window against seqmate-cli --apply -y, alternating, on fresh trees.
    const QString cli = QStringLiteral(SEQMATE_CLI_PATH);
    QTemporaryDir trees(QDir::tempPath() + QStringLiteral("/window_bench-XXXXXX"));
    std::vector<double> fromWindow, fromCli, commitStalls;
    for (int round = 0; round < 3; ++round) {
        double stall = 0;
        fromWindow.push_back(
            renameFromWindow(trees.filePath(QStringLiteral("w%1").arg(round)), kItems, &stall));
        commitStalls.push_back(stall);
        fromCli.push_back(
            renameWithCli(cli, trees.filePath(QStringLiteral("c%1").arg(round)), kItems));
    }
    std::printf("Rename of %d files from the window: median %.0f ms; seqmate-cli --apply -y: "
                "median %.0f ms; ratio %.2fx (target within 1.3x)\n",
                kItems, median(fromWindow), median(fromCli), median(fromWindow) / median(fromCli));
    std::printf("  longest main-thread stall during the rename: median %.1f ms, worst %.1f ms "
                "(target under 50)\n",
                median(commitStalls), *std::max_element(commitStalls.begin(), commitStalls.end()));
    return 0;
}
