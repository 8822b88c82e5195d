#include "FileTableModel.h"

#include "MyDocument.h"
#include "Preferences.h"

#include <QDataStream>
#include <QFileInfo>
#include <QIODevice>
#include <QMimeData>
#include <QUrl>

#include <algorithm>
#include <atomic>

// The resources live in a static library: nothing references them, so the
// linker would drop them unless they are registered by name.
static void registerResources() {
    Q_INIT_RESOURCE(seqmate);
}

const QString FileTableModel::rowMimeType = QStringLiteral("QXPboardType");

namespace {
// Tells this model's row drags from another window's: a row set only means
// something to the document it was dragged from.
const char dragSourceProperty[] = "seqmateDragSource";

quint64 nextDragSource() {
    static std::atomic<quint64> next{1};
    return next.fetch_add(1);
}
} // namespace

FileTableModel::FileTableModel(MyDocument& document, QObject* parent)
    : QAbstractTableModel(parent), m_document(document), m_rows(document.numberOfRows()),
      m_dragSource(nextDragSource()), m_fullPaths(Preferences::showFullSourcePaths()) {
    registerResources();
    m_caution = QIcon(QStringLiteral(":/caution.png"));
}

void FileTableModel::reload() {
    const int count = m_document.numberOfRows();
    const int kept = std::min(count, m_rows);
    if (count > m_rows) {
        beginInsertRows(QModelIndex(), m_rows, count - 1);
        m_rows = count;
        endInsertRows();
    } else if (count < m_rows) {
        beginRemoveRows(QModelIndex(), count, m_rows - 1);
        m_rows = count;
        endRemoveRows();
    }
    // Rows that stayed may hold other items now (a removal, a move, a sort).
    if (kept > 0) emit dataChanged(index(0, 0), index(kept - 1, ColumnCount - 1));
}

void FileTableModel::previewsChanged() {
    if (m_rows > 0) emit dataChanged(index(0, PreviewColumn), index(m_rows - 1, PreviewColumn));
}

void FileTableModel::displayOptionsChanged() {
    m_fullPaths = Preferences::showFullSourcePaths();
    if (m_rows > 0)
        emit dataChanged(index(0, FilenameColumn), index(m_rows - 1, FilenameColumn),
                         {Qt::DisplayRole});
}

int FileTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : m_rows;
}

int FileTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : ColumnCount;
}

QVariant FileTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.model() != this) return {};
    const int row = index.row();
    const bool filename = index.column() == FilenameColumn;
    switch (role) {
    case Qt::DisplayRole:
        return m_document.objectValue(filename ? MyDocument::Column::Filename
                                               : MyDocument::Column::Preview,
                                      row, m_fullPaths);
    case Qt::DecorationRole:
        if (filename) return fileIcon(row);
        return m_document.rowIsConflicting(row) ? m_caution : QVariant();
    case Qt::ToolTipRole: {
        const QString tip = m_document.toolTip(row);
        return tip.isEmpty() ? QVariant() : tip;
    }
    case Qt::AccessibleDescriptionRole: {
        // A screen reader cannot see the caution icon: the preview cell says it.
        if (filename) return {};
        const QString tip = m_document.toolTip(row);
        return tip.isEmpty() ? QVariant() : tip;
    }
    default:
        return {};
    }
}

QIcon FileTableModel::fileIcon(int row) const {
    const FileItemPtr item = m_document.itemAt(row);
    if (!item) return {};
    const bool folder = item->isDir();
    const QString key =
        folder ? QStringLiteral("/") : QXFileItem::pathExtension(item->fileName()).toLower();
    const auto hit = m_icons.constFind(key);
    if (hit != m_icons.constEnd()) return *hit;
    // The first item of a type stands for all of them: one look-up per type,
    // so 100,000 frames of one sequence cost a single one.
    QIcon icon = folder ? m_iconProvider.icon(QAbstractFileIconProvider::Folder)
                        : m_iconProvider.icon(QFileInfo(item->fullPath()));
    if (icon.isNull()) icon = m_iconProvider.icon(QAbstractFileIconProvider::File);
    m_icons.insert(key, icon);
    return icon;
}

QVariant FileTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || section < 0 || section >= ColumnCount)
        return QAbstractTableModel::headerData(section, orientation, role);
    if (role == Qt::DisplayRole) return section == FilenameColumn ? tr("Name") : tr("New Name");
    if (role == ColumnIdentifierRole)
        return section == FilenameColumn ? QStringLiteral("filename") : QStringLiteral("preview");
    return {};
}

Qt::ItemFlags FileTableModel::flags(const QModelIndex& index) const {
    // Drops land between rows (or below the last), never on a row.
    if (!index.isValid()) return Qt::ItemIsDropEnabled;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled |
           Qt::ItemNeverHasChildren;
}

void FileTableModel::sort(int column, Qt::SortOrder order) {
    if (column != FilenameColumn) return;
    // The engine reloads the table through its view, which reaches reload().
    m_document.sortByName(order == Qt::DescendingOrder);
}

// ---- drag and drop -----------------------------------------------------------------------------

QStringList FileTableModel::mimeTypes() const {
    return {rowMimeType, QStringLiteral("text/uri-list")};
}

Qt::DropActions FileTableModel::supportedDropActions() const {
    return Qt::CopyAction | Qt::MoveAction;
}

Qt::DropActions FileTableModel::supportedDragActions() const {
    return Qt::MoveAction;
}

QByteArray FileTableModel::encodeRows(QList<int> rows) {
    std::sort(rows.begin(), rows.end());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    QByteArray payload;
    QDataStream out(&payload, QIODevice::WriteOnly);
    out.setVersion(QDataStream::Qt_6_0);
    out << static_cast<qint32>(rows.size());
    for (int r : rows)
        out << static_cast<qint32>(r);
    return payload;
}

std::optional<QList<int>> FileTableModel::decodeRows(const QByteArray& payload) {
    QDataStream in(payload);
    in.setVersion(QDataStream::Qt_6_0);
    qint32 count = -1;
    in >> count;
    // The count must match the payload exactly: no trailing or missing rows.
    if (in.status() != QDataStream::Ok || count < 0 || payload.size() != 4 + 4 * qsizetype(count))
        return std::nullopt;
    QList<int> rows;
    rows.reserve(count);
    for (qint32 i = 0; i < count; ++i) {
        qint32 r = 0;
        in >> r;
        if (r < 0) return std::nullopt;
        rows.append(r);
    }
    return rows;
}

QMimeData* FileTableModel::mimeData(const QModelIndexList& indexes) const {
    QList<int> rows;
    for (const QModelIndex& i : indexes)
        if (i.isValid() && i.model() == this) rows.append(i.row());
    if (rows.isEmpty()) return nullptr;
    auto* data = new QMimeData;
    data->setData(rowMimeType, encodeRows(rows));
    data->setProperty(dragSourceProperty, m_dragSource);
    return data;
}

bool FileTableModel::isOwnRowDrag(const QMimeData* data) const {
    return data->hasFormat(rowMimeType) &&
           data->property(dragSourceProperty).toULongLong() == m_dragSource;
}

QStringList FileTableModel::localFiles(const QMimeData* data) {
    QStringList paths;
    if (!data->hasUrls()) return paths;
    // Only local files can join a batch; other addresses are ignored.
    for (const QUrl& url : data->urls())
        if (url.isLocalFile() && !url.toLocalFile().isEmpty()) paths.append(url.toLocalFile());
    return paths;
}

bool FileTableModel::canDropMimeData(const QMimeData* data, Qt::DropAction action, int, int,
                                     const QModelIndex&) const {
    if (!data) return false;
    // The row type first: a drag of rows never reads as a drop of files.
    if (data->hasFormat(rowMimeType)) return action == Qt::MoveAction && isOwnRowDrag(data);
    // Files are only ever copied in: a source told "moved" may delete its originals.
    return action == Qt::CopyAction && !localFiles(data).isEmpty();
}

bool FileTableModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                  const QModelIndex& parent) {
    if (action == Qt::IgnoreAction) return true;
    if (!canDropMimeData(data, action, row, column, parent)) return false;
    if (data->hasFormat(rowMimeType)) {
        const std::optional<QList<int>> rows = decodeRows(data->data(rowMimeType));
        if (!rows) return false;
        // A drop on a row goes above it; on the empty area below, at the end.
        const int dropRow = row >= 0 ? row : parent.isValid() ? parent.row() : -1;
        return m_document.acceptRowDrop(*rows, dropRow);
    }
    return m_document.acceptFileDrop(localFiles(data));
}
