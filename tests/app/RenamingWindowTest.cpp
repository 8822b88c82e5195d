// The window's main path: a task chosen from the pop-up, its panel, the
// previews that follow each keystroke, the commit and its sheets, the
// preferences, and interrupted renames at launch.
#include "AppTest.h"
#include "DocumentViewBridge.h"
#include "FileMover.h"
#include "InterruptedRenames.h"
#include "ProgressSheet.h"
#include "QXClipView.h"
#include "QXLog.h"
#include "RenameJournal.h"
#include "Sheets.h"
#include "TaskArea.h"
#include "TempTree.h"
#include "TokenField.h"
#include "WindowActions.h"
#include "panels/BlankPanel.h"
#include "panels/FindReplacePanel.h"

#include <QLabel>
#include <QSignalSpy>

#include <chrono>
#include <thread>

using namespace Qt::StringLiterals;

class RenamingWindowTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { QXLog::createNewLog(); }
    void cleanup() {
        FileMover::setFaultHook({});
        closeAllWindows();
    }

    // Every outlet of a panel is typed in (or clicked), in the order the panel lists them.
    void eachTaskShowsItsPanelAndChangesThePreviews_data() {
        QTest::addColumn<int>("tag");
        QTest::addColumn<QString>("panel");
        QTest::addColumn<QString>("fields");
        const QList<std::tuple<int, const char*, const char*>> rows = {
            {1, "FindReplace",
             "findStringField=shot;replaceStringField=take;findMatchCaseCheck;findRegExCheck;"
             "findIncludeExtension"},
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
            {25, "InsertCharsAtPosition", "insertCharsText=x;insertCharsPosition=1"},
            {26, "ReplaceCharsInRange",
             "replaceRangeStartPosition=0;replaceRangeEndPosition=3;replaceRangeText=take"}};
        for (const auto& [tag, panel, fields] : rows)
            QTest::addRow("%d", tag)
                << tag << u"window"_s + QLatin1String(panel) << QString::fromLatin1(fields);
        for (int tag : {4, 6, 9, 11, 17, 18, 19, 20, 21, 22, 23, 24})
            QTest::addRow("%d", tag) << tag << u"windowBlank"_s << QString();
    }
    void eachTaskShowsItsPanelAndChangesThePreviews() {
        QFETCH(int, tag);
        QFETCH(QString, panel);
        QFETCH(QString, fields);
        TempTree tree;
        // Something for every task to change: a trailing space, a gap, both cases of extension.
        DocumentWindow* window =
            windowWith({tree.file(u"Shot a .0001.EXR"_s), tree.file(u"shot a .0002.exr"_s),
                        tree.file(u"shot a .0004.exr"_s)});
        const QStringList names = column(window, 0);
        QCOMPARE(column(window, 1), names); // the default task changes nothing untyped

        QXClipView* clip = window->taskArea().clipView();
        choose(window, tag);
        QStringList visible;
        for (SettingsPanel* p : clip->panels())
            if (p->isVisible()) visible << p->objectName();
        QCOMPARE(visible, QStringList{panel});
        QStringList outlets; // the panel's, fields first and in layout order
        for (const QString& field : fields.split(u';', Qt::SkipEmptyParts))
            outlets << field.section(u'=', 0, 0);
        QCOMPARE(clip->currentPanel()->outlets(), outlets);
        QCOMPARE(clip->blankPanel()->description(), panel == QLatin1String("windowBlank")
                                                        ? MyDocument::taskDescription(tag)
                                                        : QString());
        type(window, fields);
        if (tag == 2) {
            TokenField* format = window->taskArea().tokenField();
            format->setFocus();
            QTest::keyClick(format, Qt::Key_End);
            QTest::keyClicks(format, u"_v2"_s);
        }
        if (tag == 8) {
            QCOMPARE(renameButton(window)->text(), u"Check Gaps"_s);
            const auto report = answerNextSheet(u"OK"_s);
            renameButton(window)->click(); // returns once the sheet is answered
            QVERIFY2(report->startsWith(u"1 gap found|"_s) && report->endsWith(u"\n3"_s),
                     qPrintable(*report));
            return;
        }
        QTRY_VERIFY2(column(window, 1) != names, qPrintable(column(window, 1).join(u'|')));
        QVERIFY(window->isWindowModified());
    }

    void conflictingPreviewsShowTheCaution() {
        TempTree tree;
        DocumentWindow* window =
            windowWith({tree.file(u"a1.txt"_s), tree.file(u"b1.txt"_s), tree.file(u"c22.txt"_s)});
        choose(window, 14);
        type(window, u"removeCharCountField=1"_s);
        // The names show as they are made; the conflict check comes after the last.
        const QString tip = MyDocument::conflictToolTip();
        QTRY_COMPARE(column(window, 1, Qt::ToolTipRole), (QStringList{tip, tip, QString()}));
    }

    // Keystroke by keystroke: a bad pattern is named under the find field,
    // never in a sheet per keystroke, and Rename refuses on a sheet that says
    // why; once fixed, the sheets of a commit are answered as a user would.
    void typingAPatternPreviewsItAndRenameFollows() {
        TempTree tree;
        DocumentWindow* window = windowWith({tree.file(u"ab.txt"_s)});
        choose(window, 1);
        type(window, u"findRegExCheck;replaceStringField=x;findStringField=(a"_s);
        auto* panel = window->taskArea().clipView()->findReplacePanel();
        QTRY_VERIFY(panel->regexError().contains(u"U_REGEX_MISMATCHED_PAREN"_s));
        QVERIFY(panel->findChild<QLabel*>(u"findErrorText"_s)->isVisible());
        QVERIFY(!QApplication::activeModalWidget());
        const auto refusal = answerNextSheet(u"OK"_s);
        renameButton(window)->click();
        QTRY_VERIFY(refusal->startsWith(u"The find pattern cannot be used|"_s));
        // Rename at once, while the fixed pattern's preview may still run: it
        // waits for that preview, not the failed one before it.
        QTest::keyClick(window->findChild<QLineEdit*>(u"findStringField"_s), ')');
        answerNextSheet(u"Rename"_s);
        const auto report = answerNextSheet(u"OK"_s);
        renameButton(window)->click();
        QTRY_VERIFY(report->startsWith(u"Rename complete|"_s));
        QCOMPARE(tree.list(), QStringList{u"xb.txt"_s});
        QCOMPARE(panel->regexError(), QString());
        QTRY_VERIFY(renameButton(window)->isEnabled()); // ready for the next
    }

    void cancelStopsTheCommitBetweenFiles() {
        TempTree tree;
        QStringList files;
        for (int i = 0; i < 60; ++i)
            files << tree.file(u"f%1.txt"_s.arg(i, 2, 10, QLatin1Char('0')));
        DocumentWindow* window = windowWith(files);
        choose(window, 20); // upper case
        QTRY_COMPARE(column(window, 1).first(), u"F00.txt"_s);
        FileMover::setFaultHook([](const FileMover::FaultPoint& p) {
            if (p.phase == FileMover::Phase::Before)
                std::this_thread::sleep_for(std::chrono::milliseconds(20));
            return 0;
        });
        answerNextSheet(u"Rename"_s);
        renameButton(window)->click();
        auto renamed = [&tree] {
            const QStringList names = tree.list();
            return std::count_if(names.begin(), names.end(),
                                 [](const QString& n) { return n.startsWith(u'F'); });
        };
        QTRY_VERIFY(renamed() >= 3); // the bar may lag: it is drawn in steps
        window->bridge().progressSheet()->findChild<QPushButton*>(u"progressCancel"_s)->click();
        QTRY_VERIFY(!window->bridge().commitRunning());
        QVERIFY2(renamed() < 60, qPrintable(QString::number(renamed())));
        QCOMPARE(tree.list().size(), 60); // none lost under a temporary name
        while (QMessageBox* sheet = waitForSheet(200))
            sheet->accept();
    }

    void preferencesChangeOpenWindowsAtOnce() {
        TempTree tree;
        const QString file = tree.file(u"a.txt"_s);
        DocumentWindow* window = windowWith({file});
        window->findChild<QAction*>(u"preferencesAction"_s)->trigger();
        QWidget* dialog = nullptr;
        QTRY_VERIFY((dialog = QApplication::activeWindow()) && dialog != window);
        dialog->findChild<QCheckBox*>(u"showFullSourcePathsCheck"_s)->click();
        QCOMPARE(column(window, 0), QStringList{file});
        dialog->findChild<QCheckBox*>(u"showFullSourcePathsCheck"_s)->click();
        QCOMPARE(column(window, 0), QStringList{u"a.txt"_s});
        dialog->close();
    }

    // A commit killed part way leaves its journal unfinished; the next launch offers to undo it.
    void interruptedRenameIsOfferedAtLaunch_data() {
        QTest::addColumn<QString>("answer");
        QTest::addRow("restore") << u"Restore Original Names"_s;
        QTest::addRow("leave") << u"Leave As They Are"_s;
    }
    void interruptedRenameIsOfferedAtLaunch() {
        QFETCH(QString, answer);
        TempTree tree;
        for (int i = 0; i < 4; ++i)
            tree.file(u"IMG_%1.JPG"_s.arg(i));
        const QStringList original = tree.list();
        {
            RenameJournal journal; // a commit killed after its second move
            QVERIFY(journal.create(nullptr));
            for (const QString& name : original.first(2)) {
                const QString to = tree(name.toLower());
                journal.done(journal.begin(RenameJournal::Kind::Rename, tree(name), to));
                QVERIFY(QFile::rename(tree(name), to));
            }
        }
        const QStringList afterKill = tree.list();

        DocumentWindow* window = DocumentWindows::newUntitled();
        InterruptedRenames renames;
        QSignalSpy finished(&renames, &InterruptedRenames::finished);
        const auto asked = answerNextSheet(answer);
        const bool restore = answer.startsWith(u'R');
        const auto report = restore ? answerNextSheet(u"OK"_s) : nullptr;
        QVERIFY(renames.offer(window));
        QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 1, 10000);
        QVERIFY(asked->startsWith(u"A rename did not complete|"_s));
        QCOMPARE(tree.list(), restore ? original : afterKill);
        if (restore)
            QTRY_COMPARE(*report, u"The original names are restored|2 files were moved back to "
                                  u"their original names."_s);
        QVERIFY(!renames.offer(window)); // undone or left: not asked again
        QTRY_VERIFY(!QApplication::activeModalWidget());
    }
};

SEQMATE_APP_TEST_MAIN(RenamingWindowTest)
#include "RenamingWindowTest.moc"
