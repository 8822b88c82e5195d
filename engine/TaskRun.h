#pragma once

#include <QMutex>
#include <QString>
#include <atomic>
#include <chrono>
#include <exception>
#include <functional>
#include <optional>

// Why a task returned false, for a front end to show: the command line prints
// it, the window shows it beside the setting at fault.
struct TaskFailure {
    QString message;    // one sentence, in the user's words
    QString settingKey; // the settings key at fault ("find", "prefix", ...), or empty
    int position = -1;  // where in that setting's text it went wrong (UTF-16), or -1

    bool operator==(const TaskFailure&) const = default;
};

// What the batches of one preview share across threads: the time that slow
// regular-expression matches may take together, and the first failure a
// batch reported. A thread takes part through a Scope; tasks reach it with
// current() and work without one too (outside a preview, nothing is kept).
class TaskRun {
public:
    using Nanoseconds = std::chrono::nanoseconds;
    using Clock = std::function<Nanoseconds()>; // monotonic; injectable for tests

    explicit TaskRun(Nanoseconds matchBudget = kDefaultMatchBudget, Clock clock = {});

    static constexpr Nanoseconds kDefaultMatchBudget = std::chrono::seconds(1);

    // The run the calling thread works for, or null.
    static TaskRun* current();
    class Scope {
    public:
        explicit Scope(TaskRun* run);
        ~Scope();
        Scope(const Scope&) = delete;
        Scope& operator=(const Scope&) = delete;

    private:
        TaskRun* m_previous;
    };

    Nanoseconds now() const;
    // Charges time spent in a slow match; false once the run's budget is spent.
    bool spend(Nanoseconds elapsed);
    Nanoseconds budget() const { return m_budget; }

    // Keeps the first failure reported.
    void fail(const TaskFailure& failure);
    std::optional<TaskFailure> failure() const;

    // Reports to the calling thread's run, if it has one.
    static void report(const TaskFailure& failure);
    // The failure an exception stands for (a bad pattern names its setting).
    static void reportException(const std::exception& e);
    // A text setting the task cannot work without was missing or empty.
    static void reportMissingSetting(const QString& key);

private:
    Nanoseconds m_budget;
    Clock m_clock;
    std::atomic<Nanoseconds::rep> m_spent{0};
    mutable QMutex m_mutex;
    std::optional<TaskFailure> m_failure;
};
