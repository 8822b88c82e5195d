// The mover thread: the moves themselves, announced in the journal in runs,
// while the commit's own thread keeps the batch up to date.
#include "CommitRunner.h"
#include "FileMover.h"

#include <QVarLengthArray>

#include <algorithm>
#include <utility>

// On the mover thread: the moves of a run of jobs, nothing else. They are
// announced in the journal with one write, then made in order until one
// fails or the commit is cancelled; the moves announced and not reached are
// withdrawn before anything else moves. Returns how many jobs were dealt with
// (the rest are planned again).
qsizetype CommitRunner::executeRun(QList<Job>& run) {
    const bool moves = std::any_of(run.cbegin(), run.cend(), [](const Job& job) {
        return job.kind == Job::Kind::Rename || job.kind == Job::Kind::ViaTemp;
    });
    struct Steps {
        qint64 first = 0, second = 0;
    };
    QVarLengthArray<Steps, 64> steps(run.size());
    bool recorded = !moves;
    if (moves) {
        // Other threads write between this thread's runs, never inside one.
        std::lock_guard lock(m_journalMutex);
        RenameJournal& j = journalLocked();
        for (qsizetype i = 0; i < run.size(); ++i) {
            const Job& job = run[i];
            if (job.kind == Job::Kind::Rename) {
                steps[i].first =
                    j.announce(RenameJournal::Kind::Rename, job.oldField, job.newField);
            } else if (job.kind == Job::Kind::ViaTemp) {
                steps[i].first =
                    j.announce(RenameJournal::Kind::Temp, job.oldField, job.tmpField, job.newField);
                steps[i].second =
                    j.announce(RenameJournal::Kind::FromTemp, job.tmpField, job.newField);
            }
        }
        // A journal that could not be created or written stops the commit at
        // its first move: a move it does not record could not be undone.
        recorded = j.flush();
        // Lanes stop at once. The one mover's jobs still to be finished were
        // made, so there the commit's thread stops when it reaches this run.
        if (!recorded && m_lanes) m_unrecorded = true;
    }

    // One step: made, and its outcome kept for the journal. A failure is
    // written at once; the "done" marks go with the run's last write. The
    // folder is held for this run only: between runs other moves may change
    // the folders above it.
    FileMover::Folder folder;
    QVarLengthArray<qint64, 64> made;
    const auto step = [this, &folder, &made](qint64 n, const QString& from, const QString& to,
                                             const QByteArray& nativeFrom,
                                             const QByteArray& nativeTo, int* code) {
        QString error = FileMover::move(from, to, nativeFrom, nativeTo, code, &folder);
        if (error.isEmpty())
            made.append(n);
        else
            markFailed(n, error);
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
        const bool moving = job.kind == Job::Kind::Rename || job.kind == Job::Kind::ViaTemp;
        // Another lane's journal write failed: nothing more moves anywhere.
        if (moving && (!recorded || m_unrecorded.load())) {
            job.unrecorded = true;
            break;
        }
        if (job.kind == Job::Kind::Rename) {
            job.error =
                step(s.first, job.oldPath, job.newPath, job.oldNative, job.newNative, &job.code);
        } else if (job.kind == Job::Kind::ViaTemp) {
            job.error =
                step(s.first, job.oldPath, job.tmp, job.oldNative, job.tmpNative, &job.code);
            job.tempFailed = !job.error.isEmpty();
            if (!job.tempFailed)
                job.error =
                    step(s.second, job.tmp, job.newPath, job.tmpNative, job.newNative, &job.code);
        }
        if (job.stopsMover()) break;
    }
    const qsizetype dealtWith = std::min(reached + 1, run.size());
    const bool notMade =
        reached < run.size() && (run[reached].cancelled || run[reached].unrecorded);
    if (moves) {
        std::lock_guard lock(m_journalMutex);
        for (const qint64 n : made)
            m_journal.done(n);
        if (reached < run.size() && run[reached].tempFailed)
            m_journal.withdraw(steps[reached].second);
        for (qsizetype i = notMade ? reached : dealtWith; i < run.size(); ++i) {
            m_journal.withdraw(steps[i].first);
            m_journal.withdraw(steps[i].second);
        }
        m_journal.flush();
    }
    run.resize(dealtWith);
    return dealtWith;
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
