#include "TaskRun.h"

#include "tasks/IcuRegex.h"

namespace {
thread_local TaskRun* t_current = nullptr;
} // namespace

TaskRun::TaskRun(Nanoseconds matchBudget, Clock clock)
    : m_budget(matchBudget), m_clock(std::move(clock)) {}

TaskRun* TaskRun::current() {
    return t_current;
}

TaskRun::Scope::Scope(TaskRun* run) : m_previous(t_current) {
    t_current = run;
}

TaskRun::Scope::~Scope() {
    t_current = m_previous;
}

TaskRun::Nanoseconds TaskRun::now() const {
    if (m_clock) return m_clock();
    return std::chrono::duration_cast<Nanoseconds>(
        std::chrono::steady_clock::now().time_since_epoch());
}

bool TaskRun::spend(Nanoseconds elapsed) {
    const auto total = m_spent.fetch_add(elapsed.count()) + elapsed.count();
    return total < m_budget.count();
}

void TaskRun::fail(const TaskFailure& failure) {
    QMutexLocker lock(&m_mutex);
    if (!m_failure) m_failure = failure;
}

std::optional<TaskFailure> TaskRun::failure() const {
    QMutexLocker lock(&m_mutex);
    return m_failure;
}

void TaskRun::report(const TaskFailure& failure) {
    if (TaskRun* run = current()) run->fail(failure);
}

void TaskRun::reportException(const std::exception& e) {
    if (!current()) return;
    if (const auto* regex = dynamic_cast<const IcuRegexError*>(&e)) {
        report(regex->failure());
    } else if (const auto* qx = dynamic_cast<const QXException*>(&e)) {
        report({qx->reason(), QString(), -1});
    } else {
        report({QString::fromUtf8(e.what()), QString(), -1});
    }
}

void TaskRun::reportMissingSetting(const QString& key) {
    report({QStringLiteral("the setting \"%1\" is missing or empty").arg(key), key, -1});
}
