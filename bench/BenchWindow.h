#pragma once
// The document window as the benchmark drives it: a new untitled window, its
// "tableView", the model over it and its document. Closed without a save
// prompt when the benchmark is done with it.
#include "DocumentWindow.h"
#include "DocumentWindows.h"
#include "FileTableModel.h"
#include "MyDocument.h"
#include "QXWindowController.h"

#include <QTableView>

class BenchWindow {
public:
    BenchWindow() : m_window(DocumentWindows::newUntitled()) {}
    ~BenchWindow() {
        m_window->controller().setDocumentEdited(false);
        delete m_window;
    }
    BenchWindow(const BenchWindow&) = delete;
    BenchWindow& operator=(const BenchWindow&) = delete;

    MyDocument& document() { return m_window->document(); }
    QTableView* table() const {
        return m_window->findChild<QTableView*>(QStringLiteral("tableView"));
    }
    FileTableModel* model() const { return qobject_cast<FileTableModel*>(table()->model()); }
    // The preview's busy indicator is hidden once no preview runs.
    bool previewDone() const {
        return !m_window->findChild<QWidget*>(QStringLiteral("previewSpinner"))->isVisible();
    }

private:
    DocumentWindow* m_window;
};
