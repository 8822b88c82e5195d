#pragma once

#include "TaskRun.h"

#include <QMutex>
#include <QThreadPool>
#include <atomic>
#include <optional>

class MyDocument;

// The document's preview queue: at most 12 batches at once. A newer request
// cancels what the queue still holds; batches already running finish.
class PreviewPipeline {
public:
    static constexpr int kMaxConcurrent = 12;
    static constexpr int kBatchSize = 50;

    explicit PreviewPipeline(MyDocument& doc);
    ~PreviewPipeline();

    // Computes every preview of the document; runs on the calling thread.
    void run();
    void cancelAll();
    void waitForDone();
    // The task whose previews the last run made in full (every batch run and
    // succeeded, nothing cancelled since); 0 when there is none.
    int completeTag() const { return m_completeTag.load(); }
    // The items changed (a commit renamed them): the previews no longer describe them.
    void forgetComplete();
    // Why the last run that was not superseded failed; nullopt when it succeeded.
    std::optional<TaskFailure> lastFailure() const;
    // The time slow regular-expression matches of one run may take together.
    void setMatchBudget(TaskRun::Nanoseconds budget, TaskRun::Clock clock = {});
    // Batch bounds for a list of count items: each batch holds 50 items but
    // the last, which holds the rest (50 to 99).
    static QList<QPair<int, int>> batches(int count);

private:
    MyDocument& m_doc;
    QThreadPool m_pool;
    std::atomic<quint64> m_generation{0};
    QMutex m_completeMutex; // a run's last check and a cancel do not interleave
    std::atomic<int> m_completeTag{0};
    mutable QMutex m_failureMutex; // guards the three below
    std::optional<TaskFailure> m_lastFailure;
    TaskRun::Nanoseconds m_matchBudget = TaskRun::kDefaultMatchBudget;
    TaskRun::Clock m_clock;
};
