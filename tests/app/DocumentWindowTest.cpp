// Document windows: titles, opening and saving batches, the save prompt,
// enabled states, accessible names, and the bridge's waits.
#include "DocumentWindow.h"
#include "AppTest.h"
#include "DocumentViewBridge.h"
#include "DocumentWindows.h"
#include "MyDocument.h"
#include "ProgressSheet.h"
#include "QXLog.h"
#include "QXWindowController.h"
#include "Sheets.h"
#include "TempTree.h"

#include <QAccessible>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QHeaderView>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableView>

#include <atomic>
#include <thread>

class DocumentWindowTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { QXLog::createNewLog(); }
    void cleanup() {
        // Nothing is left open for the next test.
        for (DocumentWindow* window : DocumentWindows::all()) {
            window->controller().setDocumentEdited(false);
            delete window;
        }
    }

    void untitledWindowsAreNumberedFromTheLowestFree() {
        DocumentWindow* first = DocumentWindows::newUntitled();
        DocumentWindow* second = DocumentWindows::newUntitled();
        QCOMPARE(first->windowTitle(), QStringLiteral("Untitled Batch[*]"));
        QCOMPARE(second->windowTitle(), QStringLiteral("Untitled Batch 2[*]"));
        QVERIFY(first->close()); // nothing to save: closes at once
        QTRY_COMPARE(DocumentWindows::all().size(), 1);
        QCOMPARE(DocumentWindows::newUntitled()->windowTitle(),
                 QStringLiteral("Untitled Batch[*]"));
        QCOMPARE(DocumentWindows::newUntitled()->windowTitle(),
                 QStringLiteral("Untitled Batch 3[*]"));
    }

    void aSavedBatchIsTitledByItsFileAndReopens() {
        TempTree tree;
        const QStringList files = {tree.file(QStringLiteral("a.0001.exr")),
                                   tree.file(QStringLiteral("a.0002.exr"))};
        DocumentWindow* window = DocumentWindows::newUntitled();
        window->document().addItemsOnThread(files);
        QVERIFY(window->isWindowModified()); // rows came in
        QVERIFY(window->controller().writeTo(tree(QStringLiteral("Shots.sqb"))));
        QCOMPARE(window->windowTitle(), QStringLiteral("Shots.sqb[*]"));
        QVERIFY(!window->isWindowModified());

        QString error;
        // The window showing it comes forward instead of a second one.
        QCOMPARE(DocumentWindows::openBatchFile(tree(QStringLiteral("Shots.sqb")), &error), window);
        delete window;
        DocumentWindow* reopened =
            DocumentWindows::openBatchFile(tree(QStringLiteral("Shots.sqb")), &error);
        QVERIFY2(reopened, qPrintable(error));
        QCOMPARE(reopened->windowTitle(), QStringLiteral("Shots.sqb[*]"));
        QCOMPARE(reopened->document().fileCount(), 2);
        QVERIFY(!reopened->isWindowModified()); // as read, nothing to save
        QVERIFY(reopened->isVisible());
    }

    void aBatchFileThatCannotBeReadOpensNoWindow_data() {
        QTest::addColumn<QString>("name");
        QTest::newRow("missing") << "gone.sqb";
        QTest::newRow("a folder") << "folder.sqb";
        QTest::newRow("not a property list") << "notes.sqb";
        QTest::newRow("a list, not a dictionary") << "list.sqb";
    }
    void aBatchFileThatCannotBeReadOpensNoWindow() {
        QFETCH(QString, name);
        TempTree tree;
        tree.dir(QStringLiteral("folder.sqb"));
        tree.file(QStringLiteral("notes.sqb"), "just some text\n");
        tree.file(QStringLiteral("list.sqb"),
                  "<?xml version=\"1.0\"?><plist version=\"1.0\"><array/></plist>");
        QString error;
        QCOMPARE(DocumentWindows::openBatchFile(tree(name), &error), nullptr);
        QVERIFY(error.contains(tree(name)));
        QVERIFY(DocumentWindows::all().isEmpty());
    }

    void closingAChangedBatchAsksToSave_data() {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("closes");
        QTest::addColumn<bool>("written");
        QTest::newRow("save") << "Save" << true << true;
        QTest::newRow("don't save") << "Don’t Save" << true << false;
        QTest::newRow("cancel") << "Cancel" << false << false;
    }
    void closingAChangedBatchAsksToSave() {
        QFETCH(QString, answer);
        QFETCH(bool, closes);
        QFETCH(bool, written);
        TempTree tree;
        const QString batch = tree(QStringLiteral("Edit.sqb"));
        QPointer<DocumentWindow> window = DocumentWindows::newUntitled();
        QVERIFY(window->controller().writeTo(batch));
        QFile::remove(batch);
        window->document().addItemsOnThread({tree.file(QStringLiteral("b.txt"))});
        window->documentEdited();
        QSignalSpy cancelled(window.data(), &DocumentWindow::closeCancelled);

        window->close();
        QMessageBox* prompt = waitForSheet();
        QVERIFY(prompt && window);
        QVERIFY(prompt->text().contains(QStringLiteral("Edit.sqb")));
        sheetButton(prompt, answer)->click();
        QTRY_VERIFY(closes ? window.isNull() : cancelled.count() == 1);
        QCOMPARE(QFile::exists(batch), written);
        if (!closes) QVERIFY(window->isWindowModified());
    }

    void listButtonsFollowTheListAndTheSelection() {
        TempTree tree;
        DocumentWindow* window = DocumentWindows::newUntitled();
        auto* remove = window->findChild<QPushButton*>(QStringLiteral("removeBtn"));
        auto* rename = window->findChild<QPushButton*>(QStringLiteral("renameBtn"));
        auto* table = window->findChild<QTableView*>(QStringLiteral("tableView"));
        QVERIFY(remove && rename && table);
        QVERIFY(!remove->isEnabled() && !rename->isEnabled());

        window->document().addItemsOnThread({tree.file(QStringLiteral("x.1.png")),
                                             tree.file(QStringLiteral("x.2.png")),
                                             tree.file(QStringLiteral("x.3.png"))});
        QTRY_COMPARE(table->model()->rowCount(), 3);
        QVERIFY(rename->isEnabled());
        QVERIFY(!remove->isEnabled());

        table->selectRow(1);
        QVERIFY(remove->isEnabled());
        QApplication::setActiveWindow(window);
        table->setFocus();
        QTest::keyClick(table, Qt::Key_Delete);
        QCOMPARE(window->document().fileCount(), 2);
        QCOMPARE(table->model()->rowCount(), 2);
        QVERIFY(!remove->isEnabled());
        QVERIFY(window->isWindowModified());

        table->selectAll();
        remove->click();
        QCOMPARE(window->document().fileCount(), 0);
        QVERIFY(!rename->isEnabled());
    }

    // Clicking the name header sorts the list itself, in natural order.
    void clickingTheNameHeaderSortsTheList() {
        TempTree tree;
        DocumentWindow* window = DocumentWindows::newUntitled();
        auto* table = window->findChild<QTableView*>(QStringLiteral("tableView"));
        window->document().addItemsOnThread({tree.file(QStringLiteral("s.10.png")),
                                             tree.file(QStringLiteral("s.2.png")),
                                             tree.file(QStringLiteral("s.1.png"))});
        QTRY_COMPARE(table->model()->rowCount(), 3);
        QCOMPARE(window->document().objectValue(MyDocument::Column::Filename, 0),
                 QStringLiteral("s.10.png")); // as given, not sorted on arrival
        QHeaderView* header = table->horizontalHeader();
        QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                          QPoint(header->sectionViewportPosition(0) + 5, header->height() / 2));
        QStringList names;
        for (int row = 0; row < 3; ++row)
            names << window->document().objectValue(MyDocument::Column::Filename, row);
        QCOMPARE(names, (QStringList{QStringLiteral("s.1.png"), QStringLiteral("s.2.png"),
                                     QStringLiteral("s.10.png")}));
        QVERIFY(window->isWindowModified());
    }

    // Add takes files and folders chosen together (a folder adds what is inside it).
    void addPanelTakesFilesAndFoldersTogether() {
        TempTree tree;
        tree.file(QStringLiteral("one.txt"));
        tree.file(QStringLiteral("shots/s.1.exr"));
        tree.file(QStringLiteral("shots/s.2.exr"));
        tree.file(QStringLiteral("other.txt"));
        DocumentWindow* window = DocumentWindows::newUntitled();
        window->findChild<QPushButton*>(QStringLiteral("addBtn"))->click();
        auto* panel = window->findChild<QFileDialog*>(QStringLiteral("addItemsPanel"));
        QVERIFY(panel && panel->isVisible());
        auto* model = panel->findChild<QFileSystemModel*>();
        QSignalSpy loaded(model, &QFileSystemModel::directoryLoaded);
        panel->setDirectory(tree.path());
        QVERIFY(loaded.wait());
        auto* view = panel->findChild<QAbstractItemView*>(QStringLiteral("treeView"));
        // The model may still be sorting and filling in file details: select
        // until both stay selected, and press Add in the same turn.
        auto selectBoth = [&] {
            for (const QString& name : {QStringLiteral("one.txt"), QStringLiteral("shots")})
                view->selectionModel()->select(model->index(tree(name)),
                                               QItemSelectionModel::Select |
                                                   QItemSelectionModel::Rows);
            return view->selectionModel()->selectedRows().size() == 2;
        };
        QTRY_VERIFY(selectBoth());
        auto* box = panel->findChild<QDialogButtonBox*>();
        box->button(QDialogButtonBox::Open)->click();
        QTRY_COMPARE(window->document().fileCount(), 3);
        QVERIFY(!window->document().fileInQueue(tree(QStringLiteral("other.txt"))));
    }

    void renameWithNothingToChangeSaysSo() {
        TempTree tree;
        DocumentWindow* window = DocumentWindows::newUntitled();
        window->document().addItemsOnThread({tree.file(QStringLiteral("same.txt"))});
        // The preview, shown: the new name equals the old one.
        auto* table = window->findChild<QTableView*>(QStringLiteral("tableView"));
        QTRY_COMPARE(table->model()->index(0, 1).data().toString(), QStringLiteral("same.txt"));
        answerNextSheet(QStringLiteral("OK"));
        window->findChild<QPushButton*>(QStringLiteral("renameBtn"))->click();
        QVERIFY(!QApplication::activeModalWidget());
        QVERIFY(tree.exists(QStringLiteral("same.txt")));
    }

    // The whole road: confirmation on the main thread, the commit on its own
    // thread, and its summary sheet asked for from there.
    void renameCommitsAfterConfirmationAndReports() {
        TempTree tree;
        DocumentWindow* window = DocumentWindows::newUntitled();
        window->document().addItemsOnThread(
            {tree.file(QStringLiteral("a.1.EXR")), tree.file(QStringLiteral("a.2.EXR"))});
        window->document().changeTask(22); // lower-case extensions
        auto* table = window->findChild<QTableView*>(QStringLiteral("tableView"));
        QTRY_COMPARE(table->model()->index(1, 1).data().toString(), QStringLiteral("a.2.exr"));

        answerNextSheet(QStringLiteral("Rename"));
        window->findChild<QPushButton*>(QStringLiteral("renameBtn"))->click();
        QMessageBox* summary = waitForSheet();
        QVERIFY(summary);
        QCOMPARE(summary->text(), QStringLiteral("Rename complete"));
        QCOMPARE(summary->informativeText(), QStringLiteral("2 files renamed."));
        sheetButton(summary, QStringLiteral("OK"))->click();
        QCOMPARE(tree.list(), (QStringList{QStringLiteral("a.1.exr"), QStringLiteral("a.2.exr")}));
        QTRY_VERIFY(!window->bridge().commitRunning());
        QVERIFY(window->findChild<QPushButton*>(QStringLiteral("renameBtn"))->isEnabled());
    }

    void controlsCarryTheirAccessibleNames() {
        DocumentWindow* window = DocumentWindows::newUntitled();
        const QList<QPair<QString, QString>> expected = {
            {QStringLiteral("tableView"), QStringLiteral("Files")},
            {QStringLiteral("addBtn"), QStringLiteral("Add")},
            {QStringLiteral("addFoldersBtn"), QStringLiteral("Add Folders")},
            {QStringLiteral("removeBtn"), QStringLiteral("Remove")},
            {QStringLiteral("renameBtn"), QStringLiteral("Rename")},
            {QStringLiteral("settingsView"), QStringLiteral("Settings")},
        };
        for (const auto& [object, name] : expected) {
            auto* widget = window->findChild<QWidget*>(object);
            QVERIFY2(widget, qPrintable(object));
            QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(widget);
            QVERIFY2(accessible, qPrintable(object));
            QCOMPARE(accessible->text(QAccessible::Name), name);
        }
        // A filled pop-up reads out its choice; the label still names it.
        QCOMPARE(window->findChild<QWidget*>(QStringLiteral("taskPopUp"))->accessibleName(),
                 QStringLiteral("Task"));
    }

    // An engine thread waiting for the main thread must not hold up a main
    // thread that waits for it: the cancel flag ends the wait.
    void aWaitingEngineThreadLetsTheMainThreadWaitForIt() {
        DocumentWindow* window = DocumentWindows::newUntitled();
        std::atomic<bool> asking{false};
        std::thread engine([&] {
            asking = true;
            window->bridge().reloadTable(true);
        });
        while (!asking)
            std::this_thread::yield();
        QTest::qSleep(50); // without processing events: the reload stays queued
        window->document().cancelProgress();
        engine.join();
        QCoreApplication::processEvents(); // the late reload is harmless
    }

    // Closing during a commit stops it, answers its sheet, and closes once it ended.
    void closingDuringACommitWaitsForItsEnd() {
        QPointer<DocumentWindow> window = DocumentWindows::newUntitled();
        std::atomic<int> answer{42};
        std::atomic<bool> cancelledSeen{false};
        std::thread commit([&, bridge = &window->bridge(), doc = &window->document()] {
            bridge->startProgress(10);
            for (int i = 0; i < 4; ++i)
                bridge->incrementProgress();
            answer = bridge->alert({QStringLiteral("Some files could not be renamed"),
                                    QStringLiteral("a.txt"), QString(), QString(), QString(),
                                    AlertRequest::Parent::ProgressSheet, true});
            cancelledSeen = doc->processingCancelled();
            bridge->endProgress();
        });
        QMessageBox* sheet = waitForSheet();
        QVERIFY(sheet);
        QVERIFY(qobject_cast<ProgressSheet*>(sheet->parentWidget()));
        QTRY_COMPARE(window->bridge().progressSheet()->shownValue(), 4);
        QVERIFY(!window->findChild<QPushButton*>(QStringLiteral("renameBtn"))->isEnabled());

        window->close();
        QVERIFY(window);                               // not before the commit has ended
        answerNextSheet(QStringLiteral("Don’t Save")); // the renamed batch is worth saving
        QTRY_VERIFY(window.isNull());
        commit.join();
        QCOMPARE(answer.load(), 0);
        QVERIFY(cancelledSeen);
    }
};

SEQMATE_APP_TEST_MAIN(DocumentWindowTest)
#include "DocumentWindowTest.moc"
