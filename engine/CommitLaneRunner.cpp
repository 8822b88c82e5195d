// The lanes of a commit on a pool of workers: each lane plans, moves and
// finishes its own items in list order, while the commit's thread passes the
// progress on to the view.
#include "CommitLanes.h"
#include "CommitRunner.h"

#include <algorithm>
#include <vector>

bool CommitRunner::runLanes(int jobs) {
    // One folder and no folder item, the usual sequence: one lane, known at once.
    const auto oneFolder = [this] {
        const QString first = m_files.isEmpty() ? QString() : m_files.first()->containerDir();
        return std::all_of(m_files.cbegin(), m_files.cend(), [&first](const FileItemPtr& f) {
            return !f->isDir() && f->containerDir() == first;
        });
    };
    if (oneFolder()) return false;
    QList<CommitLanes::Item> items;
    items.reserve(m_files.size());
    m_proposed.reserve(m_files.size());
    for (const FileItemPtr& f : m_files) {
        const QString dir = f->containerDir();
        m_proposed.append(f->proposedFileName());
        items.append({dir, f->fullPath(), dir + u'/' + m_proposed.last(), f->isDir()});
    }
    const QList<int> laneOf = CommitLanes::assign(items);
    const int laneCount =
        laneOf.isEmpty() ? 0 : *std::max_element(laneOf.cbegin(), laneOf.cend()) + 1;
    if (laneCount < 2) return false; // the one mover plans with m_proposed too
    std::vector<Lane> lanes(static_cast<size_t>(laneCount));
    for (int i = 0; i < laneOf.size(); ++i)
        lanes[static_cast<size_t>(laneOf[i])].items.append(i);

    // Lanes are taken in the order of their first item, one at a time per worker.
    const int workers = std::min(jobs, laneCount);
    m_lanes = true;
    std::atomic<int> nextLane{0};
    m_lanesLeft = workers;
    std::vector<std::thread> pool;
    pool.reserve(static_cast<size_t>(workers));
    for (int w = 0; w < workers; ++w) {
        pool.emplace_back([this, &lanes, &nextLane, laneCount] {
            // A lane taken after a stop stops before its first file.
            for (int l = nextLane++; l < laneCount; l = nextLane++)
                runLane(lanes[static_cast<size_t>(l)]);
            std::lock_guard lock(m_progressMutex);
            --m_lanesLeft;
            m_progressed.notify_one();
        });
    }

    // The view's progress calls stay on this thread, as with one mover.
    int reported = 0;
    std::unique_lock lock(m_progressMutex);
    for (;;) {
        m_progressed.wait(lock, [&] { return m_handled != reported || m_lanesLeft == 0; });
        const int handled = m_handled;
        const bool ended = m_lanesLeft == 0;
        lock.unlock();
        for (; reported < handled; ++reported)
            m_doc.incrementProgress();
        lock.lock();
        if (ended && reported == m_handled) break;
    }
    lock.unlock();
    for (std::thread& t : pool)
        t.join();
    return true;
}

// Runs of moves as the single mover makes them (announced in the journal with
// one write, then made), but planned and finished on this thread.
void CommitRunner::runLane(Lane& lane) {
    constexpr qsizetype runLength = 64;
    const qsizetype count = lane.items.size();
    qsizetype next = 0;
    QList<Job> run;
    while (next < count) {
        if (m_doc.processingCancelled()) {
            m_cancelled = true;
            break;
        }
        if (m_unrecorded.load()) break;
        run.clear();
        while (next + run.size() < count && run.size() < runLength) {
            const int index = lane.items[next + run.size()];
            run.append(plan(index));
            // A folder re-points the items after it: they are planned once it is renamed.
            if (m_files[index]->isDir()) break;
        }
        executeRun(run);
        int handled = 0;
        bool stop = false;
        for (Job& job : run) {
            // Only the last job of a run can be one that was not made.
            if (job.cancelled || job.unrecorded) {
                if (job.cancelled) m_cancelled = true;
                if (job.unrecorded) m_unrecorded = true;
                stop = true;
                break;
            }
            finish(job, lane);
            ++handled;
        }
        next += handled;
        flushLog(lane);
        {
            std::lock_guard lock(m_progressMutex);
            m_handled += handled;
            m_progressed.notify_one();
        }
        if (stop || m_unrecorded.load()) break;
    }
}
