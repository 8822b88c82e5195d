#include "QXTask.h"

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

namespace {

// The argument vector of a child, built before any process is started.
struct Argv {
    std::vector<QByteArray> storage;
    std::vector<char*> pointers;
    Argv(const QString& path, const QStringList& arguments) {
        storage.reserve(static_cast<size_t>(arguments.size()) + 1);
        storage.push_back(QFile::encodeName(path));
        for (const QString& a : arguments)
            storage.push_back(a.toUtf8());
        for (QByteArray& s : storage)
            pointers.push_back(s.data());
        pointers.push_back(nullptr);
    }
};

void closeFd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

QString errnoText(int err) {
    return QString::fromLocal8Bit(std::strerror(err));
}

void reportNotExecutable(const QString& path) {
    const QString line = QStringLiteral("Error: %1 is not executable").arg(path);
    QXConsole::print(line);
    QXLog::appendLog(line);
}

// A launch the checks let through but the system refused: logged as the
// framework logs exceptions, and the caller gets its failure value.
void reportLaunchFailure(const QString& path, const QString& reason, const char* method) {
    QXException::logException(QXException::invalidArgument(),
                              QStringLiteral("launch path %1 not accessible: %2").arg(path, reason),
                              method);
}

// Reads what is available on fd into buffer. False at end of file or error.
bool readSome(int fd, QByteArray& buffer) {
    char chunk[65536];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) {
            buffer.append(chunk, static_cast<qsizetype>(n));
            return true;
        }
        if (n < 0 && errno == EINTR) continue;
        return false;
    }
}

int clampSeconds(double timeout) {
    if (!(timeout > 0)) return 0; // negative and NaN fire at once
    if (timeout >= static_cast<double>(INT_MAX)) return INT_MAX;
    return static_cast<int>(std::trunc(timeout));
}

QString decode(const QByteArray& bytes, QXTask::Encoding encoding) {
    switch (encoding) {
    case QXTask::Encoding::ASCII:
        for (char c : bytes)
            if (static_cast<unsigned char>(c) > 0x7f) return QString();
        return QString::fromLatin1(bytes);
    case QXTask::Encoding::Latin1:
        return QString::fromLatin1(bytes);
    case QXTask::Encoding::UTF8: {
        QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
        QString text = decoder(bytes);
        return decoder.hasError() ? QString() : text;
    }
    }
    return QString();
}

} // namespace

// ---------------------------------------------------------------------------
// QXTaskProcess

QXTaskProcess::QXTaskProcess(QString launchPath, QStringList arguments)
    : m_launchPath(std::move(launchPath)), m_arguments(std::move(arguments)) {}

QXTaskProcess::~QXTaskProcess() {
    bool unreaped;
    {
        std::lock_guard lock(m_mutex);
        unreaped = m_pid > 0 && !m_reaped;
        if (unreaped) ::kill(m_pid, SIGKILL);
    }
    if (unreaped) waitUntilExit();
}

pid_t QXTaskProcess::processIdentifier() const {
    std::lock_guard lock(m_mutex);
    return m_pid;
}

bool QXTaskProcess::isLaunched() const {
    std::lock_guard lock(m_mutex);
    return m_pid > 0;
}

bool QXTaskProcess::isRunning() const {
    std::lock_guard lock(m_mutex);
    if (m_pid <= 0 || m_reaped) return false;
    // Look without reaping: only the waiter reaps, so the id stays ours.
    siginfo_t info;
    std::memset(&info, 0, sizeof info);
    if (::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT) != 0)
        return false;
    return info.si_pid == 0;
}

void QXTaskProcess::signalLocked(int sig) {
    if (m_pid > 0 && !m_reaped) ::kill(m_pid, sig);
}

void QXTaskProcess::terminate() {
    std::lock_guard lock(m_mutex);
    m_terminateRequested = true;
    signalLocked(SIGTERM);
}

void QXTaskProcess::kill() {
    std::lock_guard lock(m_mutex);
    signalLocked(SIGKILL);
}

bool QXTaskProcess::waitUntilExit() {
    std::lock_guard waiter(m_waitMutex);
    pid_t pid;
    {
        std::lock_guard lock(m_mutex);
        if (m_pid <= 0) return false;
        if (m_reaped) return true;
        pid = m_pid;
    }
    siginfo_t info;
    while (::waitid(P_PID, static_cast<id_t>(pid), &info, WEXITED | WNOWAIT) != 0 &&
           errno == EINTR) {
    }
    std::lock_guard lock(m_mutex);
    int status = 0;
    pid_t r;
    do {
        r = ::waitpid(pid, &status, 0);
    } while (r < 0 && errno == EINTR);
    m_reaped = true;
    if (r == pid) m_status = WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status);
    return true;
}

void QXTaskProcess::terminateAndReap(int graceMilliseconds) {
    terminate();
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(graceMilliseconds);
    while (isRunning() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    if (isRunning()) kill();
    waitUntilExit();
}

int QXTaskProcess::terminationStatus() const {
    std::lock_guard lock(m_mutex);
    return m_status;
}

bool QXTaskProcess::launch(const Wiring& wiring, QString* error) {
    Argv argv(m_launchPath, m_arguments);
    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attr;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attr);

    const int fds[3] = {wiring.in, wiring.out, wiring.err};
    for (int target = 0; target < 3; ++target) {
        if (fds[target] >= 0)
            posix_spawn_file_actions_adddup2(&actions, fds[target], target);
        else
            posix_spawn_file_actions_addopen(&actions, target, "/dev/null",
                                             target == 0 ? O_RDONLY : O_WRONLY, 0);
    }
    // Descriptors of other threads that lack close-on-exec stay out of the child.
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);

    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int sig : {SIGPIPE, SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGCHLD, SIGUSR1, SIGUSR2})
        sigaddset(&defaults, sig);
    posix_spawnattr_setsigmask(&attr, &none);
    posix_spawnattr_setsigdefault(&attr, &defaults);
    posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::lock_guard lock(m_mutex);
    pid_t pid = 0;
    const int rc = ::posix_spawn(&pid, argv.storage.front().constData(), &actions, &attr,
                                 argv.pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
    if (rc != 0) {
        if (error) *error = errnoText(rc);
        return false;
    }
    m_pid = pid;
    if (m_terminateRequested) ::kill(pid, SIGTERM);
    return true;
}

// ---------------------------------------------------------------------------
// Synchronous forms

bool QXTask::isExecutable(const QString& path) {
    if (path.isEmpty()) return false;
    const QByteArray native = QFile::encodeName(path);
    struct stat st;
    if (::stat(native.constData(), &st) != 0 || !S_ISREG(st.st_mode)) return false;
    return ::access(native.constData(), X_OK) == 0;
}

namespace {

// A pipe already holding the input for a child's standard input; returns its
// read end (or -1 for none). The bytes wait in the pipe until the child reads.
int inputPipe(const QByteArray& input, QString* error) {
    if (input.isNull()) return -1;
    int p[2];
    if (::pipe2(p, O_CLOEXEC | O_NONBLOCK) != 0) {
        *error = errnoText(errno);
        return -2;
    }
    qsizetype done = 0;
    while (done < input.size()) {
        const ssize_t n =
            ::write(p[1], input.constData() + done, static_cast<size_t>(input.size() - done));
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break; // full: the rest is dropped (see the header)
        done += n;
    }
    ::close(p[1]);
    // The child must see a blocking descriptor.
    ::fcntl(p[0], F_SETFL, ::fcntl(p[0], F_GETFL) & ~O_NONBLOCK);
    return p[0];
}

// Runs a child with its output on the null device and waits for it.
// nullopt when it could not be run.
std::optional<int> runAndWait(const QString& path, const QStringList& arguments,
                              const QXTask::ProcessHook& hook, const QByteArray& input,
                              const char* method) {
    if (!QXTask::isExecutable(path)) {
        reportNotExecutable(path);
        return std::nullopt;
    }
    QString error;
    int in = inputPipe(input, &error);
    if (in == -2) {
        reportLaunchFailure(path, error, method);
        return std::nullopt;
    }
    auto process = std::make_shared<QXTaskProcess>(path, arguments);
    if (hook) hook(process);
    QXTaskProcess::Wiring wiring;
    wiring.in = in;
    const bool launched = process->launch(wiring, &error);
    closeFd(in);
    if (!launched) {
        reportLaunchFailure(path, error, method);
        return std::nullopt;
    }
    process->waitUntilExit();
    return process->terminationStatus();
}

void startDetached(const QString& path, const QStringList& arguments, const QByteArray& input) {
    static const char method[] = "+[QXTask runTaskAndReturn:arguments:]";
    if (!QXTask::isExecutable(path)) {
        reportNotExecutable(path);
        return;
    }
    QString error;
    int in = inputPipe(input, &error);
    if (in == -2) {
        reportLaunchFailure(path, error, method);
        return;
    }
    // The child is started from a short-lived intermediate process so that it
    // is adopted by init: nobody has to wait for it and it never becomes a
    // zombie of ours. Between fork and exec only async-signal-safe calls.
    Argv argv(path, arguments);
    const int devNull = ::open("/dev/null", O_RDWR | O_CLOEXEC);
    if (devNull < 0) {
        closeFd(in);
        reportLaunchFailure(path, errnoText(errno), method);
        return;
    }
    const pid_t middle = ::fork();
    if (middle == 0) {
        const pid_t child = ::fork();
        if (child == 0) {
            sigset_t none;
            sigemptyset(&none);
            ::sigprocmask(SIG_SETMASK, &none, nullptr);
            struct sigaction dfl;
            std::memset(&dfl, 0, sizeof dfl);
            dfl.sa_handler = SIG_DFL;
            for (int sig : {SIGPIPE, SIGINT, SIGQUIT, SIGTERM, SIGHUP, SIGCHLD})
                ::sigaction(sig, &dfl, nullptr);
            ::dup2(in >= 0 ? in : devNull, 0);
            ::dup2(devNull, 1);
            ::dup2(devNull, 2);
            ::close_range(3, ~0U, 0);
            ::execve(argv.pointers[0], argv.pointers.data(), environ);
            ::_exit(127);
        }
        ::_exit(child < 0 ? 1 : 0);
    }
    const int forkError = errno;
    ::close(devNull);
    closeFd(in);
    if (middle < 0) {
        reportLaunchFailure(path, errnoText(forkError), method);
        return;
    }
    int status = 0;
    while (::waitpid(middle, &status, 0) < 0 && errno == EINTR) {
    }
}

} // namespace

bool QXTask::runTask(const QString& path, const QStringList& arguments, const ProcessHook& task) {
    return runAndWait(path, arguments, task, QByteArray(), "+[QXTask runTask:arguments:task:]")
        .has_value();
}

int QXTask::terminationCodeFromTask(const QString& path, const QStringList& arguments,
                                    const ProcessHook& task) {
    return runAndWait(path, arguments, task, QByteArray(),
                      "+[QXTask terminationCodeFromTask:arguments:task:]")
        .value_or(-1);
}

int QXTask::terminationCodeFromTaskWithInput(const QString& path, const QStringList& arguments,
                                             const QByteArray& input) {
    return runAndWait(path, arguments, nullptr, input.isNull() ? QByteArray("") : input,
                      "+[QXTask terminationCodeFromTask:arguments:input:]")
        .value_or(-1);
}

void QXTask::runTaskAndReturn(const QString& path, const QStringList& arguments) {
    startDetached(path, arguments, QByteArray());
}

void QXTask::runTaskAndReturnWithInput(const QString& path, const QStringList& arguments,
                                       const QByteArray& input) {
    startDetached(path, arguments, input.isNull() ? QByteArray("") : input);
}

std::optional<QByteArray> QXTask::dataFromTask(const QString& path, const QStringList& arguments,
                                               const ProcessHook& task) {
    if (!isExecutable(path)) {
        reportNotExecutable(path);
        return std::nullopt;
    }
    int outPipe[2] = {-1, -1}, errPipe[2] = {-1, -1}, inPipe[2] = {-1, -1};
    auto closeAll = [&] {
        for (int* p : {outPipe, errPipe, inPipe}) {
            closeFd(p[0]);
            closeFd(p[1]);
        }
    };
    if (::pipe2(outPipe, O_CLOEXEC) != 0 || ::pipe2(errPipe, O_CLOEXEC) != 0 ||
        ::pipe2(inPipe, O_CLOEXEC) != 0) {
        const int err = errno;
        closeAll();
        reportLaunchFailure(path, errnoText(err), "+[QXTask dataFromTask:arguments:task:]");
        return std::nullopt;
    }
    auto process = std::make_shared<QXTaskProcess>(path, arguments);
    if (task) task(process);
    QString error;
    const bool launched = process->launch({inPipe[0], outPipe[1], errPipe[1]}, &error);
    // The parent keeps only the read ends. The input pipe is closed too: the
    // child reads end of file instead of waiting for input that never comes.
    closeFd(outPipe[1]);
    closeFd(errPipe[1]);
    closeFd(inPipe[0]);
    closeFd(inPipe[1]);
    if (!launched) {
        closeAll();
        reportLaunchFailure(path, error, "+[QXTask dataFromTask:arguments:task:]");
        return std::nullopt;
    }

    // Both pipes are drained together: a child that fills one while we block
    // on the other would otherwise never finish.
    QByteArray out, err;
    struct pollfd fds[2] = {{outPipe[0], POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    int open = 2;
    while (open > 0) {
        const int n = ::poll(fds, 2, -1);
        if (n < 0) {
            if (errno == EINTR) continue;
            break;
        }
        for (int i = 0; i < 2; ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            if (!readSome(fds[i].fd, i == 0 ? out : err)) {
                fds[i].fd = -1; // poll ignores negative descriptors
                --open;
            }
        }
    }
    closeAll();
    process->waitUntilExit();
    // The error stream wins, so a caller that gets text back sees the error text.
    if (!err.isEmpty()) return err;
    return out;
}

QString QXTask::stringFromTask(const QString& path, const QStringList& arguments, Encoding encoding,
                               const ProcessHook& task) {
    const std::optional<QByteArray> data = dataFromTask(path, arguments, task);
    if (!data) return QStringLiteral("");
    return decode(*data, encoding);
}

// ---------------------------------------------------------------------------
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
