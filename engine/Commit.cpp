// The commit: the task in commit mode, then every changed name moved on disk,
// each move recorded in the rename journal before it is made.
#include "CommitRunner.h"
#include "FileMover.h"
#include "Preferences.h"
#include "PreviewPipeline.h"
#include "ProposedName.h"
#include "QXLocalPaths.h"
#include "QXLog.h"

#include <cerrno>

namespace {
QString plural(int count) {
    return count == 1 ? QString() : QStringLiteral("s");
}

// Whether the two paths are equal once lowered, as QString::toLower() lowers
// them. The usual pair is ASCII, where lowering goes letter by letter: one
// pass compares them without lowering copies (or Unicode case folding).
bool sameWhenLowered(const QString& a, const QString& b) {
    if (a.size() != b.size()) return a.toLower() == b.toLower();
    const auto lowered = [](char16_t c) { return c >= u'A' && c <= u'Z' ? c + 32 : c; };
    for (qsizetype i = 0; i < a.size(); ++i) {
        const char16_t x = a[i].unicode(), y = b[i].unicode();
        if (x >= 0x80 || y >= 0x80) return a.toLower() == b.toLower();
        if (lowered(x) != lowered(y)) return false;
    }
    return true;
}
} // namespace

RenameJournal& CommitRunner::journalLocked() {
    if (!m_journalTried) {
        m_journalTried = true;
        QString error;
        if (!m_journal.create(&error)) QXLog::appendLog(error);
    }
    return m_journal;
}

qint64 CommitRunner::record(RenameJournal::Kind kind, const QString& from, const QString& to,
                            const QString& finalPath) {
    std::lock_guard lock(m_journalMutex);
    const qint64 n = journalLocked().begin(kind, from, to, finalPath);
    if (n == 0) m_unrecorded = true;
    return n;
}

void CommitRunner::markDone(qint64 n, const QString& where) {
    std::lock_guard lock(m_journalMutex);
    m_journal.done(n, where);
}

void CommitRunner::markFailed(qint64 n, const QString& error) {
    std::lock_guard lock(m_journalMutex);
    m_journal.failed(n, error);
}

QString CommitRunner::move(RenameJournal::Kind kind, const QString& from, const QString& to,
                           const QString& finalPath, int* errorCode) {
    const qint64 n = record(kind, from, to, finalPath);
    if (n == 0) {
        std::lock_guard lock(m_journalMutex);
        return m_journal.error();
    }
    const QString error = FileMover::move(from, to, errorCode);
    if (error.isEmpty())
        markDone(n);
    else
        markFailed(n, error);
    return error;
}

bool CommitRunner::run() {
    m_files = m_doc.fileArray();
    // Read once: a preference changed during the run applies to the next.
    const int jobs = Preferences::commitJobs();
    if (jobs > 1 && runLanes(jobs)) return finishRun();
    const int count = static_cast<int>(m_files.size());
    // Far enough ahead to keep the mover busy, near enough that little is
    // planned again after a stop. Work changes hands in chunks: waking the
    // other thread for every file would cost more than the file itself.
    constexpr int ahead = 512;
    constexpr int chunk = 128;
    int next = 0;     // the next item to plan
    int inFlight = 0; // planned, not yet finished
    bool atFolder = false;
    bool cancelled = false;
    QList<Job> batch;
    while (!cancelled && !m_unrecorded && (next < count || inFlight > 0)) {
        if (inFlight <= ahead - chunk) {
            batch.reserve(ahead - inFlight);
            while (!atFolder && next < count && inFlight < ahead) {
                batch.append(plan(next));
                atFolder = m_files[next]->isDir();
                ++next;
                ++inFlight;
            }
            submit(batch);
        }
        for (Job& job : takeFinished(std::min(chunk, inFlight))) {
            --inFlight;
            if (job.cancelled || job.unrecorded) {
                cancelled = job.cancelled;
                if (job.unrecorded) m_unrecorded = true;
                break;
            }
            const bool stopped = job.stopsMover();
            if (stopped) {
                // The mover waits; the jobs after this one are planned again
                // once it is dealt with.
                next = job.index + 1;
                inFlight = 0;
                // A folder planned after it is dropped too: nothing is in flight.
                atFolder = false;
            }
            finish(job, m_wholeList);
            if (m_files[job.index]->isDir()) atFolder = false;
            m_doc.incrementProgress();
            if (m_unrecorded) break; // a move on this thread could not be recorded
            if (stopped) {
                resumeMover();
                break;
            }
        }
        flushLog(m_wholeList);
    }
    stopMover();
    flushLog(m_wholeList);
    m_cancelled = cancelled;
    return finishRun();
}

bool CommitRunner::finishRun() {
    const bool cancelled = m_cancelled;
    // A journal that could not be written stays without its "complete": it
    // is listed as interrupted.
    if (m_journal.isOpen()) m_journal.complete();
    {
        QMutexLocker lock(&m_doc.m_commitMutex);
        m_doc.m_failedNames = m_failed;
        m_doc.m_journalPath = m_journal.path();
        m_doc.m_commitSummary = {!cancelled && !m_unrecorded,
                                 static_cast<int>(m_asides.size()),
                                 m_renamed.load(),
                                 m_asides,
                                 m_unrecorded ? m_journal.error() : QString(),
                                 m_failureLines};
    }
    if (m_failed.isEmpty() && !m_unrecorded) return true;
    reportFailures();
    return false;
}

CommitRunner::Job CommitRunner::plan(int index) const {
    const QXFileItem& item = *m_files[index];
    Job job;
    job.index = index;
    job.oldPath = item.fullPath();
    job.proposed = m_proposed.isEmpty() ? item.proposedFileName() : m_proposed[index];
    job.newPath = item.containerDir() + u'/' + job.proposed;
    if (job.proposed.isEmpty()) {
        job.kind = Job::Kind::Blank;
    } else if (!ProposedName::problem(job.proposed).isEmpty()) {
        job.kind = Job::Kind::NotAName;
    } else if (job.oldPath == job.newPath) {
        job.kind = Job::Kind::Unchanged;
    } else if (sameWhenLowered(job.oldPath, job.newPath)) {
        // A case-insensitive volume sees one name: go through a unique one.
        // The unique last component of QXLocalPaths::tempFile(), without the
        // temporary folder that would be cut off again.
        job.kind = Job::Kind::ViaTemp;
        job.tmp = joinPath(folderOf(job.oldPath), QXLocalPaths::uuid());
    } else {
        job.kind = Job::Kind::Rename;
    }
    if (job.kind == Job::Kind::Rename || job.kind == Job::Kind::ViaTemp) {
        job.oldNative = FileMover::nativePath(job.oldPath);
        job.newNative = FileMover::nativePath(job.newPath);
        job.tmpNative = FileMover::nativePath(job.tmp);
        job.oldField = RenameJournal::encodeField(job.oldNative);
        job.newField = RenameJournal::encodeField(job.newNative);
        job.tmpField = RenameJournal::encodeField(job.tmpNative);
    }
    return job;
}

// Back on the commit's thread, in list order: the log, the batch, and a
// second try when the target was taken.
void CommitRunner::finish(Job& job, Lane& lane) {
    QXFileItem& item = *m_files[job.index];
    switch (job.kind) {
    case Job::Kind::Blank:
        log(lane, QStringLiteral("Unable to rename %1 - new filename is blank").arg(job.oldPath));
        fail(item);
        return;
    case Job::Kind::NotAName:
        log(lane, QStringLiteral("Unable to rename %1 - new filename \"%2\" is not a file name: %3")
                      .arg(job.oldPath, job.proposed, ProposedName::problem(job.proposed)));
        fail(item);
        return;
    case Job::Kind::Unchanged:
        succeeded(job.index, job.oldPath, job.newPath, job.proposed);
        return;
    case Job::Kind::ViaTemp:
        log(lane, QStringLiteral("Creating temp file %1 for %2").arg(job.tmp, job.oldPath));
        if (job.error.isEmpty()) {
            succeeded(job.index, job.oldPath, job.newPath, job.proposed);
            return;
        }
        if (job.tempFailed) {
            fail(item);
            log(lane, QStringLiteral("Unable to assign temporary name to old file %1. %2")
                          .arg(job.oldPath, job.error));
        } else { // two placeholders for three values: the description is not shown
            fail(item, QStringLiteral("left under the temporary name %1").arg(job.tmp));
            log(lane, QStringLiteral("Unable to move to %1. %2").arg(job.tmp, job.newPath));
        }
        return;
    case Job::Kind::Rename:
        break;
    }
    // The move itself tells whether something stands at the new name (it never
    // replaces it), which spares a look-up per file; the rules for an existing
    // target then apply as if it had been seen first.
    QString error = job.error;
    if (!error.isEmpty() && (job.code == EEXIST || FileMover::exists(job.newPath))) {
        // A file that is gone pushes nothing aside: its new name may well be
        // the file itself, renamed by an earlier run.
        if (!FileMover::exists(job.oldPath)) {
            error = FileMover::errorText(ENOENT);
        } else {
            if (!clearTheWay(item, job.newPath, lane)) return;
            error = move(RenameJournal::Kind::Rename, job.oldPath, job.newPath);
        }
    }
    if (!error.isEmpty()) {
        fail(item);
        log(lane, QStringLiteral("Unable to rename file %1 to %2. %3")
                      .arg(job.oldPath, job.newPath, error));
        return;
    }
    succeeded(job.index, job.oldPath, job.newPath, job.proposed);
}

void CommitRunner::succeeded(int index, const QString& oldPath, const QString& newPath,
                             const QString& newName) {
    QXFileItem& item = *m_files[index];
    // Re-pointing to the same folder changes nothing; skip the walk over the list.
    if (item.isDir() && oldPath != newPath) m_doc.updateFilesInFolder(oldPath, newPath);
    item.setFileName(newName); // synchronize, with the name already built
    if (oldPath == newPath) return;
    m_doc.noteItemPathChanged(&item, oldPath, index);
    ++m_renamed;
}

void CommitRunner::fail(const QXFileItem& item, const QString& note) {
    const QString path = item.fullPath();
    const QString name = QXFileItem::lastPathComponent(path);
    std::lock_guard lock(m_resultsMutex);
    m_failed.append(name);
    QString where = note;
    // The item took the dated name of a move aside that failed: its file never left.
    if (where.isEmpty() && !m_asideFailedAt.isEmpty()) {
        if (const auto it = m_asideFailedAt.constFind(path); it != m_asideFailedAt.constEnd())
            where = QStringLiteral("still %1: it could not be moved aside").arg(*it);
    }
    m_failureLines.append(where.isEmpty() ? name : name + QStringLiteral(" (") + where + u')');
}

void CommitRunner::reportFailures() {
    QString text;
    if (m_unrecorded) {
        text = m_journal.error() + QStringLiteral("\n\n");
        text += m_journal.path().isEmpty()
                    ? QStringLiteral("Nothing was renamed: no file is renamed without a journal "
                                     "that can undo it.")
                    : QStringLiteral("Renaming stopped before the next file. Files renamed so "
                                     "far: %1, recorded in the journal %2, which can undo them.")
                          .arg(m_renamed.load())
                          .arg(m_journal.path());
        if (!m_failed.isEmpty()) text += QStringLiteral("\n\n");
    }
    if (!m_failed.isEmpty())
        text += QStringLiteral("The following files were not renamed:\n\n") +
                m_failureLines.join(u'\n');
    const QString message = !m_unrecorded ? QStringLiteral("Some files could not be renamed")
                            : m_journal.path().isEmpty()
                                ? QStringLiteral("The rename journal could not be created")
                                : QStringLiteral("The rename journal could not be written");
    m_doc.view().alert({message, text, QString(), QString(), QString(),
                        AlertRequest::Parent::ProgressSheet, true});
}

bool MyDocument::copyFiles() {
    {
        QMutexLocker lock(&m_commitMutex);
        m_failedNames.clear();
        m_journalPath.clear();
        m_commitSummary = {};
    }
    {
        QMutexLocker lock(&m_mutex);
        m_indexStale = true;
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
        m_commitSummary = {};
    }
    startProgress();
    const bool ok = runCommitTask(selectedTag(), dictionaryFromSettings());
    m_previews->forgetComplete();
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

MyDocument::CommitSummary MyDocument::lastCommitSummary() const {
    QMutexLocker lock(&m_commitMutex);
    return m_commitSummary;
}