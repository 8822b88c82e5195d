#include "DocumentWindow.h"

#include "AddPanels.h"
#include "DocumentViewBridge.h"
#include "DocumentWindows.h"
#include "FileTableModel.h"
#include "MyDocument.h"
#include "QXWindowController.h"
#include "ui_DocumentWindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMenuBar>
#include <QTimer>

DocumentWindow::DocumentWindow(QWidget* parent)
    : QMainWindow(parent), m_ui(std::make_unique<Ui::DocumentWindow>()),
      m_bridge(std::make_unique<DocumentViewBridge>(*this)),
      m_document(std::make_unique<MyDocument>(m_bridge.get())) {
    setAttribute(Qt::WA_DeleteOnClose);
    m_ui->setupUi(this);
    m_bridge->setDocument(m_document.get());
    m_controller = new QXWindowController(*this, *m_document);

    QTableView* table = m_ui->tableView;
    // Fixed row heights: a 100,000-row table must never measure its rows.
    table->verticalHeader()->setSectionResizeMode(QHeaderView::Fixed);
    table->verticalHeader()->setDefaultSectionSize(table->fontMetrics().height() + 8);
    table->horizontalHeader()->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    // Old and new names share the width; stretching measures no rows.
    table->horizontalHeader()->setSectionResizeMode(QHeaderView::Stretch);
    table->setDropIndicatorShown(true);
    // A row drag reorders the list without adding or removing rows.
    table->viewport()->installEventFilter(this);
    m_ui->splitter->setStretchFactor(0, 3);
    m_ui->splitter->setStretchFactor(1, 2);
    m_ui->splitter->setSizes({600, 340});
    for (QProgressBar* busy : {m_ui->spinner, m_ui->previewSpinner}) {
        // Hidden while idle, but keeping its place so the row does not jump.
        QSizePolicy policy = busy->sizePolicy();
        policy.setRetainSizeWhenHidden(true);
        busy->setSizePolicy(policy);
        busy->hide();
    }

    connect(m_ui->addBtn, &QPushButton::clicked, this, &DocumentWindow::addItems);
    connect(m_ui->addFoldersBtn, &QPushButton::clicked, this, &DocumentWindow::addFolders);
    connect(m_ui->removeBtn, &QPushButton::clicked, this, &DocumentWindow::removeSelected);
    connect(m_ui->renameBtn, &QPushButton::clicked, this, &DocumentWindow::rename);
    auto* removeKey = new QAction(QStringLiteral("Remove"), table);
    removeKey->setShortcuts({QKeySequence::Delete, QKeySequence(Qt::Key_Backspace)});
    removeKey->setShortcutContext(Qt::WidgetShortcut);
    connect(removeKey, &QAction::triggered, this, &DocumentWindow::removeSelected);
    table->addAction(removeKey);

    buildMenus();
    createTableModel();
    DocumentWindows::registerWindow(this);
    updateActions();
}

DocumentWindow::~DocumentWindow() {
    DocumentWindows::unregisterWindow(this);
    // Nothing waits on this window any more; the document then stops and
    // joins its threads, which may still call the bridge on their way out.
    m_bridge->shutDown();
    m_document.reset();
}

void DocumentWindow::documentDidLoad() {
    m_document->windowControllerDidLoadNib();
    reloadTable();
    m_controller->setDocumentEdited(false); // as read: nothing to save yet
}

void DocumentWindow::buildMenus() {
    QMenu* file = m_ui->menubar->addMenu(QStringLiteral("&File"));
    auto add = [this, file](const QString& text, QKeySequence::StandardKey key, auto slot) {
        QAction* action = file->addAction(text);
        action->setShortcut(key);
        connect(action, &QAction::triggered, this, slot);
        return action;
    };
    add(QStringLiteral("&New"), QKeySequence::New, [] {
        DocumentWindows::newUntitled();
    })->setObjectName(QStringLiteral("newAction"));
    add(QStringLiteral("&Open…"), QKeySequence::Open, [this] {
        DocumentWindows::openPanel(this);
    })->setObjectName(QStringLiteral("openAction"));
    file->addSeparator();
    add(QStringLiteral("&Close"), QKeySequence::Close, [this] {
        close();
    })->setObjectName(QStringLiteral("closeAction"));
    add(QStringLiteral("&Save"), QKeySequence::Save, [this] {
        m_controller->saveDocument();
    })->setObjectName(QStringLiteral("saveAction"));
    add(QStringLiteral("Save &As…"), QKeySequence::SaveAs, [this] {
        m_controller->saveDocumentAs();
    })->setObjectName(QStringLiteral("saveAsAction"));
    file->addSeparator();
    QAction* quit =
        add(QStringLiteral("&Quit"), QKeySequence::Quit, [] { DocumentWindows::quit(); });
    quit->setObjectName(QStringLiteral("quitAction"));
    quit->setMenuRole(QAction::QuitRole);
}

void DocumentWindow::createTableModel() {
    auto* model = new FileTableModel(*m_document, this);
    setTableModel(model,
                  {[model] { model->reload(); }, [model] { model->displayOptionsChanged(); }});
}

void DocumentWindow::setTableModel(QAbstractItemModel* model, TableModelHooks hooks) {
    QTableView* table = m_ui->tableView;
    table->setModel(model);
    m_modelHooks = std::move(hooks);
    // A click on the name header sorts the list itself (renumbering follows
    // the list's order); until then the list keeps the order it was given.
    table->horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    table->setSortingEnabled(true);
    connect(table->horizontalHeader(), &QHeaderView::sectionClicked, this, [this](int section) {
        if (section == 0) documentEdited();
    });
    // Rows come and go only when the list changes (drops and adds included);
    // new previews are dataChanged and leave the batch as it was.
    connect(model, &QAbstractItemModel::rowsInserted, this, &DocumentWindow::documentEdited);
    connect(model, &QAbstractItemModel::rowsRemoved, this, &DocumentWindow::documentEdited);
    if (QItemSelectionModel* selection = m_ui->tableView->selectionModel())
        connect(selection, &QItemSelectionModel::selectionChanged, this,
                &DocumentWindow::updateActions);
    updateActions();
}

QAbstractItemModel* DocumentWindow::tableModel() const {
    return m_ui->tableView->model();
}

QList<int> DocumentWindow::selectedRows() const {
    QList<int> rows;
    if (QItemSelectionModel* selection = m_ui->tableView->selectionModel())
        for (const QModelIndex& index : selection->selectedRows())
            rows.append(index.row());
    std::sort(rows.begin(), rows.end());
    return rows;
}

void DocumentWindow::reloadTable() {
    if (m_modelHooks.reload) m_modelHooks.reload();
    updateActions();
}

void DocumentWindow::setSpinnerRunning(DocumentView::Spinner which, bool running) {
    QProgressBar* busy =
        which == DocumentView::Spinner::AddFiles ? m_ui->spinner : m_ui->previewSpinner;
    busy->setVisible(running);
}

void DocumentWindow::clearSelection() {
    m_ui->tableView->clearSelection();
    updateActions();
}

void DocumentWindow::updateActions() {
    const qsizetype count = m_document->fileCount();
    const bool committing = m_bridge->commitRunning();
    m_ui->removeBtn->setEnabled(!committing && !selectedRows().isEmpty());
    m_ui->renameBtn->setEnabled(!committing && count > 0);
    m_ui->addBtn->setEnabled(!committing);
    m_ui->addFoldersBtn->setEnabled(!committing);
    m_ui->taskPopUp->setEnabled(!committing && m_ui->taskPopUp->count() > 0);
    m_ui->countLabel->setText(count == 0   ? QStringLiteral("No files")
                              : count == 1 ? QStringLiteral("1 file")
                                           : QStringLiteral("%L1 files").arg(count));
}

void DocumentWindow::addItems() {
    AddPanels::openAddItemsPanel(this, [this](const QStringList& paths) {
        m_document->addItemsInBackground(paths);
        documentEdited();
    });
}

void DocumentWindow::addFolders() {
    AddPanels::openAddFoldersPanel(this, [this](const QStringList& paths) {
        m_document->importFolders(paths);
        documentEdited();
    });
}

void DocumentWindow::removeSelected() {
    const QList<int> rows = selectedRows();
    if (rows.isEmpty() || m_bridge->commitRunning()) return;
    m_ui->tableView->clearSelection();
    m_document->remove(rows);
    documentEdited();
}

void DocumentWindow::rename() {
    if (m_document->fileCount() == 0 || m_bridge->commitRunning()) return;
    m_document->process();
}

void DocumentWindow::documentEdited() {
    m_controller->setDocumentEdited(true);
}

void DocumentWindow::commitEnded() {
    // The renamed files are the batch's new paths: worth saving.
    documentEdited();
    updateActions();
    if (m_closePending) {
        m_closePending = false;
        QTimer::singleShot(0, this, &QWidget::close);
    }
}

void DocumentWindow::mainThreadAlertEnded() {
    if (m_closePending && !m_bridge->commitRunning() && !m_bridge->inMainThreadAlert()) {
        m_closePending = false;
        QTimer::singleShot(0, this, &QWidget::close);
    }
}

void DocumentWindow::closeEvent(QCloseEvent* event) {
    if (m_closeApproved || (!m_controller->isDocumentEdited() && !m_bridge->commitRunning() &&
                            !m_bridge->inMainThreadAlert())) {
        m_bridge->shutDown();
        event->accept();
        return;
    }
    if (m_bridge->commitRunning() || m_bridge->inMainThreadAlert()) {
        // The main thread never waits for the commit: stop it, answer what
        // it asks, and close once it has ended.
        m_document->cancelProgress();
        m_bridge->answerOpenSheets();
        m_closePending = true;
        event->ignore();
        return;
    }
    event->ignore();
    m_controller->askToSave([this](bool mayClose) {
        if (!mayClose) {
            emit closeCancelled();
            return;
        }
        m_closeApproved = true;
        close();
    });
}

bool DocumentWindow::eventFilter(QObject* watched, QEvent* event) {
    // A drop reorders or adds to the list (a drop the table refuses changes
    // nothing, but asking to save an unchanged batch once is harmless).
    if (watched == m_ui->tableView->viewport() && event->type() == QEvent::Drop) documentEdited();
    return QMainWindow::eventFilter(watched, event);
}

void DocumentWindow::changeEvent(QEvent* event) {
    if (event->type() == QEvent::ActivationChange && isActiveWindow())
        DocumentWindows::noteActivated(this);
    QMainWindow::changeEvent(event);
}
