// The task objects: timed runs with their timer thread, and background runs
// whose output arrives through a callback.
#include "QXTask.h"
#include "QXTaskDetail.h"

#include "QXConsole.h"
#include "QXException.h"
#include "QXLog.h"

#include <QFile>
#include <QStringDecoder>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

using namespace QXTaskDetail;

// Timed forms

namespace {
std::atomic<int> g_graceMilliseconds{2000};
}

int QXTask::terminateGraceMilliseconds() {
    return g_graceMilliseconds.load();
}

void QXTask::setTerminateGraceMilliseconds(int milliseconds) {
    g_graceMilliseconds.store(milliseconds < 0 ? 0 : milliseconds);
}

QXTask::QXTask() = default;

QXTask::~QXTask() {
    terminateAsyncTask();
    joinReaders();
    finishTimed();
}

void QXTask::installTask(const Process& process) {
    bool expired;
    {
        std::lock_guard lock(m_mutex);
        m_task = process;
        expired = m_timedOut;
    }
    // The timer fired before the child existed: its time is up all the same.
    if (expired) timeout();
}

void QXTask::setupTimeout(int seconds) {
    finishTimed();
    {
        std::lock_guard lock(m_mutex);
        m_timedOut = false;
        m_timerCancelled = false;
    }
    m_timer = std::thread(&QXTask::timerMain, this, seconds);
}

void QXTask::timerMain(int seconds) {
    std::unique_lock lock(m_mutex);
    if (m_timerWake.wait_for(lock, std::chrono::seconds(seconds),
                             [this] { return m_timerCancelled; }))
        return;
    m_timedOut = true;
    lock.unlock();
    timeout();
    // A child that ignores the request is killed once its grace has passed,
    // unless the call finishes first.
    lock.lock();
    if (m_timerWake.wait_for(lock, std::chrono::milliseconds(terminateGraceMilliseconds()),
                             [this] { return m_timerCancelled; }))
        return;
    if (m_task) m_task->kill();
}

void QXTask::timeout() {
    Process process;
    {
        std::lock_guard lock(m_mutex);
        process = m_task;
    }
    if (!process) return;
    // Not yet launched counts as running: terminate() then acts at launch.
    if (process->isLaunched() && !process->isRunning()) return;
    QXConsole::print(QStringLiteral("Task timed out. Terminating..."));
    QXLog::appendLog(
        QStringLiteral("Task %1 timed out. Terminating...").arg(process->launchPath()));
    process->terminate();
}

void QXTask::finishTimed() {
    {
        std::lock_guard lock(m_mutex);
        m_task.reset();
        m_timerCancelled = true;
    }
    // Woken rather than left to sleep out its time: the thread must not
    // outlive this object, and its later action would find no task anyway.
    m_timerWake.notify_all();
    if (m_timer.joinable()) m_timer.join();
}

template <typename Result, typename Op> Result QXTask::runTimed(double timeout, Op op) {
    setupTimeout(clampSeconds(timeout));
    Result result = op([this](const Process& p) { installTask(p); });
    finishTimed();
    return result;
}

void QXTask::runTask(const QString& path, const QStringList& arguments, double timeout) {
    QXTask t;
    t.runTimed<bool>(timeout,
                     [&](const ProcessHook& hook) { return runTask(path, arguments, hook); });
}

int QXTask::terminationCodeFromTask(const QString& path, const QStringList& arguments,
                                    double timeout) {
    QXTask t;
    return t.runTimed<int>(timeout, [&](const ProcessHook& hook) {
        return terminationCodeFromTask(path, arguments, hook);
    });
}

std::optional<QByteArray> QXTask::dataFromTask(const QString& path, const QStringList& arguments,
                                               double timeout) {
    QXTask t;
    return t.runTimed<std::optional<QByteArray>>(
        timeout, [&](const ProcessHook& hook) { return dataFromTask(path, arguments, hook); });
}

QString QXTask::stringFromTask(const QString& path, const QStringList& arguments, Encoding encoding,
                               double timeout) {
    const std::optional<QByteArray> data = dataFromTask(path, arguments, timeout);
    if (!data) return QStringLiteral("");
    return decode(*data, encoding);
}

QString QXTask::stringFromTask(const QString& path, const QStringList& arguments, double timeout) {
    return stringFromTask(path, arguments, Encoding::ASCII, timeout);
}

// ---------------------------------------------------------------------------
// Background run

QXTask::Process QXTask::task() const {
    std::lock_guard lock(m_mutex);
    return m_task;
}

void QXTask::joinReaders() {
    std::vector<std::thread> done;
    {
        std::lock_guard lock(m_mutex);
        for (auto it = m_readers.begin(); it != m_readers.end();) {
            // A reader cannot join itself; it stays until a later call or the destructor.
            if (it->get_id() == std::this_thread::get_id()) {
                ++it;
                continue;
            }
            done.push_back(std::move(*it));
            it = m_readers.erase(it);
        }
    }
    for (std::thread& t : done)
        t.join();
}

void QXTask::asyncDataFromTask(const QString& path, const QStringList& arguments,
                               DataCallback delegate, const QVariant& object) {
    terminateAsyncTask();
    joinReaders();

    int outPipe[2] = {-1, -1};
    const int wake = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    if (wake < 0 || ::pipe2(outPipe, O_CLOEXEC) != 0) {
        const int err = errno;
        if (wake >= 0) ::close(wake);
        reportLaunchFailure(path, errnoText(err),
                            "-[QXTask asyncDataFromTask:arguments:delegate:selector:object:]");
        return;
    }
    auto process = std::make_shared<QXTaskProcess>(path, arguments);
    std::lock_guard lock(m_mutex);
    m_delegate = std::move(delegate);
    m_object = object;
    m_task = process;
    m_wakeFd = wake;
    const quint64 runId = ++m_runId;
    m_readers.emplace_back(&QXTask::launchAsyncTask, this, process,
                           AsyncPipes{outPipe[0], outPipe[1], wake}, runId);
}

void QXTask::launchAsyncTask(Process process, AsyncPipes pipes, quint64 runId) {
    {
        std::lock_guard lock(m_mutex);
        if (m_runId != runId || !m_task) process.reset();
    }
    if (!process) {
        QXLog::appendLog(QStringLiteral("Unable to launch async task - no task set"));
    } else {
        QString error;
        QXTaskProcess::Wiring wiring;
        wiring.out = pipes.write;
        if (!process->launch(wiring, &error))
            reportLaunchFailure(process->launchPath(), error, "-[QXTask launchAsyncTask]");
    }
    closeFd(pipes.write);

    if (process && process->isLaunched()) {
        struct pollfd fds[2] = {{pipes.read, POLLIN, 0}, {pipes.wake, POLLIN, 0}};
        for (;;) {
            const int n = ::poll(fds, 2, -1);
            if (n < 0) {
                if (errno == EINTR) continue;
                break;
            }
            if (fds[1].revents != 0) break; // terminateAsyncTask: no more deliveries
            if (fds[0].revents == 0) continue;
            QByteArray chunk;
            if (!readSome(pipes.read, chunk)) break;
            asyncTaskReturnData(chunk, runId);
        }
    }
    // End of file (or a launch that failed): one empty delivery ends the run,
    // so a caller waiting for it is never left hanging.
    if (process) asyncTaskReturnData(QByteArray(), runId);

    closeFd(pipes.read);
    {
        std::lock_guard lock(m_mutex);
        if (m_wakeFd == pipes.wake) m_wakeFd = -1;
    }
    closeFd(pipes.wake);
    if (process) process->terminateAndReap(terminateGraceMilliseconds());
}

void QXTask::asyncTaskReturnData(const QByteArray& data, quint64 runId) {
    DataCallback delegate;
    QVariant object;
    {
        std::lock_guard lock(m_mutex);
        if (runId != m_runId) return; // a later run has taken over
        delegate = m_delegate;
        object = m_object;
    }
    // Called without the lock, so the callback may call terminateAsyncTask().
    if (delegate) delegate(data, *this, object);
    if (data.isEmpty()) terminateRun(runId);
}

void QXTask::terminateAsyncTask() {
    terminateRun(0);
}

void QXTask::terminateRun(quint64 runId) {
    Process process;
    {
        std::lock_guard lock(m_mutex);
        // The end of an earlier run must not stop one its callback has started.
        if (runId != 0 && runId != m_runId) return;
        m_delegate = nullptr;
        m_object = QVariant();
        // Only a background run owns the task field here; a timed call clears its own.
        if (m_wakeFd >= 0) {
            const uint64_t one = 1;
            [[maybe_unused]] const ssize_t w = ::write(m_wakeFd, &one, sizeof one);
        }
        process = std::move(m_task);
        m_task.reset();
    }
    if (process) process->terminate();
}
