#include "MyDocument.h"

#include "FileIndex.h"
#include "FolderWalker.h"
#include "Preferences.h"
#include "PreviewPipeline.h"
#include "ProposedName.h"
#include "QXException.h"
#include "QXLog.h"

#include <QDir>
#include <QFile>

#include <algorithm>
#include <list>
#include <thread>
#include <vector>

// Threads the document started (adds, previews, commits); joined on
// destruction so that none outlives its document.
struct MyDocument::Threads {
    QMutex mutex;
    struct Entry {
        std::thread thread;
        std::shared_ptr<std::atomic<bool>> done;
    };
    std::list<Entry> running;

    void reapFinishedLocked() {
        for (auto it = running.begin(); it != running.end();) {
            if (it->done->load()) {
                it->thread.join();
                it = running.erase(it);
            } else {
                ++it;
            }
        }
    }
    void joinAll() {
        for (;;) {
            std::list<Entry> batch;
            {
                QMutexLocker lock(&mutex);
                if (running.empty()) return;
                batch.swap(running);
            }
            for (auto& e : batch)
                e.thread.join();
        }
    }
};

MyDocument::MyDocument(DocumentView* view)
    : m_view(view), m_index(std::make_unique<FileIndex>()),
      m_previews(std::make_unique<PreviewPipeline>(*this)), m_threads(std::make_unique<Threads>()) {
}

MyDocument::~MyDocument() {
    m_previews->cancelAll();
    m_processingCancelled.store(true);
    m_threads->joinAll();
    m_previews->waitForDone();
}

void MyDocument::startThread(std::function<void()> work) {
    auto done = std::make_shared<std::atomic<bool>>(false);
    QMutexLocker lock(&m_threads->mutex);
    m_threads->reapFinishedLocked();
    m_threads->running.push_back({std::thread([work = std::move(work), done]() {
                                      work();
                                      done->store(true);
                                  }),
                                  done});
}

void MyDocument::setView(DocumentView* view) {
    m_view = view;
}

DocumentView& MyDocument::view() const {
    static NullDocumentView nullView;
    return m_view ? *m_view : nullView;
}

// ---- the list ---------------------------------------------------------------------------------

FileList MyDocument::fileArray() const {
    QMutexLocker lock(&m_mutex);
    return m_files;
}

qsizetype MyDocument::fileCount() const {
    QMutexLocker lock(&m_mutex);
    return m_files.size();
}

void MyDocument::rebuildIndexLocked() const {
    m_indexStale = false;
    m_index->clear();
    m_index->reserve(static_cast<size_t>(m_files.size()));
    QSet<QString> seen;
    bool trackDuplicates = true;
    for (int i = 0; i < m_files.size(); ++i) {
        const QString path = m_files[i]->fullPath();
        bool present = false;
        if (trackDuplicates) {
            present = seen.contains(path);
            seen.insert(path);
        }
        m_index->insert(FileIndex::hashOf(path), i, present);
    }
}

FileIndex& MyDocument::indexLocked() const {
    if (m_indexStale) rebuildIndexLocked();
    return *m_index;
}

void MyDocument::setFileArray(const FileList& files) {
    QMutexLocker lock(&m_mutex);
    m_files = files;
    rebuildIndexLocked();
}

void MyDocument::appendItemLocked(FileItemPtr item) {
    const QString path = item->fullPath();
    const quint64 key = FileIndex::hashOf(path);
    bool present = false;
    FileIndex& index = indexLocked();
    index.forEachCandidate(key, [&](int pos) {
        present = m_files[pos]->fullPath() == path;
        return present;
    });
    index.insert(key, static_cast<int>(m_files.size()), present);
    m_files.append(std::move(item));
}

FileItemPtr MyDocument::fileInQueue(const QString& path) const {
    QMutexLocker lock(&m_mutex);
    FileIndex& index = indexLocked();
    if (index.hasDuplicates()) {
        for (const auto& f : m_files)
            if (f->fullPath() == path) return f;
        return nullptr;
    }
    FileItemPtr found;
    index.forEachCandidate(FileIndex::hashOf(path), [&](int pos) {
        if (pos < m_files.size() && m_files[pos]->fullPath() == path) found = m_files[pos];
        return found != nullptr;
    });
    return found;
}

void MyDocument::noteItemPathChanged(const QXFileItem* item, const QString& oldFullPath,
                                     int position) {
    QMutexLocker lock(&m_mutex);
    if (m_indexStale) return; // the rebuild reads the new path
    if (position < 0 || position >= m_files.size() || m_files[position].get() != item)
        position = -1;
    const quint64 oldKey = FileIndex::hashOf(oldFullPath);
    if (position < 0)
        m_index->forEachCandidate(oldKey, [&](int pos) {
            if (pos < m_files.size() && m_files[pos].get() == item) position = pos;
            return position >= 0;
        });
    if (position < 0) { // not found under the old key: start over
        rebuildIndexLocked();
        return;
    }
    m_index->erase(oldKey, position);
    const QString path = item->fullPath();
    const quint64 key = FileIndex::hashOf(path);
    bool present = false, indexed = false;
    m_index->forEachCandidate(key, [&](int pos) {
        indexed = pos == position; // a rebuild since the rename already has it
        present = !indexed && m_files[pos]->fullPath() == path;
        return present || indexed;
    });
    if (!indexed) m_index->insert(key, position, present);
}

void MyDocument::addFileToList(const QString& path, bool verifyUnique, bool preserveFolders) {
    (void)verifyUnique; // exact duplicates are refused by every route
    FolderWalker(*this, m_mutex).add(path, preserveFolders);
}

void MyDocument::addPathLocked(const QString& path, bool verifyUnique, bool preserveFolders) {
    // A single file, a folder kept whole, or a path that does not exist.
    (void)verifyUnique;
    bool present = false;
    indexLocked().forEachCandidate(FileIndex::hashOf(path), [&](int pos) {
        present = m_files[pos]->fullPath() == path;
        return present;
    });
    if (present) return;
    FileItemPtr item = QXFileItem::fileItemWithFile(path);
    if (preserveFolders && FolderWalker::isFolder(path)) item->setIsDir(true);
    appendItemLocked(std::move(item));
}

void MyDocument::addItemsOnThread(const QStringList& paths) {
    view().setSpinner(DocumentView::Spinner::AddFiles, true);
    FolderWalker walker(*this, m_mutex);
    for (const QString& p : paths)
        walker.add(p, false);
    view().setSpinner(DocumentView::Spinner::AddFiles, false);
    view().reloadTable(true);
    enableDisableRenameButton();
    // The list's total, not the number just added: that is the line's meaning.
    QXLog::appendLog(QStringLiteral("%1 item(s) added").arg(fileCount()));
    generatePreviews();
}

void MyDocument::addItemsInBackground(const QStringList& paths) {
    startThread([this, paths] { addItemsOnThread(paths); });
}

void MyDocument::waitForAdds() {
    m_threads->joinAll();
}

void MyDocument::waitForPreviews() {
    m_threads->joinAll();
    m_previews->waitForDone();
}

void MyDocument::importFolders(const QStringList& paths) {
    try {
        for (const QString& p : paths)
            addFileToList(QXFileItem::abbreviateTilde(p), true, true);
    } catch (const std::exception& e) {
        QXException::logException(e,
                                  "-[MyDocument importFolderPanelDidEnd:returnCode:contextInfo:]");
    }
    view().reloadTable(true);
    enableDisableRenameButton();
    generatePreviews();
}

void MyDocument::remove(const QList<int>& rows) {
    if (rows.isEmpty()) return;
    {
        QMutexLocker lock(&m_mutex);
        QList<int> sorted = rows;
        std::sort(sorted.begin(), sorted.end());
        sorted.erase(std::unique(sorted.begin(), sorted.end()), sorted.end());
        FileList kept;
        kept.reserve(m_files.size());
        qsizetype next = 0;
        for (int i = 0; i < m_files.size(); ++i) {
            if (next < sorted.size() && sorted[next] == i) {
                ++next;
                continue;
            }
            kept.append(m_files[i]);
        }
        m_files = kept;
        rebuildIndexLocked();
    }
    view().reloadTable(true);
    enableDisableRenameButton();
    generatePreviews();
}

// Sorts keys read once per item (each with the item's index) and returns the
// items in that order; stable, so the platform's sort order of ties is kept.
template <class Key, class Less>
static FileList stableSortedByKeys(const FileList& files, std::vector<Key>& keys, Less less) {
    std::stable_sort(keys.begin(), keys.end(), less);
    FileList out;
    out.reserve(files.size());
    for (const Key& k : keys)
        out.append(files[k.index]);
    return out;
}

FileList MyDocument::sortFilesByPreviewFilename() const {
    const FileList files = fileArray();
    struct Key {
        QString name;
        bool hasPreview;
        qsizetype index;
    };
    std::vector<Key> keys;
    keys.reserve(static_cast<size_t>(files.size()));
    for (qsizetype i = 0; i < files.size(); ++i) {
        const FileItemPtr p = files[i]->previewObject();
        keys.push_back({p ? p->fileName() : QString(), p != nullptr, i});
    }
    // The comparator of previewFilenameCompare on precomputed names.
    return stableSortedByKeys(files, keys, [](const Key& a, const Key& b) {
        if (!a.hasPreview) return false;
        if (!b.hasPreview) return false;
        return QString::compare(a.name, b.name, Qt::CaseSensitive) < 0;
    });
}

FileList MyDocument::sortFilesByFrameOrder() const {
    const FileList files = fileArray();
    // Numeric keys read once: negative numbers (signed) order before all others.
    struct Key {
        bool has;
        bool negative;
        quint64 value;
        qsizetype index;
    };
    std::vector<Key> keys;
    keys.reserve(static_cast<size_t>(files.size()));
    for (qsizetype i = 0; i < files.size(); ++i) {
        const QVariant f = files[i]->frameNumber();
        const bool negative =
            !f.isNull() && FrameValue::toSigned(f) < 0 && f.typeId() != QMetaType::ULongLong;
        keys.push_back({!f.isNull(), negative, FrameValue::toUnsigned(f), i});
    }
    // frameNumberCompare: an item without a number orders the same as any
    // numbered one, while anything orders after an unnumbered other.
    return stableSortedByKeys(files, keys, [](const Key& a, const Key& b) {
        if (!b.has || !a.has) return false;
        if (a.negative != b.negative) return a.negative;
        return a.negative ? static_cast<qint64>(a.value) < static_cast<qint64>(b.value)
                          : a.value < b.value;
    });
}

std::optional<FileList> MyDocument::reverseArray(const FileList& files) {
    try {
        FileList out(files.rbegin(), files.rend());
        return out;
    } catch (const std::exception& e) {
        QXException::logException(e, "-[MyDocument reverseArray:]");
        return std::nullopt;
    }
}

// ---- the table --------------------------------------------------------------------------------

QString MyDocument::objectValue(Column column, int row) const {
    return objectValue(column, row,
                       column == Column::Filename && Preferences::showFullSourcePaths());
}

QString MyDocument::objectValue(Column column, int row, bool fullPaths) const {
    FileItemPtr item;
    {
        QMutexLocker lock(&m_mutex);
        if (row < 0 || row >= m_files.size()) return QString();
        item = m_files[row];
    }
    if (column == Column::Filename) {
        const QString display = item->displayName();
        return fullPaths ? display : QXFileItem::lastPathComponent(display);
    }
    const FileItemPtr preview = item->previewObject();
    return preview ? QXFileItem::lastPathComponent(preview->fileName()) : QString();
}

FileItemPtr MyDocument::itemAt(int row) const {
    QMutexLocker lock(&m_mutex);
    return row >= 0 && row < m_files.size() ? m_files[row] : nullptr;
}

bool MyDocument::rowIsConflicting(int row) const {
    QMutexLocker lock(&m_mutex);
    if (row < 0 || row >= m_files.size()) return false;
    const FileItemPtr preview = m_files[row]->previewObject();
    return preview && (preview->isConflicting() || !rowNameProblemLocked(row).isEmpty());
}

QString MyDocument::rowNameProblemLocked(int row) const {
    const FileItemPtr preview = m_files[row]->previewObject();
    return preview ? ProposedName::problem(preview->fileName()) : QString();
}

QString MyDocument::conflictToolTip() {
    return QStringLiteral("The proposed filename conflicts with another file in the list.");
}

QString MyDocument::toolTip(int row) const {
    {
        QMutexLocker lock(&m_mutex);
        if (row < 0 || row >= m_files.size()) return QString();
        const QString problem = rowNameProblemLocked(row);
        if (!problem.isEmpty())
            return QStringLiteral("The proposed filename is not a file name: %1.").arg(problem);
    }
    return rowIsConflicting(row) ? conflictToolTip() : QString();
}

void MyDocument::enableDisableRenameButton() {
    view().setRenameEnabled(fileCount() > 0);
}

QList<int> MyDocument::moveRows(int count, const QList<int>& rows, int dropRow) {
    QList<bool> isMoved(count, false);
    QList<int> moved;
    for (int r : rows)
        if (r >= 0 && r < count) isMoved[r] = true;
    for (int i = 0; i < count; ++i)
        if (isMoved[i]) moved.append(i);
    const int target = (dropRow >= 0 && dropRow < count) ? dropRow : -1;
    QList<int> order;
    order.reserve(count);
    int insertion = -1;
    for (int i = 0; i < count; ++i) {
        if (isMoved[i]) continue;
        if (i == target) insertion = static_cast<int>(order.size());
        order.append(i);
    }
    // Without a target, or when the target moved itself, the block goes last.
    if (insertion < 0) insertion = static_cast<int>(order.size());
    for (qsizetype k = 0; k < moved.size(); ++k)
        order.insert(insertion + k, moved[k]);
    return order;
}

bool MyDocument::acceptRowDrop(const QList<int>& rows, int dropRow) {
    try {
        {
            QMutexLocker lock(&m_mutex);
            const QList<int> order = moveRows(static_cast<int>(m_files.size()), rows, dropRow);
            FileList next;
            next.reserve(m_files.size());
            for (int i : order)
                next.append(m_files[i]);
            m_files = next;
            rebuildIndexLocked();
        }
        view().reloadTable(true);
        view().clearSelection();
        // Only renumbering depends on list order.
        if (selectedTag() == 7) generatePreviews();
        return true;
    } catch (const std::exception& e) {
        QXException::logException(e, "-[MyDocument tableView:acceptDrop:row:dropOperation:]");
        return false;
    }
}

bool MyDocument::acceptFileDrop(const QVariant& propertyList) {
    if (propertyList.typeId() != QMetaType::QVariantList &&
        propertyList.typeId() != QMetaType::QStringList)
        return false;
    QStringList paths;
    for (const QVariant& v : propertyList.toList())
        if (v.typeId() == QMetaType::QString) paths.append(v.toString());
    addItemsInBackground(paths);
    return true;
}
