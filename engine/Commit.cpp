// The commit: the task in commit mode, then every changed name moved on disk,
// each move recorded in the rename journal before it is made.
#include "FileMover.h"
#include "MyDocument.h"
#include "Preferences.h"
#include "QXDate.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "RenameJournal.h"

#include <QDateTime>

#include <cerrno>

namespace {
QString joinPath(const QString& dir, const QString& name) {
    if (dir.endsWith(u'/')) return dir + name;
    return dir + u'/' + name;
}

QString folderOf(const QString& path) {
    return QXFileItem::deletingLastPathComponent(path);
}

// p without its extension, "_" and the local date and time, then the
// extension of extensionFrom (p itself unless told otherwise) when it has one.
QString datedName(const QString& p, const QString& extensionFrom) {
    const QString ext = QXFileItem::pathExtension(QXFileItem::lastPathComponent(extensionFrom));
    const QString base =
        joinPath(folderOf(p), QXFileItem::deletingPathExtension(QXFileItem::lastPathComponent(p)));
    const QString dated = base + u'_' + QXDate::datedSuffix(QDateTime::currentDateTime());
    if (ext.isEmpty()) return dated;
    return dated + u'.' + ext;
}
QString datedName(const QString& p) {
    return datedName(p, p);
}

QString plural(int count) {
    return count == 1 ? QString() : QStringLiteral("s");
}
} // namespace

// One run of copyFiles: the failed names, the journal, and the step for each item.
class CommitRunner {
public:
    explicit CommitRunner(MyDocument& doc) : m_doc(doc) {}
    bool run();

private:
    void handle(QXFileItem& item);
    bool clearTheWay(QXFileItem& item, const QString& newPath);
    void succeeded(QXFileItem& item, const QString& oldPath, const QString& newPath,
                   const QString& newName);
    void fail(const QXFileItem& item) {
        m_failed.append(QXFileItem::lastPathComponent(item.fullPath()));
    }
    // Records the move in the journal, makes it, and records how it went.
    QString move(RenameJournal::Kind kind, const QString& from, const QString& to,
                 const QString& finalPath = QString(), int* errorCode = nullptr);
    RenameJournal& journal();

    MyDocument& m_doc;
    RenameJournal m_journal;
    bool m_journalTried = false;
    QStringList m_failed;
};

RenameJournal& CommitRunner::journal() {
    if (!m_journalTried) {
        m_journalTried = true;
        QString error;
        if (!m_journal.create(&error))
            QXLog::appendLog(QStringLiteral("Unable to create rename journal in %1. %2")
                                 .arg(RenameJournal::folder(), error));
    }
    return m_journal;
}

QString CommitRunner::move(RenameJournal::Kind kind, const QString& from, const QString& to,
                           const QString& finalPath, int* errorCode) {
    RenameJournal& j = journal();
    const qint64 n = j.begin(kind, from, to, finalPath);
    const QString error = FileMover::move(from, to, errorCode);
    if (error.isEmpty())
        j.done(n);
    else
        j.failed(n, error);
    return error;
}

bool CommitRunner::run() {
    const FileList files = m_doc.fileArray();
    for (const FileItemPtr& item : files) {
        if (m_doc.processingCancelled()) break;
        handle(*item);
        m_doc.incrementProgress();
    }
    if (m_journal.isOpen()) m_journal.complete();
    {
        QMutexLocker lock(&m_doc.m_commitMutex);
        m_doc.m_failedNames = m_failed;
        m_doc.m_journalPath = m_journal.path();
    }
    if (m_failed.isEmpty()) return true;
    m_doc.view().alert(
        {QStringLiteral("Some files could not be renamed"),
         QStringLiteral("The following files were not renamed:\n\n") + m_failed.join(u'\n'),
         QString(), QString(), QString(), AlertRequest::Parent::ProgressSheet, true});
    return false;
}

void CommitRunner::handle(QXFileItem& item) {
    const QString oldPath = item.fullPath();
    const QString proposed = item.proposedFileName();
    const QString newPath = item.containerDir() + u'/' + proposed;

    if (proposed.isEmpty()) {
        QXLog::appendLog(
            QStringLiteral("Unable to rename %1 - new filename is blank").arg(oldPath));
        fail(item);
        return;
    }
    if (oldPath == newPath) {
        succeeded(item, oldPath, newPath, proposed);
        return;
    }
    if (oldPath.toLower() == newPath.toLower()) {
        // A case-insensitive volume sees one name: go through a unique one.
        // The unique last component of QXLocalPaths::tempFile(), without the
        // temporary folder that would be cut off again.
        const QString tmp = joinPath(folderOf(oldPath), QXLocalPaths::uuid());
        QXLog::appendLog(QStringLiteral("Creating temp file %1 for %2").arg(tmp, oldPath));
        QString error = move(RenameJournal::Kind::Temp, oldPath, tmp, newPath);
        if (!error.isEmpty()) {
            fail(item);
            QXLog::appendLog(QStringLiteral("Unable to assign temporary name to old file %1. %2")
                                 .arg(oldPath, error));
            return;
        }
        error = move(RenameJournal::Kind::FromTemp, tmp, newPath);
        if (!error.isEmpty()) {
            fail(item);
            // Two placeholders for three values: the description is not shown.
            QXLog::appendLog(QStringLiteral("Unable to move to %1. %2").arg(tmp, newPath));
            return;
        }
        succeeded(item, oldPath, newPath, proposed);
        return;
    }
    // The move itself tells whether something stands at the new name (it never
    // replaces it), which spares a look-up per file; the rules for an existing
    // target then apply as if it had been seen first.
    int code = 0;
    QString error = move(RenameJournal::Kind::Rename, oldPath, newPath, QString(), &code);
    if (!error.isEmpty() && (code == EEXIST || FileMover::exists(newPath))) {
        if (!clearTheWay(item, newPath)) return;
        error = move(RenameJournal::Kind::Rename, oldPath, newPath);
    }
    if (!error.isEmpty()) {
        fail(item);
        QXLog::appendLog(
            QStringLiteral("Unable to rename file %1 to %2. %3").arg(oldPath, newPath, error));
        return;
    }
    succeeded(item, oldPath, newPath, proposed);
}

// Moves whatever stands at newPath out of the way; false when item failed.
bool CommitRunner::clearTheWay(QXFileItem& item, const QString& newPath) {
    if (const FileItemPtr inWay = m_doc.fileInQueue(newPath)) {
        QXLog::appendLog(
            QStringLiteral("Proposed file %1 exists, renaming old file...").arg(newPath));
        const QString dated = datedName(newPath);
        // The batch item follows its file to the dated name, even if the move then fails.
        inWay->setFileName(QXFileItem::lastPathComponent(dated));
        m_doc.noteItemPathChanged(inWay.get(), newPath);
        const QString error = move(RenameJournal::Kind::Aside, newPath, dated);
        if (!error.isEmpty()) {
            fail(item);
            QXLog::appendLog(QStringLiteral("Unable to assign temporary name to old file %1. %2")
                                 .arg(newPath, error));
            return false;
        }
        return true;
    }

    switch (Preferences::conflictAction()) {
    case 1: {
        const QString dated = datedName(newPath);
        const QString error = move(RenameJournal::Kind::Dated, newPath, dated);
        if (!error.isEmpty()) {
            fail(item);
            QXLog::appendLog(
                QStringLiteral("Unable to rename file %1 to %2. %3").arg(newPath, dated, error));
            return false;
        }
        return true;
    }
    case 2: {
        RenameJournal& j = journal();
        const qint64 n = j.begin(RenameJournal::Kind::Trash, newPath, QString());
        QString where;
        const QString error = FileMover::moveToTrash(newPath, &where);
        if (!error.isEmpty()) {
            j.failed(n, error);
            fail(item);
            QXLog::appendLog(QStringLiteral("Unable to trash file %1").arg(newPath));
            return false;
        }
        j.done(n, where);
        return true;
    }
    case 0: {
        const QString dir = joinPath(folderOf(newPath), QStringLiteral("Conflicting files"));
        if (!FileMover::exists(dir)) {
            RenameJournal& j = journal();
            const qint64 n = j.begin(RenameJournal::Kind::MakeDir, dir, QString());
            const QString error = FileMover::makePath(dir);
            if (!error.isEmpty()) {
                j.failed(n, error);
                fail(item);
                QXLog::appendLog(
                    QStringLiteral("Unable to create directory %1. %2").arg(dir, error));
                return false;
            }
            j.done(n);
        }
        QString dest = joinPath(dir, QXFileItem::lastPathComponent(newPath));
        if (FileMover::exists(dest)) dest = datedName(dest, newPath);
        const QString error = move(RenameJournal::Kind::Conflict, newPath, dest);
        if (!error.isEmpty()) {
            fail(item);
            QXLog::appendLog(
                QStringLiteral("Unable to move file %1 to %2. %3").arg(newPath, dest, error));
            return false;
        }
        return true;
    }
    default: // an unknown choice fails the file, without a word in the log
        fail(item);
        return false;
    }
}

void CommitRunner::succeeded(QXFileItem& item, const QString& oldPath, const QString& newPath,
                             const QString& newName) {
    // Re-pointing to the same folder changes nothing; skip the walk over the list.
    if (item.isDir() && oldPath != newPath) m_doc.updateFilesInFolder(oldPath, newPath);
    item.setFileName(newName); // synchronize, with the name already built
    if (oldPath != newPath) m_doc.noteItemPathChanged(&item, oldPath);
}

bool MyDocument::copyFiles() {
    {
        QMutexLocker lock(&m_commitMutex);
        m_failedNames.clear();
        m_journalPath.clear();
    }
    CommitRunner runner(*this);
    return runner.run();
}

void MyDocument::updateFilesInFolder(const QString& oldFolder, const QString& newFolder) {
    for (const FileItemPtr& item : fileArray()) {
        const QString dir = item->containerDir();
        // A plain prefix: a sibling whose name starts with the folder's is re-pointed too.
        if (!dir.startsWith(oldFolder)) continue;
        const QString oldFullPath = item->fullPath();
        if (oldFullPath == oldFolder) continue;
        QStringView rest = QStringView(dir).mid(oldFolder.size());
        while (rest.startsWith(u'/'))
            rest = rest.mid(1);
        const QString moved = rest.isEmpty() ? newFolder : joinPath(newFolder, rest.toString());
        item->setContainerDir(moved);
        if (const FileItemPtr preview = item->previewObject()) preview->setContainerDir(moved);
        noteItemPathChanged(item.get(), oldFullPath);
    }
}

void MyDocument::startProcessing(int count) {
    if (count == 0) count = static_cast<int>(fileCount());
    {
        QMutexLocker lock(&m_commitMutex);
        m_failedNames.clear();
        m_journalPath.clear();
    }
    startProgress();
    const bool ok = runCommitTask(selectedTag(), dictionaryFromSettings());
    endProgress();
    view().reloadTable(true);
    view().requestAttention();
    if (!ok) return;
    view().alert({QStringLiteral("Rename complete"),
                  QStringLiteral("%1 file%2 renamed.").arg(count).arg(plural(count)), QString(),
                  QString(), QString(), AlertRequest::Parent::MainWindow, true});
}

void MyDocument::startProgress() {
    m_processingCancelled.store(false);
    view().startProgress(static_cast<int>(fileCount()));
}

void MyDocument::incrementProgress() {
    view().incrementProgress();
}

void MyDocument::endProgress() {
    view().endProgress();
}

QStringList MyDocument::lastFailedNames() const {
    QMutexLocker lock(&m_commitMutex);
    return m_failedNames;
}

QString MyDocument::lastJournalPath() const {
    QMutexLocker lock(&m_commitMutex);
    return m_journalPath;
}
