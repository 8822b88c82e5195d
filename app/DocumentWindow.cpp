#include "DocumentWindow.h"

#include "AddPanels.h"
#include "DocumentViewBridge.h"
#include "DocumentWindows.h"
#include "FileTableModel.h"
#include "MyDocument.h"
#include "PreferencesDialog.h"
#include "QXWindowController.h"
#include "TaskArea.h"
#include "UserDefaults.h"
#include "ui_DocumentWindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QFileDialog>
#include <QHeaderView>
#include <QItemSelectionModel>
#include <QMenuBar>
#include <QPointer>
#include <QTimer>

#include <utility>

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

    m_taskArea = new TaskArea(*this, *m_document, m_ui->taskPopUp, m_ui->settingsView);
    connect(m_taskArea, &TaskArea::edited, this, &DocumentWindow::documentEdited);
    connect(m_taskArea, &TaskArea::tagChanged, this, &DocumentWindow::updateActions);
    // A preview asked for here starts on another thread: until it says so, it is awaited.
    // (The engine previews nothing, and says nothing, for an empty list.)
    connect(m_taskArea, &TaskArea::previewRequested, this, [this] {
        if (m_document->fileCount() > 0) ++m_previewsAwaited;
    });
    connect(UserDefaults::instance(), &UserDefaults::changed, this, [this](const QString& key) {
        if (key == UserDefaults::showFullSourcePathsKey && m_modelHooks.displayOptionsChanged)
            m_modelHooks.displayOptionsChanged();
    });

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
    // Defaults first: a batch read from a file then replaces the task and fields.
    m_taskArea->startNewBatch();
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

    QMenu* edit = m_ui->menubar->addMenu(QStringLiteral("&Edit"));
    QAction* preferences = edit->addAction(QStringLiteral("Preferences…"));
    preferences->setObjectName(QStringLiteral("preferencesAction"));
    // Some platforms bind no key to it; Ctrl+, is what users try there.
    const QList<QKeySequence> keys = QKeySequence::keyBindings(QKeySequence::Preferences);
    preferences->setShortcuts(
        keys.isEmpty() ? QList<QKeySequence>{QKeySequence(Qt::CTRL | Qt::Key_Comma)} : keys);
    preferences->setMenuRole(QAction::PreferencesRole);
    connect(preferences, &QAction::triggered, this, &DocumentWindow::showPreferences);
}

void DocumentWindow::showPreferences() {
    // One window for the application: a second choice brings it forward.
    static QPointer<PreferencesDialog> dialog;
    if (!dialog) {
        dialog = new PreferencesDialog;
        dialog->setAttribute(Qt::WA_DeleteOnClose);
        // Left open, it must not keep the program running once the batches are closed.
        dialog->setAttribute(Qt::WA_QuitOnClose, false);
    }
    dialog->show();
    dialog->raise();
    dialog->activateWindow();
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
    if (m_document->fileCount() == 0) m_previewsAwaited = 0; // none of them will start
    updateActions();
}

void DocumentWindow::setSpinnerRunning(DocumentView::Spinner which, bool running) {
    if (which == DocumentView::Spinner::AddFiles) {
        m_ui->spinner->setVisible(running);
        return;
    }
    // Previews overlap while the user types: the indicator runs until the last ends.
    m_previewsRunning = std::max(0, m_previewsRunning + (running ? 1 : -1));
    if (running) m_previewsAwaited = std::max(0, m_previewsAwaited - 1);
    m_ui->previewSpinner->setVisible(m_previewsRunning > 0);
    if (m_previewsRunning > 0 || m_previewsAwaited > 0) return;
    m_taskArea->previewsEnded();
    if (std::exchange(m_renameWhenPreviewed, false)) rename();
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
    const QString action = m_taskArea->selectedTag() == kGapCheckTag ? QStringLiteral("Check Gaps")
                                                                     : QStringLiteral("Rename");
    m_ui->renameBtn->setText(action);
    m_ui->renameBtn->setAccessibleName(action);
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
    if (m_taskArea->selectedTag() == kGapCheckTag) {
        (void)m_document->checkFrameGaps(); // its report is a sheet of its own
        return;
    }
    if (m_previewsRunning > 0 || m_previewsAwaited > 0) {
        // The confirmation counts, and the pattern check reads, the names being
        // made: Rename goes on once they are all there.
        m_renameWhenPreviewed = true;
        return;
    }
    const QString patternError = m_taskArea->findPatternError();
    if (!patternError.isEmpty()) {
        // The previews show the old names: renaming now would rename nothing as shown.
        m_bridge->alert({QStringLiteral("The find pattern cannot be used"),
                         QStringLiteral("%1\n\nCorrect the pattern, or turn off \"Regular "
                                        "expression\", before renaming.")
                             .arg(patternError),
                         QString(), QString(), QString(), AlertRequest::Parent::MainWindow, false});
        return;
    }
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
