#pragma once

#include "NameComponent.h"

#include <QByteArray>
#include <QString>
#include <atomic>
#include <memory>

class QXFileItem;
using FileItemPtr = std::shared_ptr<QXFileItem>;
using FileList = QList<FileItemPtr>;

// One file or folder of a batch: its folder, its current name and that name
// taken apart into components, plus a preview copy on which tasks edit while
// the user only looks.
//
// Every accessor is safe from any thread (a one-byte spin lock guards the
// fields; getters return copies). Two lazy forms keep 100,000 items small
// without changing what callers see: an item whose components were never
// edited keeps none and re-parses its name on demand, and the preview made at
// creation is only copied out when first asked for or before the item changes.
class QXFileItem {
public:
    QXFileItem() = default;
    // The copy of copyWithZone: everything but the preview.
    QXFileItem(const QXFileItem& other);
    QXFileItem& operator=(const QXFileItem&) = delete;

    // A new item for a path: a leading "~" expanded, the name parsed.
    static FileItemPtr fileItemWithFile(const QString& path);
    // The same for a name inside a folder; items of one folder share its text.
    static FileItemPtr fileItemInFolder(const QString& folder, const QString& name);
    // The padding a name parses to: the length of a last token that is a
    // frame number, else 0. No allocation.
    static quint32 framePadding(QStringView name);

    QString fileName() const;
    void setFileName(const QString& name);
    QString containerDir() const;
    void setContainerDir(const QString& dir);
    quint32 paddingLength() const;
    void setPaddingLength(quint32 length);
    ComponentList components() const;
    void setComponents(const ComponentList& list);
    FileItemPtr previewObject() const;
    void setPreviewObject(FileItemPtr preview);
    bool isConflicting() const { return m_conflicting.load(std::memory_order_relaxed); }
    void setIsConflicting(bool v);
    bool isDir() const { return m_isDir.load(std::memory_order_relaxed); }
    void setIsDir(bool v);

    // Parses the last path component of path into a new component list (and
    // sets the padding when a frame number is found).
    void generateComponentsFromFile(const QString& path);

    // The first frame number's value, or a null QVariant when there is none.
    QVariant frameNumber() const;
    bool hasFrameNumber() const { return !frameNumber().isNull(); }
    // Sets, inserts (before the extension) or, with a null value, removes the
    // frame number and its separator.
    void setFrameNumber(const QVariant& number);
    QString paddedFrameNumber() const;
    QString proposedFileName() const;
    void synchronize();
    void resetPreview();
    // Takes the components and padding of other (a preview of this item), so
    // that proposedFileName() gives the name other shows.
    void takeNameFrom(const QXFileItem& other);
    ComponentList mutableComponentCopy() const { return components(); }
    FileItemPtr copy() const { return std::make_shared<QXFileItem>(*this); }

    QString fullPath() const;
    QString displayName() const;

    // -1 ascending, 0 same, 1 descending, as the platform orders.
    int previewFilenameCompare(const QXFileItem* other) const;
    int frameNumberCompare(const QXFileItem* other) const;

    // The archived form: the six values in order (container, name, padding,
    // components, isConflicting, isDir). No preview is archived.
    QByteArray encode() const;
    static FileItemPtr decode(const QByteArray& data); // null on malformed input

    // Name rules shared by the parser and the tasks.
    static bool isSeparator(QChar c);
    static const QString& separatorCharacters();
    // A token as a number when that is lossless (qlonglong), else the text.
    static QVariant typedValue(const QString& token);
    static QString lastPathComponent(const QString& path);
    static QString deletingLastPathComponent(const QString& path);
    // The extension is the text after the last "."; a name whose only "."
    // is its first character, or that ends in ".", has none.
    static QString pathExtension(const QString& name);
    static QString deletingPathExtension(const QString& name);
    static QString expandTilde(const QString& path);
    static QString abbreviateTilde(const QString& path);
    // Parses one file name (the last path component) into components.
    static ComponentList parseName(const QString& name, quint32* padding = nullptr);
    // Rebuilds a name from components with the given padding.
    static QString buildName(const ComponentList& list, quint32 padding);

private:
    class Guard;
    void lock() const;
    void unlock() const;
    // Copies the lazy preview out; called with the lock held before a change.
    void materializePreviewLocked();
    ComponentList componentsLocked() const;

    QString m_fileName;
    QString m_containerDir;
    ComponentList m_components;
    mutable FileItemPtr m_preview;
    quint32 m_padding = 0;
    bool m_hasComponents = false;          // false: components are the parse of m_fileName
    mutable bool m_previewPending = false; // true: the preview is this item as created
    std::atomic<bool> m_conflicting{false};
    std::atomic<bool> m_isDir{false};
    mutable std::atomic_flag m_lock = ATOMIC_FLAG_INIT;
};
