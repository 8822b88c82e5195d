// The window's main path: a task chosen from the pop-up, its panel, the
// previews that follow each keystroke, the commit and its sheets, batch files
// that carry the task, the preferences, and interrupted renames at launch.
#include "AppTest.h"
#include "DocumentViewBridge.h"
#include "DocumentWindow.h"
#include "DocumentWindows.h"
#include "FileMover.h"
#include "InterruptedRenames.h"
#include "MyDocument.h"
#include "ProgressSheet.h"
#include "QXClipView.h"
#include "QXLog.h"
#include "QXWindowController.h"
#include "RenameJournal.h"
#include "Sheets.h"
#include "TaskArea.h"
#include "TempTree.h"
#include "TokenField.h"
#include "UserDefaults.h"
#include "panels/BlankPanel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QSignalSpy>
#include <QTableView>

#include <chrono>
#include <thread>

namespace {
using Fields = QList<QPair<QString, QString>>;

QStringList column(DocumentWindow* window, int column) {
    QAbstractItemModel* model = window->tableModel();
    QStringList out;
    for (int row = 0; row < model->rowCount(); ++row)
        out << model->index(row, column).data().toString();
    return out;
}

// A window over these files, with the previews of its first task shown.
DocumentWindow* windowWith(const QStringList& files) {
    DocumentWindow* window = DocumentWindows::newUntitled();
    window->document().addItemsOnThread(files);
    // Never waitForPreviews here: a preview ends by waiting for this thread.
    (void)QTest::qWaitFor([&] { return column(window, 1) == column(window, 0); });
    return window;
}

// As the user does it: the pop-up's item, then keystrokes in the fields.
void choose(DocumentWindow* window, int tag) {
    auto* popUp = window->findChild<QComboBox*>(QStringLiteral("taskPopUp"));
    const int index = popUp->findData(tag);
    QVERIFY(index >= 0);
    popUp->setCurrentIndex(index);
    emit popUp->activated(index);
}

void type(DocumentWindow* window, const Fields& fields) {
    for (const auto& [outlet, text] : fields) {
        if (auto* check = window->findChild<QCheckBox*>(outlet)) {
            check->click();
            continue;
        }
        auto* field = window->findChild<QLineEdit*>(outlet);
        QVERIFY2(field, qPrintable(outlet));
        field->clear();
        QTest::keyClicks(field, text);
    }
}

QPushButton* renameButton(DocumentWindow* window) {
    return window->findChild<QPushButton*>(QStringLiteral("renameBtn"));
}
} // namespace

class RenamingWindowTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { QXLog::createNewLog(); }
    void cleanup() {
        FileMover::setFaultHook({});
        for (DocumentWindow* window : DocumentWindows::all()) {
            window->controller().setDocumentEdited(false);
            delete window;
        }
    }

    void eachTaskShowsItsPanelAndChangesThePreviews_data() {
        QTest::addColumn<int>("tag");
        QTest::addColumn<QString>("panel");
        QTest::addColumn<Fields>("fields");
        const QString blank = QStringLiteral("windowBlank");
        auto row = [](int tag, const char* panel, Fields fields = {}) {
            QTest::addRow("%d", tag) << tag << QString::fromLatin1(panel) << fields;
        };
        auto f = [](const char* outlet, const char* text) {
            return QPair<QString, QString>(QString::fromLatin1(outlet), QString::fromUtf8(text));
        };
        row(1, "windowFindReplace",
            {f("findStringField", "shot"), f("replaceStringField", "take")});
        row(2, "windowConform"); // types into the token field below
        row(3, "windowOffset", {f("offsetField", "10")});
        row(4, "windowBlank");
        row(5, "windowPad", {f("padLengthField", "6")});
        row(6, "windowBlank");
        row(7, "windowRenumber", {f("reorderStartFrameField", "100")});
        row(8, "windowBlank");
        row(9, "windowBlank");
        row(10, "windowChangeExtension", {f("fileExtensionField", "dpx")});
        row(11, "windowBlank");
        row(12, "windowPrefix", {f("prefixField", "x_")});
        row(13, "windowSuffix", {f("suffixField", "_v2"), f("suffixAddBeforeFrameCheck", "")});
        row(14, "windowRemoveChars", {f("removeCharCountField", "2")});
        row(15, "windowRemoveChars", {f("removeCharCountField", " +2")});
        row(16, "windowRemoveRange",
            {f("removeCharRangeStartField", "1"), f("removeCharRangeEndField", "2")});
        for (int tag : {17, 18, 19, 20, 21, 22, 23, 24})
            QTest::addRow("%d", tag) << tag << blank << Fields{};
        row(25, "windowInsertCharsAtPosition",
            {f("insertCharsPosition", "1"), f("insertCharsText", "x")});
        row(26, "windowReplaceCharsInRange",
            {f("replaceRangeStartPosition", "0"), f("replaceRangeEndPosition", "3"),
             f("replaceRangeText", "take")});
    }
    void eachTaskShowsItsPanelAndChangesThePreviews() {
        QFETCH(int, tag);
        QFETCH(QString, panel);
        QFETCH(Fields, fields);
        TempTree tree;
        // Something for every task to change: a trailing space, a gap, both cases of extension.
        DocumentWindow* window = windowWith({tree.file(QStringLiteral("Shot a .0001.EXR")),
                                             tree.file(QStringLiteral("shot a .0002.exr")),
                                             tree.file(QStringLiteral("shot a .0004.exr"))});
        const QStringList names = column(window, 0);
        QCOMPARE(column(window, 1), names); // the default task changes nothing untyped

        choose(window, tag);
        QXClipView* clip = window->taskArea().clipView();
        QVERIFY(clip->currentPanel());
        QCOMPARE(clip->currentPanel()->objectName(), panel);
        QVERIFY(clip->currentPanel()->isVisible());
        if (panel == QLatin1String("windowBlank"))
            QCOMPARE(clip->blankPanel()->description(), MyDocument::taskDescription(tag));
        type(window, fields);
        if (tag == 2) {
            TokenField* format = window->taskArea().tokenField();
            format->setFocus();
            QTest::keyClick(format, Qt::Key_End);
            QTest::keyClicks(format, QStringLiteral("_v2"));
        }
        QCOMPARE(renameButton(window)->text(),
                 tag == 8 ? QStringLiteral("Check Gaps") : QStringLiteral("Rename"));
        if (tag == 8) return; // checks, and previews nothing
        QTRY_VERIFY2(column(window, 1) != names, qPrintable(column(window, 1).join(u'|')));
        QVERIFY(window->isWindowModified());
    }

    // Keystroke by keystroke to the files on disk: the confirmation, the
    // commit thread and its summary, answered as a user would.
    void typingPreviewsAndRenameCommits() {
        TempTree tree;
        DocumentWindow* window = windowWith(
            {tree.file(QStringLiteral("a.1.exr")), tree.file(QStringLiteral("b.1.exr"))});
        choose(window, 12);
        auto* prefix = window->findChild<QLineEdit*>(QStringLiteral("prefixField"));
        QTest::keyClick(prefix, Qt::Key_N);
        QTRY_COMPARE(column(window, 1),
                     (QStringList{QStringLiteral("na.1.exr"), QStringLiteral("nb.1.exr")}));
        QTest::keyClick(prefix, Qt::Key_E);
        QTRY_COMPARE(column(window, 1),
                     (QStringList{QStringLiteral("nea.1.exr"), QStringLiteral("neb.1.exr")}));

        answerNextSheet(QStringLiteral("Rename"));
        renameButton(window)->click();
        QMessageBox* summary = waitForSheet();
        QVERIFY(summary);
        QCOMPARE(summary->text(), QStringLiteral("Rename complete"));
        summary->accept();
        QCOMPARE(tree.list(),
                 (QStringList{QStringLiteral("nea.1.exr"), QStringLiteral("neb.1.exr")}));
    }

    void conflictingPreviewsShowTheCaution() {
        TempTree tree;
        DocumentWindow* window =
            windowWith({tree.file(QStringLiteral("a1.txt")), tree.file(QStringLiteral("b1.txt")),
                        tree.file(QStringLiteral("c22.txt"))});
        choose(window, 14);
        type(window, {{QStringLiteral("removeCharCountField"), QStringLiteral("1")}});
        QTRY_COMPARE(column(window, 1).first(), QStringLiteral("1.txt"));
        QAbstractItemModel* model = window->tableModel();
        for (int row = 0; row < 3; ++row) {
            const QModelIndex preview = model->index(row, 1);
            const bool conflicting = row < 2;
            QCOMPARE(preview.data(Qt::ToolTipRole).toString(),
                     conflicting ? MyDocument::conflictToolTip() : QString());
            QCOMPARE(preview.data(Qt::DecorationRole).value<QIcon>().isNull(), !conflicting);
        }
    }

    void gapCheckReportsOnASheet() {
        TempTree tree;
        DocumentWindow* window = windowWith(
            {tree.file(QStringLiteral("s.0001.exr")), tree.file(QStringLiteral("s.0005.exr"))});
        choose(window, 8);
        QString text, informative;
        QTimer::singleShot(0, [&] {
            if (QMessageBox* report = waitForSheet()) {
                text = report->text();
                informative = report->informativeText();
                report->accept();
            }
        });
        renameButton(window)->click(); // returns once the sheet is answered
        QCOMPARE(text, QStringLiteral("1 gap found"));
        QVERIFY2(informative.endsWith(QStringLiteral("\n2-4")), qPrintable(informative));
        QCOMPARE(tree.list().size(), 2); // nothing renamed
    }

    void cancelStopsTheCommitBetweenFiles() {
        TempTree tree;
        QStringList files;
        for (int i = 0; i < 60; ++i)
            files << tree.file(QStringLiteral("f%1.txt").arg(i, 2, 10, QLatin1Char('0')));
        DocumentWindow* window = windowWith(files);
        choose(window, 20); // upper case
        QTRY_COMPARE(column(window, 1).first(), QStringLiteral("F00.txt"));
        FileMover::setFaultHook([](const FileMover::FaultPoint& p) {
            if (p.phase == FileMover::Phase::Before)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return 0;
        });
        answerNextSheet(QStringLiteral("Rename"));
        renameButton(window)->click();
        auto renamed = [&tree] {
            const QStringList names = tree.list();
            return std::count_if(names.begin(), names.end(),
                                 [](const QString& n) { return n.startsWith(u'F'); });
        };
        QTRY_VERIFY(renamed() >= 3); // the bar may lag: it is drawn in steps
        QVERIFY(window->bridge().progressSheet()->isModal());
        auto* cancel = window->bridge().progressSheet()->findChild<QPushButton*>(
            QStringLiteral("progressCancel"));
        QVERIFY(cancel);
        cancel->click();
        QTRY_VERIFY(!window->bridge().commitRunning());
        QVERIFY2(renamed() < 60, qPrintable(QString::number(renamed())));
        QCOMPARE(tree.list().size(), 60); // none lost under a temporary name
        QCOMPARE(window->document().lastCommitSummary().reachedEnd, false);
        while (QMessageBox* sheet = waitForSheet(200))
            sheet->accept();
    }

    // A file where the journal folder must be: nothing moves, and a sheet says why.
    void aCommitWithoutItsJournalRenamesNothingAndSaysSo() {
        TempTree tree;
        DocumentWindow* window = windowWith({tree.file(QStringLiteral("a.txt"))});
        choose(window, 20);
        QTRY_COMPARE(column(window, 1), QStringList{QStringLiteral("A.txt")});
        const QString journals = RenameJournal::folder();
        const QString keep = journals + QStringLiteral(".kept");
        QDir().rename(journals, keep);
        QFile blocker(journals);
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();

        answerNextSheet(QStringLiteral("Rename"));
        renameButton(window)->click();
        QMessageBox* sheet = waitForSheet();
        QVERIFY(sheet);
        const QString text = sheet->text();
        sheet->accept();
        QFile::remove(journals);
        QDir().rename(keep, journals);
        QCOMPARE(text, QStringLiteral("The rename journal could not be created"));
        QCOMPARE(tree.list(), QStringList{QStringLiteral("a.txt")});
    }

    void aSavedBatchReopensOnItsTaskAndFields() {
        TempTree tree;
        DocumentWindow* window = windowWith({tree.file(QStringLiteral("s.0001.exr"))});
        choose(window, 13);
        type(window, {{QStringLiteral("suffixField"), QStringLiteral("_v2")},
                      {QStringLiteral("suffixAddBeforeFrameCheck"), QString()}});
        const QString batch = tree(QStringLiteral("suffix.sqb"));
        QVERIFY(window->controller().writeTo(batch));
        QVERIFY(!window->isWindowModified());
        delete window;

        QString error;
        DocumentWindow* reopened = DocumentWindows::openBatchFile(batch, &error);
        QVERIFY2(reopened, qPrintable(error));
        QCoreApplication::processEvents();
        auto* popUp = reopened->findChild<QComboBox*>(QStringLiteral("taskPopUp"));
        QCOMPARE(popUp->currentText(), QStringLiteral("Add Suffix"));
        QCOMPARE(reopened->taskArea().clipView()->currentPanel()->objectName(),
                 QStringLiteral("windowSuffix"));
        QCOMPARE(reopened->findChild<QLineEdit*>(QStringLiteral("suffixField"))->text(),
                 QStringLiteral("_v2"));
        QVERIFY(reopened->findChild<QCheckBox*>(QStringLiteral("suffixAddBeforeFrameCheck"))
                    ->isChecked());
        QCOMPARE(reopened->taskArea().tokenField()->tokens(), TokenField::defaultTokens());
        QTRY_COMPARE(column(reopened, 1), QStringList{QStringLiteral("s_v2.0001.exr")});
        QVERIFY(!reopened->isWindowModified());
    }

    void preferencesChangeOpenWindowsAtOnce() {
        TempTree tree;
        const QString file = tree.file(QStringLiteral("a.txt"));
        DocumentWindow* window = windowWith({file});
        QCOMPARE(column(window, 0), QStringList{QStringLiteral("a.txt")});
        QAction* preferences = window->findChild<QAction*>(QStringLiteral("preferencesAction"));
        QVERIFY(!preferences->shortcut().isEmpty());
        preferences->trigger();
        QWidget* dialog = nullptr;
        QTRY_VERIFY((dialog = QApplication::activeWindow()) && dialog != window);
        dialog->findChild<QCheckBox*>(QStringLiteral("showFullSourcePathsCheck"))->click();
        QCOMPARE(column(window, 0), QStringList{file});
        dialog->findChild<QRadioButton*>(QStringLiteral("conflictTrashRadio"))->click();
        QCOMPARE(QSettings(QStringLiteral("Corvane"), QStringLiteral("Seqmate"))
                     .value(UserDefaults::conflictActionKey)
                     .toInt(),
                 2);
        dialog->findChild<QCheckBox*>(QStringLiteral("showFullSourcePathsCheck"))->click();
        QCOMPARE(column(window, 0), QStringList{QStringLiteral("a.txt")});
        dialog->close();
    }

    // A commit killed on the command line leaves its journal; the next launch offers to undo it.
    void interruptedRenameIsOfferedAtLaunch_data() {
        QTest::addColumn<QString>("answer");
        QTest::addRow("restore") << QStringLiteral("Restore Original Names");
        QTest::addRow("leave") << QStringLiteral("Leave As They Are");
    }
    void interruptedRenameIsOfferedAtLaunch() {
        QFETCH(QString, answer);
        TempTree tree;
        QStringList files;
        for (int i = 0; i < 8; ++i)
            files << tree.file(QStringLiteral("IMG_%1.JPG").arg(i));
        const QStringList original = tree.list();
        QProcess cli;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("SEQMATE_FAULT_STOP_AFTER"), QStringLiteral("5"));
        cli.setProcessEnvironment(env);
        cli.setStandardOutputFile(QProcess::nullDevice());
        cli.start(QStringLiteral(SEQMATE_CLI_PATH),
                  QStringList{QStringLiteral("-t"), QStringLiteral("lower"),
                              QStringLiteral("--apply"), QStringLiteral("-y")} +
                      files);
        QVERIFY(cli.waitForStarted());
        // It stops for good after its fifth move: then it is killed mid-commit.
        QTRY_VERIFY_WITH_TIMEOUT(!RenameJournal::interrupted().isEmpty() &&
                                     tree.list() != original &&
                                     RenameJournal::interrupted().first().done +
                                             RenameJournal::interrupted().first().pending >=
                                         5,
                                 10000);
        QTest::qWait(100);
        cli.kill();
        cli.waitForFinished();
        const QStringList afterKill = tree.list();

        DocumentWindow* window = DocumentWindows::newUntitled();
        InterruptedRenames renames;
        QSignalSpy finished(&renames, &InterruptedRenames::finished);
        QVERIFY(renames.offer(window));
        QMessageBox* sheet = waitForSheet();
        QVERIFY(sheet);
        QCOMPARE(sheet->text(), QStringLiteral("A rename did not complete"));
        QVERIFY(sheet->informativeText().contains(QStringLiteral("renamed")));
        sheetButton(sheet, answer)->click();
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 10000);
        const bool restore = answer.startsWith(u'R');
        QCOMPARE(tree.list(), restore ? original : afterKill);
        if (restore) {
            QMessageBox* report = waitForSheet();
            QVERIFY(report);
            QCOMPARE(report->text(), QStringLiteral("The original names are restored"));
            report->accept();
        }
        QVERIFY(!renames.offer(window)); // undone or left: not asked again
        QTRY_VERIFY(!QApplication::activeModalWidget());
    }
};

SEQMATE_APP_TEST_MAIN(RenamingWindowTest)
#include "RenamingWindowTest.moc"
