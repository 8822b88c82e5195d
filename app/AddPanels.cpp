#include "AddPanels.h"

#include <QAbstractItemView>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFileSystemModel>
#include <QPushButton>
#include <QStandardPaths>

namespace {
// The panel's list and detail views (its header and side bar are views too).
QList<QAbstractItemView*> entryViews(QFileDialog* panel) {
    QList<QAbstractItemView*> views;
    for (const QString& name : {QStringLiteral("listView"), QStringLiteral("treeView")})
        if (auto* view = panel->findChild<QAbstractItemView*>(name)) views.append(view);
    return views;
}

// The rows selected in the view shown, folders included.
QStringList selectedEntries(QFileDialog* panel) {
    QStringList paths;
    for (QAbstractItemView* view : entryViews(panel)) {
        auto* model = qobject_cast<QFileSystemModel*>(view->model());
        if (!model || !view->isVisible() || !view->selectionModel()) continue;
        for (const QModelIndex& index : view->selectionModel()->selectedRows())
            paths.append(model->filePath(index));
    }
    paths.removeDuplicates();
    return paths;
}

void openPanel(QWidget* window, const QString& title, const QString& name,
               QFileDialog::FileMode mode, std::function<void(const QStringList&)> chosen) {
    auto* panel = new QFileDialog(window, title);
    panel->setObjectName(name);
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setWindowModality(Qt::WindowModal);
    // Qt's own dialog: a native one cannot choose files and folders together.
    panel->setOption(QFileDialog::DontUseNativeDialog);
    panel->setFileMode(mode);
    panel->setDirectory(QStandardPaths::writableLocation(QStandardPaths::HomeLocation));
    panel->setLabelText(QFileDialog::Accept, QStringLiteral("Add"));
    for (QAbstractItemView* view : entryViews(panel))
        view->setSelectionMode(QAbstractItemView::ExtendedSelection);
    // Open on a folder would go into it: Add takes the selection as it
    // stands, files and folders alike. A typed name still goes the usual way.
    auto* box = panel->findChild<QDialogButtonBox*>();
    if (QPushButton* accept = box ? box->button(QDialogButtonBox::Open) : nullptr) {
        accept->disconnect();
        QObject::connect(accept, &QPushButton::clicked, panel, [panel, chosen] {
            QDialog* dialog = panel;
            const QStringList paths = selectedEntries(panel);
            if (paths.isEmpty()) {
                dialog->accept();
                return;
            }
            dialog->done(QDialog::Rejected); // handled here, not by filesSelected
            chosen(paths);
        });
    }
    QObject::connect(panel, &QFileDialog::filesSelected, panel, [chosen](const QStringList& paths) {
        if (!paths.isEmpty()) chosen(paths);
    });
    panel->open();
}
} // namespace

namespace AddPanels {

void openAddItemsPanel(QWidget* window, std::function<void(const QStringList&)> chosen) {
    openPanel(window, QStringLiteral("Add Files and Folders"), QStringLiteral("addItemsPanel"),
              QFileDialog::ExistingFiles, std::move(chosen));
}

void openAddFoldersPanel(QWidget* window, std::function<void(const QStringList&)> chosen) {
    openPanel(window, QStringLiteral("Add Folders"), QStringLiteral("addFoldersPanel"),
              QFileDialog::Directory, std::move(chosen));
}

} // namespace AddPanels
