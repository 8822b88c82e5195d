// Document windows: titles, opening and saving batches, the save prompt, the
// list and its buttons, accessible names, and the bridge's waits.
#include "DocumentWindow.h"
#include "AppTest.h"
#include "DocumentViewBridge.h"
#include "ProgressSheet.h"
#include "QXLog.h"
#include "Sheets.h"
#include "TempTree.h"
#include "WindowActions.h"

#include <QAccessible>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QHeaderView>
#include <QSignalSpy>
#include <QTableView>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;

class DocumentWindowTest : public QObject {
    Q_OBJECT
private slots:
    void initTestCase() { QXLog::createNewLog(); }
    void cleanup() { closeAllWindows(); }

    void untitledWindowsAreNumberedFromTheLowestFree() {
        DocumentWindow* first = DocumentWindows::newUntitled();
        DocumentWindow* second = DocumentWindows::newUntitled();
        QCOMPARE(first->windowTitle(), u"Untitled Batch[*]"_s);
        QCOMPARE(second->windowTitle(), u"Untitled Batch 2[*]"_s);
        QVERIFY(first->close()); // nothing to save: closes at once
        QTRY_COMPARE(DocumentWindows::all().size(), 1);
        QCOMPARE(DocumentWindows::newUntitled()->windowTitle(), u"Untitled Batch[*]"_s);
        QCOMPARE(DocumentWindows::newUntitled()->windowTitle(), u"Untitled Batch 3[*]"_s);
    }

    // Saved, a batch is titled by its file; reopened, it shows its files, task
    // and fields, with nothing to save.
    void aSavedBatchIsTitledByItsFileAndReopensOnItsTask() {
        TempTree tree;
        DocumentWindow* window =
            windowWith({tree.file(u"s.0001.exr"_s), tree.file(u"s.0002.exr"_s)});
        QVERIFY(window->isWindowModified()); // rows came in
        choose(window, 13);
        type(window, u"suffixField=_v2;suffixAddBeforeFrameCheck"_s);
        const QString batch = tree(u"Shots.sqb"_s);
        QVERIFY(window->controller().writeTo(batch));
        QCOMPARE(window->windowTitle(), u"Shots.sqb[*]"_s);
        QVERIFY(!window->isWindowModified());
        QString error;
        // The window showing it comes forward instead of a second one.
        QCOMPARE(DocumentWindows::openBatchFile(batch, &error), window);
        delete window;

        DocumentWindow* reopened = DocumentWindows::openBatchFile(batch, &error);
        QVERIFY2(reopened, qPrintable(error));
        QCoreApplication::processEvents();
        QCOMPARE(reopened->windowTitle(), u"Shots.sqb[*]"_s);
        QCOMPARE(reopened->findChild<QComboBox*>(u"taskPopUp"_s)->currentText(), u"Add Suffix"_s);
        QCOMPARE(reopened->findChild<QLineEdit*>(u"suffixField"_s)->text(), u"_v2"_s);
        QVERIFY(reopened->findChild<QCheckBox*>(u"suffixAddBeforeFrameCheck"_s)->isChecked());
        QTRY_COMPARE(column(reopened, 1), (QStringList{u"s_v2.0001.exr"_s, u"s_v2.0002.exr"_s}));
        QVERIFY(!reopened->isWindowModified());
    }

    // Missing or not a property list (the engine's tests hold the other kinds).
    void aBatchFileThatCannotBeReadOpensNoWindow() {
        TempTree tree;
        tree.file(u"notes.sqb"_s, "just some text\n");
        for (const QString& name : {u"gone.sqb"_s, u"notes.sqb"_s}) {
            QString error;
            QCOMPARE(DocumentWindows::openBatchFile(tree(name), &error), nullptr);
            QVERIFY2(error.contains(tree(name)), qPrintable(error));
        }
        QVERIFY(DocumentWindows::all().isEmpty());
    }

    void closingAChangedBatchAsksToSave_data() {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<bool>("written"); // and closed; only Cancel keeps it open
        QTest::newRow("save") << "Save" << true;
        QTest::newRow("don't save") << "Don’t Save" << false;
        QTest::newRow("cancel") << "Cancel" << false;
    }
    void closingAChangedBatchAsksToSave() {
        QFETCH(QString, answer);
        QFETCH(bool, written);
        const bool closes = answer != u"Cancel";
        TempTree tree;
        const QString batch = tree(u"Edit.sqb"_s);
        QPointer<DocumentWindow> window = DocumentWindows::newUntitled();
        QVERIFY(window->controller().writeTo(batch));
        QFile::remove(batch);
        window->document().addItemsOnThread({tree.file(u"b.txt"_s)});
        window->documentEdited();
        QSignalSpy cancelled(window.data(), &DocumentWindow::closeCancelled);
        const auto prompt = answerNextSheet(answer);
        window->close();
        QTRY_VERIFY(closes ? window.isNull() : cancelled.count() == 1);
        QVERIFY(prompt->contains(u"Edit.sqb"_s));
        QCOMPARE(QFile::exists(batch), written);
        if (!closes) QVERIFY(window->isWindowModified());
    }

    // The buttons follow the list and its selection; a click on the name header
    // sorts the list itself, in natural order; Delete removes the selected rows.
    void theListItsButtonsAndItsHeader() {
        TempTree tree;
        DocumentWindow* window = DocumentWindows::newUntitled();
        auto* remove = window->findChild<QPushButton*>(u"removeBtn"_s);
        auto* table = window->findChild<QTableView*>(u"tableView"_s);
        QVERIFY(remove && table);
        QVERIFY(!remove->isEnabled() && !renameButton(window)->isEnabled());

        window->document().addItemsOnThread(
            {tree.file(u"s.10.png"_s), tree.file(u"s.2.png"_s), tree.file(u"s.1.png"_s)});
        QTRY_COMPARE(table->model()->rowCount(), 3);
        QVERIFY(renameButton(window)->isEnabled() && !remove->isEnabled());
        QHeaderView* header = table->horizontalHeader();
        const auto namesAfterClickOn = [&](int section) {
            QTest::mouseClick(header->viewport(), Qt::LeftButton, {},
                              {header->sectionViewportPosition(section) + 5, header->height() / 2});
            return column(window, 0).join(u' ');
        };
        window->controller().setDocumentEdited(false);
        // As given, not sorted on arrival, nor by the new names.
        QCOMPARE(namesAfterClickOn(1), u"s.10.png s.2.png s.1.png"_s);
        QVERIFY(!window->isWindowModified());
        QCOMPARE(namesAfterClickOn(0), u"s.1.png s.2.png s.10.png"_s);
        QVERIFY(window->isWindowModified());

        table->selectRow(1);
        QVERIFY(remove->isEnabled());
        QApplication::setActiveWindow(window);
        table->setFocus();
        window->controller().setDocumentEdited(false);
        QTest::keyClick(table, Qt::Key_Delete);
        QCOMPARE(column(window, 0), (QStringList{u"s.1.png"_s, u"s.10.png"_s}));
        QVERIFY(!remove->isEnabled());
        QVERIFY(window->isWindowModified());
        table->selectAll();
        remove->click();
        QCOMPARE(window->document().fileCount(), 0);
        QVERIFY(!renameButton(window)->isEnabled());
    }

    // Add takes files and folders chosen together (a folder adds what is inside it).
    void addPanelTakesFilesAndFoldersTogether() {
        TempTree tree;
        tree.file(u"one.txt"_s);
        tree.file(u"shots/s.1.exr"_s);
        tree.file(u"shots/s.2.exr"_s);
        tree.file(u"other.txt"_s);
        DocumentWindow* window = DocumentWindows::newUntitled();
        window->findChild<QPushButton*>(u"addBtn"_s)->click();
        auto* panel = window->findChild<QFileDialog*>(u"addItemsPanel"_s);
        QVERIFY(panel && panel->isVisible());
        auto* model = panel->findChild<QFileSystemModel*>();
        QSignalSpy loaded(model, &QFileSystemModel::directoryLoaded);
        panel->setDirectory(tree.path());
        QVERIFY(loaded.wait());
        auto* view = panel->findChild<QAbstractItemView*>(u"treeView"_s);
        // The model may still be sorting and filling in file details: select
        // until both stay selected, and press Add in the same turn.
        auto selectBoth = [&] {
            for (const QString& name : {u"one.txt"_s, u"shots"_s})
                view->selectionModel()->select(model->index(tree(name)),
                                               QItemSelectionModel::Select |
                                                   QItemSelectionModel::Rows);
            return view->selectionModel()->selectedRows().size() == 2;
        };
        QTRY_VERIFY(selectBoth());
        panel->findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Open)->click();
        QTRY_COMPARE(window->document().fileCount(), 3);
        QVERIFY(!window->document().fileInQueue(tree(u"other.txt"_s)));
    }

    void controlsCarryTheirAccessibleNames() {
        DocumentWindow* window = DocumentWindows::newUntitled();
        const QList<QPair<QString, QString>> expected = {
            {u"tableView"_s, u"Files"_s},           {u"addBtn"_s, u"Add"_s},
            {u"addFoldersBtn"_s, u"Add Folders"_s}, {u"removeBtn"_s, u"Remove"_s},
            {u"renameBtn"_s, u"Rename"_s},          {u"settingsView"_s, u"Settings"_s},
            {u"tokenField"_s, u"Format"_s},
        };
        for (const auto& [object, name] : expected) {
            auto* widget = window->findChild<QWidget*>(object);
            QVERIFY2(widget, qPrintable(object));
            QAccessibleInterface* accessible = QAccessible::queryAccessibleInterface(widget);
            QVERIFY2(accessible, qPrintable(object));
            QCOMPARE(accessible->text(QAccessible::Name), name);
        }
        // A filled pop-up reads out its choice; the label still names it.
        QCOMPARE(window->findChild<QWidget*>(u"taskPopUp"_s)->accessibleName(), u"Task"_s);
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
            answer =
                bridge->alert({u"Some files could not be renamed"_s, u"a.txt"_s, QString(),
                               QString(), QString(), AlertRequest::Parent::ProgressSheet, true});
            cancelledSeen = doc->processingCancelled();
            bridge->endProgress();
        });
        QMessageBox* sheet = waitForSheet();
        QVERIFY(sheet && qobject_cast<ProgressSheet*>(sheet->parentWidget()));
        QTRY_COMPARE(window->bridge().progressSheet()->shownValue(), 4);
        QVERIFY(!renameButton(window)->isEnabled());

        window->close();
        QVERIFY(window);                  // not before the commit has ended
        answerNextSheet(u"Don’t Save"_s); // the renamed batch is worth saving
        QTRY_VERIFY(window.isNull());
        commit.join();
        QCOMPARE(answer.load(), 0);
        QVERIFY(cancelledSeen);
    }
};

SEQMATE_APP_TEST_MAIN(DocumentWindowTest)
#include "DocumentWindowTest.moc"
