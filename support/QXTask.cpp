// The synchronous forms: run a tool, wait, and hand back its status or output.
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
