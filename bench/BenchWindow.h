#pragma once
// A stand-in for the document window: a document, its table over a
// FileTableModel and a DocumentView that crosses threads the way the window's
// bridge does. To measure the real window instead, make a DocumentWindow in
// BenchWindow's place and take its "tableView" child and its document: the
// benchmark only uses table(), document(), model() and previewDone().
#include "FileTableModel.h"
#include "MyDocument.h"

#include <QHeaderView>
#include <QMainWindow>
#include <QMetaObject>
#include <QSemaphore>
#include <QTableView>
#include <QThread>

#include <atomic>
#include <memory>

// Posts every call to the main thread with the window as context. A waiting
// call waits in short slices and gives up once the document is cancelled, so
// the main thread may itself wait on a worker without a deadlock. Reloads
// that do not wait are coalesced: one pending at a time.
class BenchBridge : public DocumentView {
public:
    BenchBridge(QObject* window, FileTableModel* model, QTableView* table)
        : m_window(window), m_model(model), m_table(table) {}
    void setDocument(const MyDocument* document) { m_document = document; }

    void reloadTable(bool wait) override {
        if (!wait && m_reloadPending.exchange(true)) return;
        post(wait, [this] {
            m_reloadPending = false;
            ++m_reloads;
            m_model->reload();
        });
    }
    void setSpinner(Spinner which, bool running) override {
        post(false, [this, which, running] {
            if (which != Spinner::Preview) return;
            if (running) {
                m_previewDone = false;
            } else {
                m_model->previewsChanged();
                m_previewDone = true;
            }
        });
    }
    void setRenameEnabled(bool) override {}
    void clearSelection() override {
        post(false, [this] { m_table->clearSelection(); });
    }
    void startProgress(int) override {}
    void incrementProgress() override {}
    void endProgress() override {}
    int alert(const AlertRequest& r) override { return r.block ? AlertDefault : -1; }

    // The last preview has ended and its names are in the model.
    bool previewDone() const { return m_previewDone; }
    int reloads() const { return m_reloads; }

private:
    template <class F> void post(bool wait, F&& work) {
        if (QThread::currentThread() == m_window->thread()) return work();
        auto done = std::make_shared<QSemaphore>();
        QMetaObject::invokeMethod(
            m_window,
            [work = std::forward<F>(work), done] {
                work();
                done->release();
            },
            Qt::QueuedConnection);
        while (wait && !done->tryAcquire(1, 5))
            if (m_document && m_document->processingCancelled()) return;
    }

    QObject* m_window;
    FileTableModel* m_model;
    QTableView* m_table;
    const MyDocument* m_document = nullptr;
    std::atomic<bool> m_reloadPending{false};
    bool m_previewDone = false; // main thread only
    int m_reloads = 0;          // main thread only
};

class BenchWindow {
public:
    BenchWindow() {
        m_table = new QTableView;
        m_table->setObjectName(QStringLiteral("tableView"));
        m_window.setCentralWidget(m_table);
        m_model = new FileTableModel(*m_document, &m_window);
        m_bridge = std::make_unique<BenchBridge>(&m_window, m_model, m_table);
        m_bridge->setDocument(m_document.get());
        m_document->setView(m_bridge.get());
        m_table->setModel(m_model);
        // What a table of 100,000 rows needs: fixed row heights, no sizing to contents.
        m_table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
        m_table->verticalHeader()->setDefaultSectionSize(m_table->fontMetrics().height() + 6);
        m_table->horizontalHeader()->setStretchLastSection(true);
        m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
        m_table->setDragDropMode(QAbstractItemView::DragDrop);
        m_table->setDefaultDropAction(Qt::MoveAction);
        m_table->setIconSize(QSize(16, 16));
        m_window.resize(1200, 800);
        m_window.show();
    }
    ~BenchWindow() {
        // The document first: it cancels and joins its threads, whose waiting
        // calls give up on the cancel flag.
        m_document.reset();
    }

    MyDocument& document() { return *m_document; }
    QTableView* table() { return m_table; }
    FileTableModel* model() { return m_model; }
    bool previewDone() const { return m_bridge->previewDone(); }
    int reloads() const { return m_bridge->reloads(); }

private:
    QMainWindow m_window;
    QTableView* m_table = nullptr;
    FileTableModel* m_model = nullptr;
    std::unique_ptr<BenchBridge> m_bridge;
    std::unique_ptr<MyDocument> m_document = std::make_unique<MyDocument>();
};
