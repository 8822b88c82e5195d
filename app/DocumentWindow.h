#pragma once

#include "DocumentView.h"

#include <QMainWindow>

#include <functional>
#include <memory>

class DocumentViewBridge;
class MyDocument;
class QAbstractItemModel;
class QXWindowController;
class TaskArea;
namespace Ui {
class DocumentWindow;
}

// The window of one batch: the file table, the task pop-up and its settings
// area, the list buttons and Rename. It owns its MyDocument and shows it
// through a DocumentViewBridge; closing it deletes it.
class DocumentWindow : public QMainWindow {
    Q_OBJECT
public:
    explicit DocumentWindow(QWidget* parent = nullptr);
    ~DocumentWindow() override;

    MyDocument& document() { return *m_document; }
    QXWindowController& controller() { return *m_controller; }
    DocumentViewBridge& bridge() { return *m_bridge; }
    TaskArea& taskArea() { return *m_taskArea; }

    // Applies a batch read before the window existed and shows the task:
    // called once, after the document is filled.
    void documentDidLoad();

    // How the window tells its table model that the document changed.
    struct TableModelHooks {
        std::function<void()> reload;                // rows or names changed
        std::function<void()> displayOptionsChanged; // e.g. full paths on or off
    };
    // The file table's model; the window keeps the selection wiring.
    void setTableModel(QAbstractItemModel* model, TableModelHooks hooks = {});
    QAbstractItemModel* tableModel() const;
    QList<int> selectedRows() const;

    // Main thread, from the bridge.
    void reloadTable();
    void setSpinnerRunning(DocumentView::Spinner which, bool running);
    void clearSelection();
    void commitEnded();
    void mainThreadAlertEnded();

public slots:
    // Recomputes every enabled state from the document and the selection.
    void updateActions();
    void addItems();   // the chooser of files and folders
    void addFolders(); // the chooser of folders kept whole
    void removeSelected();
    void rename();
    // The batch changed in a way worth saving.
    void documentEdited();
    void showPreferences(); // the application's one preferences window

signals:
    void settingsChanged();
    void taskChanged(int tag, const QString& blankDescription);
    // The user cancelled the save prompt of a close: the window stays.
    void closeCancelled();

protected:
    void closeEvent(QCloseEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void buildMenus();
    void createTableModel();

    static constexpr int kGapCheckTag = 8; // the task that checks instead of renaming

    std::unique_ptr<Ui::DocumentWindow> m_ui;
    // Declared before the document: the document's threads call it until they end.
    std::unique_ptr<DocumentViewBridge> m_bridge;
    std::unique_ptr<MyDocument> m_document;
    QXWindowController* m_controller = nullptr;
    TableModelHooks m_modelHooks;
    TaskArea* m_taskArea = nullptr;
    int m_previewsRunning = 0;
    int m_previewsAwaited = 0;          // asked for by an edit, not started yet
    bool m_renameWhenPreviewed = false; // Rename was pressed while previews ran
    bool m_closeApproved = false;
    bool m_closePending = false; // closing waits for a commit or an alert to end
};
