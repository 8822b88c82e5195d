// One child process: spawned with its pipes wired, waited for, signalled.
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
