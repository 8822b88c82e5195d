#pragma once

// The commit's working parts, shared by its sources: Commit.cpp (the run and
// its reports), CommitMover.cpp (the mover thread) and ConflictActions.cpp
// (what happens to a file standing at a new name).
#include "MyDocument.h"
#include "QXLog.h"
#include "RenameJournal.h"

#include <QHash>
#include <QStringList>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

inline QString joinPath(const QString& dir, const QString& name) {
    if (dir.endsWith(u'/')) return dir + name;
    return dir + u'/' + name;
}

inline QString folderOf(const QString& path) {
    return QXFileItem::deletingLastPathComponent(path);
}

// One run of copyFiles: the failed names, the journal, and the step for each item.
//
// The moves run on a second thread, up to a few hundred files ahead of the
// bookkeeping: planning each name and updating the batch then overlaps the
// system calls, which on a large sequence are most of the time. The order of
// the moves is the list order all the same. Whatever is out of the ordinary
// stops the mover: a failed move (an existing target is cleared out of the way
// here, in order, and the move tried again), a folder (renaming it re-points
// the items inside, so no later plan is made before it is done) and a cancel.
//
// With more than one job and items in more than one lane (CommitLanes), the
// lanes run on a pool of workers instead, each lane its items in list order,
// planning, moving and finishing them itself: on a file server the waits of
// several folders then overlap. The journal, the failure list and the
// counters are shared (guarded below); the log lines go out a lane's run at
// a time, and the progress is passed on by the commit's own thread.
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
        enum class Kind { Blank, NotAName, Unchanged, Rename, ViaTemp };
        int index = 0;
        Kind kind = Kind::Unchanged;
        QString oldPath, newPath, proposed, tmp;
        QByteArray oldNative, newNative, tmpNative; // the same paths, encoded for the system
        QByteArray oldField, newField, tmpField;    // and for the journal
        // Filled in by the mover.
        bool cancelled = false;
        bool unrecorded = false; // the journal could not take its move: not made, and the end
        QString error;           // the failed step's description; empty: all went well
        int code = 0;            // its errno value
        bool tempFailed = false; // ViaTemp: the first step failed (else the second)
        bool stopsMover() const { return cancelled || unrecorded || !error.isEmpty(); }
    };
    // What one thread works through: the whole list (one mover) or a lane.
    struct Lane {
        QList<int> items;     // in list order
        QStringList logLines; // not yet handed to the log
    };
    Job plan(int index) const;
    qsizetype executeRun(QList<Job>& run);
    void finish(Job& job, Lane& lane);
    bool clearTheWay(QXFileItem& item, const QString& newPath, Lane& lane);
    void succeeded(int index, const QString& oldPath, const QString& newPath,
                   const QString& newName);
    // A file not renamed; note: where its file is when not under that name.
    void fail(const QXFileItem& item, const QString& note = QString());
    void reportFailures();
    // Records the move in the journal, makes it, and records how it went.
    // When the journal cannot take it, nothing moves and the run stops.
    QString move(RenameJournal::Kind kind, const QString& from, const QString& to,
                 const QString& finalPath = QString(), int* errorCode = nullptr);
    // Records a step before it is made; 0 when the journal cannot take it,
    // which stops the run (m_unrecorded) before anything else moves.
    qint64 record(RenameJournal::Kind kind, const QString& from, const QString& to,
                  const QString& finalPath = QString());
    // The journal, created at its first use; call with m_journalMutex held.
    RenameJournal& journalLocked();
    void markDone(qint64 n, const QString& where = QString());
    void markFailed(qint64 n, const QString& error);
    // A thread's log lines go to the log a chunk of files at a time: one
    // hand-over per line kept the log's writer waking up for every file.
    static void log(Lane& lane, const QString& line) { lane.logLines.append(line); }
    static void flushLog(Lane& lane) {
        if (lane.logLines.isEmpty()) return;
        QXLog::appendLogs(lane.logLines);
        lane.logLines.clear();
    }
    bool finishRun(); // the journal's end, the summary and the reports

    // The lanes (CommitLaneRunner.cpp): false when the list has one lane only.
    bool runLanes(int jobs);
    void runLane(Lane& lane);

    // The mover thread and its two queues. While the mover is stopped (after
    // a job that stops it) this thread may use the journal itself.
    void submit(QList<Job>& jobs);
    QList<Job> takeFinished(int wanted);
    void resumeMover(); // drops the jobs still queued
    void stopMover();
    void moverMain();

    MyDocument& m_doc;
    FileList m_files;
    Lane m_wholeList; // the one mover's
    // The lanes' proposed names, worked out once (a commit does not change them).
    QStringList m_proposed;
    std::atomic<bool> m_cancelled{false};
    bool m_lanes = false; // set before the lanes' threads start

    // Standard primitives rather than Qt's: the thread sanitizer sees through them.
    std::mutex m_journalMutex; // guards the journal
    RenameJournal m_journal;
    bool m_journalTried = false;
    std::atomic<bool> m_unrecorded{false}; // the journal failed: every thread stops there

    std::mutex m_resultsMutex;  // guards the results below
    QStringList m_failed;       // in the order of failure
    QStringList m_failureLines; // m_failed, each with its note
    QList<MyDocument::MovedAside> m_asides;
    QHash<QString, QString> m_asideFailedAt; // dated path -> where the file stayed
    std::atomic<int> m_renamed{0};           // counted without the lock: every file adds one

    // The lanes' progress, passed on to the view by the commit's thread.
    std::mutex m_progressMutex;
    std::condition_variable m_progressed;
    int m_handled = 0;   // guarded by m_progressMutex
    int m_lanesLeft = 0; // guarded by m_progressMutex

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
