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
#include "Sheets.h"
#include "TaskArea.h"
#include "TempTree.h"
#include "TokenField.h"
#include "panels/BlankPanel.h"
#include "panels/FindReplacePanel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QProcess>
#include <QPushButton>
#include <QSignalSpy>

#include <chrono>
#include <thread>

namespace {
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

void type(DocumentWindow* window, const QString& fields) {
    for (const QString& entry : fields.split(u';', Qt::SkipEmptyParts)) {
        const QString outlet = entry.section(u'=', 0, 0);
        if (auto* check = window->findChild<QCheckBox*>(outlet)) {
            check->click();
            continue;
        }
        auto* field = window->findChild<QLineEdit*>(outlet);
        QVERIFY2(field, qPrintable(outlet));
        field->clear();
        QTest::keyClicks(field, entry.section(u'=', 1));
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

    // Fields as "outlet=text;..." (a check box outlet alone is clicked).
    void eachTaskShowsItsPanelAndChangesThePreviews_data() {
        QTest::addColumn<int>("tag");
        QTest::addColumn<QString>("panel");
        QTest::addColumn<QString>("fields");
        const QList<std::tuple<int, const char*, const char*>> rows = {
            {1, "FindReplace", "findStringField=shot;replaceStringField=take"},
            {2, "Conform", ""}, // typed into the token field
            {3, "Offset", "offsetField=10"},
            {5, "Pad", "padLengthField=6"},
            {7, "Renumber", "reorderStartFrameField=100"},
            {8, "Blank", ""}, // checks the gaps instead
            {10, "ChangeExtension", "fileExtensionField=dpx"},
            {12, "Prefix", "prefixField=x_"},
            {13, "Suffix", "suffixField=_v2;suffixAddBeforeFrameCheck"},
            {14, "RemoveChars", "removeCharCountField=2"},
            {15, "RemoveChars", "removeCharCountField= +2"}, // as the engine reads numbers
            {16, "RemoveRange", "removeCharRangeStartField=1;removeCharRangeEndField=2"},
            {25, "InsertCharsAtPosition", "insertCharsPosition=1;insertCharsText=x"},
            {26, "ReplaceCharsInRange",
             "replaceRangeStartPosition=0;replaceRangeEndPosition=3;replaceRangeText=take"}};
        for (const auto& [tag, panel, fields] : rows)
            QTest::addRow("%d", tag) << tag << QStringLiteral("window") + QLatin1String(panel)
                                     << QString::fromLatin1(fields);
        for (int tag : {4, 6, 9, 11, 17, 18, 19, 20, 21, 22, 23, 24})
            QTest::addRow("%d", tag) << tag << QStringLiteral("windowBlank") << QString();
    }
    void eachTaskShowsItsPanelAndChangesThePreviews() {
        QFETCH(int, tag);
        QFETCH(QString, panel);
        QFETCH(QString, fields);
        TempTree tree;
        // Something for every task to change: a trailing space, a gap, both cases of extension.
        DocumentWindow* window = windowWith({tree.file(QStringLiteral("Shot a .0001.EXR")),
                                             tree.file(QStringLiteral("shot a .0002.exr")),
                                             tree.file(QStringLiteral("shot a .0004.exr"))});
        const QStringList names = column(window, 0);
        QCOMPARE(column(window, 1), names); // the default task changes nothing untyped

        choose(window, tag);
        QXClipView* clip = window->taskArea().clipView();
        QVERIFY(clip->currentPanel() && clip->currentPanel()->isVisible());
        QCOMPARE(clip->currentPanel()->objectName(), panel);
        if (panel == QLatin1String("windowBlank"))
            QCOMPARE(clip->blankPanel()->description(), MyDocument::taskDescription(tag));
        type(window, fields);
        if (tag == 2) {
            TokenField* format = window->taskArea().tokenField();
            format->setFocus();
            QTest::keyClick(format, Qt::Key_End);
            QTest::keyClicks(format, QStringLiteral("_v2"));
        }
        if (tag == 8) {
            QCOMPARE(renameButton(window)->text(), QStringLiteral("Check Gaps"));
            QString report;
            QTimer::singleShot(0, [&] {
                if (QMessageBox* sheet = waitForSheet()) {
                    report = sheet->text() + u'|' + sheet->informativeText().section(u'\n', -1);
                    sheet->accept();
                }
            });
            renameButton(window)->click(); // returns once the sheet is answered
            QCOMPARE(report, QStringLiteral("1 gap found|3"));
            return;
        }
        QCOMPARE(renameButton(window)->text(), QStringLiteral("Rename"));
        QTRY_VERIFY2(column(window, 1) != names, qPrintable(column(window, 1).join(u'|')));
        QVERIFY(window->isWindowModified());
    }

    void conflictingPreviewsShowTheCaution() {
        TempTree tree;
        DocumentWindow* window =
            windowWith({tree.file(QStringLiteral("a1.txt")), tree.file(QStringLiteral("b1.txt")),
                        tree.file(QStringLiteral("c22.txt"))});
        choose(window, 14);
        type(window, QStringLiteral("removeCharCountField=1"));
        // The names show as they are made; the conflict check comes after the last.
        QTRY_COMPARE(window->tableModel()->index(0, 1).data(Qt::ToolTipRole).toString(),
                     MyDocument::conflictToolTip());
        for (int row = 0; row < 3; ++row) {
            const QModelIndex preview = window->tableModel()->index(row, 1);
            QCOMPARE(preview.data(Qt::ToolTipRole).toString(),
                     row < 2 ? MyDocument::conflictToolTip() : QString());
            QCOMPARE(preview.data(Qt::DecorationRole).value<QIcon>().isNull(), row == 2);
        }
    }

    // Keystroke by keystroke: a bad pattern is named under the find field,
    // never in a sheet per keystroke, and Rename refuses on a sheet that says
    // why; once fixed, the sheets of a commit are answered as a user would.
    void typingAPatternPreviewsItAndRenameFollows() {
        TempTree tree;
        DocumentWindow* window = windowWith({tree.file(QStringLiteral("ab.txt"))});
        choose(window, 1);
        type(window, QStringLiteral("findRegExCheck;replaceStringField=x;findStringField=(a"));
        auto* panel = window->taskArea().clipView()->findReplacePanel();
        QTRY_VERIFY(panel->regexError().contains(QStringLiteral("U_REGEX_MISMATCHED_PAREN")));
        QVERIFY(!QApplication::activeModalWidget());
        QTimer::singleShot(0, [&] { renameButton(window)->click(); });
        QMessageBox* sheet = waitForSheet();
        QVERIFY(sheet);
        QCOMPARE(sheet->text(), QStringLiteral("The find pattern cannot be used"));
        sheet->accept();
        // Rename at once, while the fixed pattern's preview may still run: it
        // waits for that preview, not the failed one before it.
        QTest::keyClick(window->findChild<QLineEdit*>(QStringLiteral("findStringField")), ')');
        answerNextSheet(QStringLiteral("Rename"));
        renameButton(window)->click();
        QVERIFY((sheet = waitForSheet()));
        QCOMPARE(sheet->text(), QStringLiteral("Rename complete"));
        sheet->accept();
        QCOMPARE(tree.list(), QStringList{QStringLiteral("xb.txt")});
        QCOMPARE(panel->regexError(), QString());
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

    void aSavedBatchReopensOnItsTaskAndFields() {
        TempTree tree;
        DocumentWindow* window = windowWith({tree.file(QStringLiteral("s.0001.exr"))});
        choose(window, 13);
        type(window, QStringLiteral("suffixField=_v2;suffixAddBeforeFrameCheck"));
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
        QProcess cli; // stops for good after its fifth move, and is killed there
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("SEQMATE_FAULT_STOP_AFTER"), QStringLiteral("5"));
        cli.setProcessEnvironment(env);
        cli.setStandardOutputFile(QProcess::nullDevice());
        cli.start(QStringLiteral(SEQMATE_CLI_PATH),
                  QStringList{QStringLiteral("-t"), QStringLiteral("lower"),
                              QStringLiteral("--apply"), QStringLiteral("-y")} +
                      files);
        QVERIFY2(cli.waitForStarted(), SEQMATE_CLI_PATH);
        QTRY_VERIFY_WITH_TIMEOUT(tree.list() != original, 10000);
        QTest::qWait(200);
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
