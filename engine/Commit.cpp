// The commit: the task in commit mode, then every changed name moved on disk,
// each move recorded in the rename journal before it is made.
#include "FileMover.h"
#include "MyDocument.h"
#include "Preferences.h"
#include "PreviewPipeline.h"
#include "QXDate.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "RenameJournal.h"

#include <QDateTime>
#include <QVarLengthArray>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <mutex>
#include <thread>
#include <utility>

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

// One run of copyFiles: the failed names, the journal, and the step for each item.
//
// The moves run on a second thread, up to a few hundred files ahead of the
// bookkeeping: planning each name and updating the batch then overlaps the
// system calls, which on a large sequence are most of the time. The order of
// the moves is the list order all the same. Whatever is out of the ordinary
// stops the mover: a failed move (an existing target is cleared out of the way
// here, in order, and the move tried again), a folder (renaming it re-points
// the items inside, so no later plan is made before it is done) and a cancel.
class CommitRunner {
public:
    explicit CommitRunner(MyDocument& doc) : m_doc(doc) {}
    ~CommitRunner() { stopMover(); }
    CommitRunner(const CommitRunner&) = delete;
    CommitRunner& operator=(const CommitRunner&) = delete;
    bool run();

private:
    // What one item needs, worked out before its turn.
    struct Job {
        enum class Kind { Blank, Unchanged, Rename, ViaTemp };
        int index = 0;
        Kind kind = Kind::Unchanged;
        QString oldPath, newPath, proposed, tmp;
        QByteArray oldNative, newNative, tmpNative; // the same paths, encoded for the system
        QByteArray oldField, newField, tmpField;    // and for the journal
        // Filled in by the mover.
        bool cancelled = false;
        QString error;           // the failed step's description; empty: all went well
        int code = 0;            // its errno value
        bool tempFailed = false; // ViaTemp: the first step failed (else the second)
        bool stopsMover() const { return cancelled || !error.isEmpty(); }
    };
    Job plan(int index) const;
    qsizetype executeRun(QList<Job>& run);
    void finish(Job& job);
    bool clearTheWay(QXFileItem& item, const QString& newPath);
    void succeeded(int index, const QString& oldPath, const QString& newPath,
                   const QString& newName);
    void fail(const QXFileItem& item) {
        m_failed.append(QXFileItem::lastPathComponent(item.fullPath()));
    }
    // Records the move in the journal, makes it, and records how it went.
    QString move(RenameJournal::Kind kind, const QString& from, const QString& to,
                 const QString& finalPath = QString(), int* errorCode = nullptr);
    RenameJournal& journal();
    // This thread's log lines go to the log a chunk of files at a time: one
    // hand-over per line kept the log's writer waking up for every file.
    void log(const QString& line) { m_logLines.append(line); }
    void flushLog() {
        if (m_logLines.isEmpty()) return;
        QXLog::appendLogs(m_logLines);
        m_logLines.clear();
    }

    // The mover thread and its two queues. While the mover is stopped (after
    // a job that stops it) this thread may use the journal itself.
    void submit(QList<Job>& jobs);
    QList<Job> takeFinished(int wanted);
    void resumeMover(); // drops the jobs still queued
    void stopMover();
    void moverMain();

    MyDocument& m_doc;
    FileList m_files;
    RenameJournal m_journal;
    bool m_journalTried = false;
    QStringList m_failed;
    int m_movedAside = 0;
    QStringList m_logLines;

    // Standard primitives rather than Qt's: the thread sanitizer sees through them.
    std::mutex m_queueMutex;
    std::condition_variable m_jobQueued;
    std::condition_variable m_jobFinished;
    QList<Job> m_queued;   // guarded by m_queueMutex
    QList<Job> m_finished; // guarded by m_queueMutex
    int m_wanted = 0;      // how many finished jobs the waiting commit thread wants; 0: not waiting
    bool m_moverStopped = false;
    bool m_quit = false;
    std::thread m_mover;
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
    m_files = m_doc.fileArray();
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
    while (!cancelled && (next < count || inFlight > 0)) {
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
            if (job.cancelled) {
                cancelled = true;
                break;
            }
            const bool stopped = job.stopsMover();
            if (stopped) {
                // The mover waits; the jobs after this one are planned again
                // once it is dealt with.
                next = job.index + 1;
                inFlight = 0;
            }
            finish(job);
            if (m_files[job.index]->isDir()) atFolder = false;
            m_doc.incrementProgress();
            if (stopped) {
                resumeMover();
                break;
            }
        }
        flushLog();
    }
    stopMover();
    flushLog();
    if (m_journal.isOpen()) m_journal.complete();
    {
        QMutexLocker lock(&m_doc.m_commitMutex);
        m_doc.m_failedNames = m_failed;
        m_doc.m_journalPath = m_journal.path();
        m_doc.m_commitSummary = {!cancelled, m_movedAside};
    }
    if (m_failed.isEmpty()) return true;
    m_doc.view().alert(
        {QStringLiteral("Some files could not be renamed"),
         QStringLiteral("The following files were not renamed:\n\n") + m_failed.join(u'\n'),
         QString(), QString(), QString(), AlertRequest::Parent::ProgressSheet, true});
    return false;
}

CommitRunner::Job CommitRunner::plan(int index) const {
    const QXFileItem& item = *m_files[index];
    Job job;
    job.index = index;
    job.oldPath = item.fullPath();
    job.proposed = item.proposedFileName();
    job.newPath = item.containerDir() + u'/' + job.proposed;
    if (job.proposed.isEmpty()) {
        job.kind = Job::Kind::Blank;
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

// On the mover thread: the moves of a run of jobs, nothing else. They are
// announced in the journal with one write, then made in order until one
// fails or the commit is cancelled; the moves announced and not reached are
// withdrawn before anything else moves. Returns how many jobs were dealt with
// (the rest are planned again).
qsizetype CommitRunner::executeRun(QList<Job>& run) {
    const bool moves = std::any_of(run.cbegin(), run.cend(), [](const Job& job) {
        return job.kind == Job::Kind::Rename || job.kind == Job::Kind::ViaTemp;
    });
    // No journal for a commit that moves nothing.
    RenameJournal& j = moves ? journal() : m_journal;
    struct Steps {
        qint64 first = 0, second = 0;
    };
    QVarLengthArray<Steps, 64> steps(run.size());
    for (qsizetype i = 0; i < run.size(); ++i) {
        const Job& job = run[i];
        if (job.kind == Job::Kind::Rename) {
            steps[i].first = j.announce(RenameJournal::Kind::Rename, job.oldField, job.newField);
        } else if (job.kind == Job::Kind::ViaTemp) {
            steps[i].first =
                j.announce(RenameJournal::Kind::Temp, job.oldField, job.tmpField, job.newField);
            steps[i].second = j.announce(RenameJournal::Kind::FromTemp, job.tmpField, job.newField);
        }
    }
    j.flush();

    // One step: made, and marked in the journal. The folder is held for this
    // run only: between runs the commit's thread may move folders itself.
    FileMover::Folder folder;
    const auto step = [&j, &folder](qint64 n, const QString& from, const QString& to,
                                    const QByteArray& nativeFrom, const QByteArray& nativeTo,
                                    int* code) {
        QString error = FileMover::move(from, to, nativeFrom, nativeTo, code, &folder);
        if (error.isEmpty())
            j.done(n);
        else
            j.failed(n, error);
        return error;
    };
    qsizetype reached = 0;
    for (; reached < run.size(); ++reached) {
        Job& job = run[reached];
        if (m_doc.processingCancelled()) {
            job.cancelled = true;
            break;
        }
        const Steps& s = steps[reached];
        if (job.kind == Job::Kind::Rename) {
            job.error =
                step(s.first, job.oldPath, job.newPath, job.oldNative, job.newNative, &job.code);
        } else if (job.kind == Job::Kind::ViaTemp) {
            job.error =
                step(s.first, job.oldPath, job.tmp, job.oldNative, job.tmpNative, &job.code);
            job.tempFailed = !job.error.isEmpty();
            if (job.tempFailed)
                j.withdraw(s.second);
            else
                job.error =
                    step(s.second, job.tmp, job.newPath, job.tmpNative, job.newNative, &job.code);
        }
        if (job.stopsMover()) break;
    }
    const qsizetype dealtWith = std::min(reached + 1, run.size());
    const bool cancelled = reached < run.size() && run[reached].cancelled;
    for (qsizetype i = cancelled ? reached : dealtWith; i < run.size(); ++i) {
        j.withdraw(steps[i].first);
        j.withdraw(steps[i].second);
    }
    j.flush();
    run.resize(dealtWith);
    return dealtWith;
}

// Back on the commit's thread, in list order: the log, the batch, and a
// second try when the target was taken.
void CommitRunner::finish(Job& job) {
    QXFileItem& item = *m_files[job.index];
    switch (job.kind) {
    case Job::Kind::Blank:
        log(QStringLiteral("Unable to rename %1 - new filename is blank").arg(job.oldPath));
        fail(item);
        return;
    case Job::Kind::Unchanged:
        succeeded(job.index, job.oldPath, job.newPath, job.proposed);
        return;
    case Job::Kind::ViaTemp:
        log(QStringLiteral("Creating temp file %1 for %2").arg(job.tmp, job.oldPath));
        if (job.error.isEmpty()) {
            succeeded(job.index, job.oldPath, job.newPath, job.proposed);
            return;
        }
        fail(item);
        if (job.tempFailed)
            log(QStringLiteral("Unable to assign temporary name to old file %1. %2")
                    .arg(job.oldPath, job.error));
        else // two placeholders for three values: the description is not shown
            log(QStringLiteral("Unable to move to %1. %2").arg(job.tmp, job.newPath));
        return;
    case Job::Kind::Rename:
        break;
    }
    // The move itself tells whether something stands at the new name (it never
    // replaces it), which spares a look-up per file; the rules for an existing
    // target then apply as if it had been seen first.
    QString error = job.error;
    if (!error.isEmpty() && (job.code == EEXIST || FileMover::exists(job.newPath))) {
        if (!clearTheWay(item, job.newPath)) return;
        error = move(RenameJournal::Kind::Rename, job.oldPath, job.newPath);
    }
    if (!error.isEmpty()) {
        fail(item);
        log(QStringLiteral("Unable to rename file %1 to %2. %3")
                .arg(job.oldPath, job.newPath, error));
        return;
    }
    succeeded(job.index, job.oldPath, job.newPath, job.proposed);
}

void CommitRunner::submit(QList<Job>& jobs) {
    if (jobs.isEmpty()) return;
    if (!m_mover.joinable()) m_mover = std::thread([this] { moverMain(); });
    std::lock_guard lock(m_queueMutex);
    // Jobs are large: the lists change hands whole where they can.
    if (m_queued.isEmpty())
        m_queued.swap(jobs);
    else
        m_queued.append(std::move(jobs));
    jobs.clear();
    m_jobQueued.notify_one();
}

// Waits for at least `wanted` finished jobs, or fewer when the mover stopped
// or has nothing left to do.
QList<CommitRunner::Job> CommitRunner::takeFinished(int wanted) {
    std::unique_lock lock(m_queueMutex);
    m_wanted = std::max(wanted, 1);
    m_jobFinished.wait(lock, [this] {
        return m_finished.size() >= m_wanted || m_moverStopped || m_queued.isEmpty();
    });
    m_jobFinished.wait(lock, [this] { return !m_finished.isEmpty(); });
    m_wanted = 0;
    return std::exchange(m_finished, {});
}

void CommitRunner::resumeMover() {
    std::lock_guard lock(m_queueMutex);
    m_queued.clear();
    m_moverStopped = false;
}

void CommitRunner::stopMover() {
    if (!m_mover.joinable()) return;
    {
        std::lock_guard lock(m_queueMutex);
        m_quit = true;
        m_jobQueued.notify_one();
    }
    m_mover.join();
}

void CommitRunner::moverMain() {
    // Moves announced with one journal write: enough to make the write cheap,
    // few enough that the "done" marks follow the disk closely.
    constexpr qsizetype runLength = 64;
    std::unique_lock lock(m_queueMutex);
    for (;;) {
        m_jobQueued.wait(lock,
                         [this] { return m_quit || (!m_moverStopped && !m_queued.isEmpty()); });
        if (m_quit) return;
        QList<Job> run;
        if (m_queued.size() <= runLength) {
            run.swap(m_queued);
        } else {
            run = QList<Job>(std::make_move_iterator(m_queued.begin()),
                             std::make_move_iterator(m_queued.begin() + runLength));
            m_queued.remove(0, runLength);
        }
        lock.unlock();
        const qsizetype dealtWith = executeRun(run);
        lock.lock();
        m_moverStopped = run[dealtWith - 1].stopsMover();
        if (m_finished.isEmpty())
            m_finished.swap(run);
        else
            m_finished.append(std::move(run));
        if (m_wanted > 0 && (m_finished.size() >= m_wanted || m_moverStopped || m_queued.isEmpty()))
            m_jobFinished.notify_one();
    }
}

// Moves whatever stands at newPath out of the way; false when item failed.
bool CommitRunner::clearTheWay(QXFileItem& item, const QString& newPath) {
    flushLog(); // the lines of the files before this one go first
    if (const FileItemPtr inWay = m_doc.fileInQueue(newPath)) {
        QXLog::appendLog(
            QStringLiteral("Proposed file %1 exists, renaming old file...").arg(newPath));
        const QString dated = datedName(newPath);
        // The batch item follows its file to the dated name, even if the move then fails.
        inWay->setFileName(QXFileItem::lastPathComponent(dated));
        ++m_movedAside;
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

void CommitRunner::succeeded(int index, const QString& oldPath, const QString& newPath,
                             const QString& newName) {
    QXFileItem& item = *m_files[index];
    // Re-pointing to the same folder changes nothing; skip the walk over the list.
    if (item.isDir() && oldPath != newPath) m_doc.updateFilesInFolder(oldPath, newPath);
    item.setFileName(newName); // synchronize, with the name already built
    if (oldPath != newPath) m_doc.noteItemPathChanged(&item, oldPath, index);
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
