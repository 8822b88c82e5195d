#pragma once

#include <QAbstractTableModel>
#include <QFileIconProvider>
#include <QHash>
#include <QIcon>

#include <optional>

class MyDocument;

// The file table of a document window: columns "filename" and "preview" read
// through the document's table accessors (nothing is copied per row), with
// file icons cached by type, the caution icon and tool tip of a conflicting
// preview, file drops and row drags. Main thread only.
//
// Row drags carry the private type "QXPboardType". Its payload is the index
// set of the dragged rows as a QDataStream (Qt 6.0 format): a qint32 count,
// then that many qint32 rows in ascending order.
class FileTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    enum Column { FilenameColumn = 0, PreviewColumn = 1, ColumnCount };
    // headerData(section, Horizontal, ColumnIdentifierRole): "filename" or "preview".
    static constexpr int ColumnIdentifierRole = Qt::UserRole;
    static const QString rowMimeType;

    explicit FileTableModel(MyDocument& document, QObject* parent = nullptr);

    // After the engine's reloadTable: rows are inserted or removed for a
    // changed count, the rest is dataChanged; never a reset.
    void reload();
    // A preview ended: one dataChanged over the preview column.
    void previewsChanged();
    // "showFullSourcePaths" changed: the file-name column.
    void displayOptionsChanged();

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation,
                        int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    // The file-name column sorts the list itself; the order is what
    // renumbering follows. The preview column does not sort.
    void sort(int column, Qt::SortOrder order = Qt::AscendingOrder) override;

    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;
    Qt::DropActions supportedDropActions() const override;
    Qt::DropActions supportedDragActions() const override;

    static QByteArray encodeRows(QList<int> rows);
    static std::optional<QList<int>> decodeRows(const QByteArray& payload);

private:
    QIcon fileIcon(int row) const;
    bool isOwnRowDrag(const QMimeData* data) const;
    static QStringList localFiles(const QMimeData* data);

    MyDocument& m_document;
    int m_rows = 0; // the count this model last announced
    const quint64 m_dragSource;
    // "showFullSourcePaths", read when the model is made and when told it changed.
    bool m_fullPaths;
    QIcon m_caution;
    QFileIconProvider m_iconProvider;
    // Icons by file type: "/" for folders, else the lower-case extension.
    mutable QHash<QString, QIcon> m_icons;
};
