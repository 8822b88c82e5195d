#include "CrashHandler.h"

#include "QXLocalPaths.h"

#include <QDir>
#include <QFile>

#include <atomic>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <execinfo.h>
#include <fcntl.h>
#include <iterator>
#include <limits.h>
#include <time.h>
#include <unistd.h>

namespace {

constexpr int kSignals[] = {SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS};
constexpr size_t kSignalCount = std::size(kSignals);

const char* signalName(int sig) {
    switch (sig) {
    case SIGSEGV:
        return "SIGSEGV";
    case SIGBUS:
        return "SIGBUS";
    case SIGILL:
        return "SIGILL";
    case SIGFPE:
        return "SIGFPE";
    case SIGABRT:
        return "SIGABRT";
    case SIGTRAP:
        return "SIGTRAP";
    case SIGSYS:
        return "SIGSYS";
    default:
        return "?";
    }
}

// Everything the handler needs, prepared at install time. Plain arrays in
// static storage: the handler neither allocates nor locks.
struct State {
    char prefix[PATH_MAX]; // "<folder>/<name>_"
    char name[256];
    char host[256];
    long utcOffset;
    struct sigaction previous[kSignalCount];
    bool installed;
    bool ownAltStack;
};
State g_state;
std::atomic<int> g_reporting{0};
alignas(16) char g_altStack[1 << 16];

// Appends to a fixed buffer, never past its end.
struct Writer {
    char* data;
    size_t capacity;
    size_t length = 0;

    void add(const char* text) {
        while (*text && length + 1 < capacity)
            data[length++] = *text++;
        data[length] = '\0';
    }
    void addNumber(unsigned long long value, unsigned base = 10, int minDigits = 1) {
        char digits[32];
        int n = 0;
        do {
            digits[n++] = "0123456789abcdef"[value % base];
            value /= base;
        } while (value != 0 && n < 32);
        while (n < minDigits && n < 32)
            digits[n++] = '0';
        while (n > 0 && length + 1 < capacity)
            data[length++] = digits[--n];
        data[length] = '\0';
    }
};

void copyLimited(char* to, size_t size, const QByteArray& from) {
    const size_t n = std::min(size - 1, static_cast<size_t>(from.size()));
    std::memcpy(to, from.constData(), n);
    to[n] = '\0';
}

void writeAll(int fd, const char* text, size_t length) {
    while (length > 0) {
        const ssize_t n = ::write(fd, text, length);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) return;
        text += n;
        length -= static_cast<size_t>(n);
    }
}

void writeReport(int sig, const siginfo_t* info) {
    struct timespec now = {0, 0};
    ::clock_gettime(CLOCK_REALTIME, &now);
    char stamp[18];
    CrashHandler::formatTimestamp(static_cast<long long>(now.tv_sec), g_state.utcOffset, stamp);

    char path[PATH_MAX + 64];
    Writer p{path, sizeof path};
    p.add(g_state.prefix);
    p.add(stamp);
    p.add("_");
    p.add(g_state.host);
    const size_t stem = p.length;
    p.add(".crash");
    int fd = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    // Two crashes in one second (another process of ours): a number, never an overwrite.
    for (unsigned n = 2; fd < 0 && errno == EEXIST && n < 10; ++n) {
        p.length = stem;
        p.add("-");
        p.addNumber(n);
        p.add(".crash");
        fd = ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    }
    if (fd < 0) return;

    char text[2048];
    Writer t{text, sizeof text};
    t.add("Process:     ");
    t.add(g_state.name);
    t.add(" [");
    t.addNumber(static_cast<unsigned long long>(::getpid()));
    t.add("]\nDate/Time:   ");
    t.add(stamp);
    t.add("\nHost:        ");
    t.add(g_state.host);
    t.add("\nThread:      ");
    t.addNumber(static_cast<unsigned long long>(::gettid()));
    t.add("\nSignal:      ");
    t.addNumber(static_cast<unsigned long long>(sig));
    t.add(" (");
    t.add(signalName(sig));
    t.add(")\n");
    if (info) {
        t.add("Code:        ");
        if (info->si_code < 0) {
            t.add("-");
            t.addNumber(static_cast<unsigned long long>(-static_cast<long long>(info->si_code)));
        } else {
            t.addNumber(static_cast<unsigned long long>(info->si_code));
        }
        t.add("\nAddress:     0x");
        t.addNumber(reinterpret_cast<uintptr_t>(info->si_addr), 16);
        t.add("\n");
    }
    t.add("\nBacktrace:\n");
    writeAll(fd, text, t.length);

    void* frames[128];
    const int count = ::backtrace(frames, 128);
    ::backtrace_symbols_fd(frames, count, fd);
    ::close(fd);
}

void onFatalSignal(int sig, siginfo_t* info, void*) {
    int idle = 0;
    if (g_reporting.compare_exchange_strong(idle, 1)) {
        writeReport(sig, info);
    } else {
        // Another thread is writing the report: let it finish, then die with it.
        struct timespec wait = {5, 0};
        ::nanosleep(&wait, nullptr);
    }
    // The default action ends the process with the original signal.
    struct sigaction dfl;
    std::memset(&dfl, 0, sizeof dfl);
    dfl.sa_handler = SIG_DFL;
    sigemptyset(&dfl.sa_mask);
    ::sigaction(sig, &dfl, nullptr);
    ::raise(sig);
}

QByteArray shortHostName() {
    char buffer[256] = {};
    if (::gethostname(buffer, sizeof buffer - 1) != 0) buffer[0] = '\0';
    QByteArray host(buffer);
    host = host.left(host.indexOf('.') < 0 ? host.size() : host.indexOf('.'));
    for (char& c : host)
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-') c = '-';
    return host.isEmpty() ? QByteArray("localhost") : host;
}

} // namespace

void CrashHandler::formatTimestamp(long long secondsSinceEpoch, long utcOffset, char (&out)[18]) {
    const long long local = secondsSinceEpoch + utcOffset;
    long long days = local / 86400;
    long long rest = local % 86400;
    if (rest < 0) {
        rest += 86400;
        --days;
    }
    // Days since 1970-01-01 to a civil date (proleptic Gregorian calendar),
    // counting in 400-year eras that start on March 1st.
    const long long z = days + 719468;
    const long long era = (z >= 0 ? z : z - 146096) / 146097;
    const long long doe = z - era * 146097;
    const long long yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
    const long long doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
    const long long mp = (5 * doy + 2) / 153;
    const long long day = doy - (153 * mp + 2) / 5 + 1;
    const long long month = mp < 10 ? mp + 3 : mp - 9;
    const long long year = yoe + era * 400 + (month <= 2 ? 1 : 0);

    Writer w{out, sizeof out};
    w.addNumber(static_cast<unsigned long long>(year < 0 ? 0 : year), 10, 4);
    w.add("-");
    w.addNumber(static_cast<unsigned long long>(month), 10, 2);
    w.add("-");
    w.addNumber(static_cast<unsigned long long>(day), 10, 2);
    w.add("-");
    w.addNumber(static_cast<unsigned long long>(rest / 3600), 10, 2);
    w.addNumber(static_cast<unsigned long long>(rest / 60 % 60), 10, 2);
    w.addNumber(static_cast<unsigned long long>(rest % 60), 10, 2);
}

QString CrashHandler::reportFolder() {
    return QXLocalPaths::logDirectory(true) + QStringLiteral("/DiagnosticReports");
}

bool CrashHandler::install(const QString& appName) {
    uninstall();
    const QString folder = reportFolder();
    if (!QDir().mkpath(folder)) return false;

    QString name = appName;
    name.replace(u'/', u'-');
    copyLimited(g_state.name, sizeof g_state.name, name.toUtf8());
    copyLimited(g_state.prefix, sizeof g_state.prefix,
                QFile::encodeName(folder + u'/' + name + u'_'));
    copyLimited(g_state.host, sizeof g_state.host, shortHostName());
    const time_t now = ::time(nullptr);
    struct tm local;
    g_state.utcOffset = ::localtime_r(&now, &local) ? local.tm_gmtoff : 0;

    // backtrace() loads the unwinder on first use; do it now, not in the handler.
    void* warmUp[4];
    ::backtrace(warmUp, 4);

    // Room to run the handler when the thread's own stack has overflowed.
    stack_t current;
    g_state.ownAltStack = false;
    if (::sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE)) {
        stack_t ours;
        ours.ss_sp = g_altStack;
        ours.ss_size = sizeof g_altStack;
        ours.ss_flags = 0;
        g_state.ownAltStack = ::sigaltstack(&ours, nullptr) == 0;
    }

    struct sigaction action;
    std::memset(&action, 0, sizeof action);
    action.sa_sigaction = onFatalSignal;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_RESETHAND;
    sigemptyset(&action.sa_mask);
    for (int sig : kSignals)
        sigaddset(&action.sa_mask, sig);
    for (size_t i = 0; i < kSignalCount; ++i)
        ::sigaction(kSignals[i], &action, &g_state.previous[i]);
    g_reporting.store(0);
    g_state.installed = true;
    return true;
}

void CrashHandler::uninstall() {
    if (!g_state.installed) return;
    for (size_t i = 0; i < kSignalCount; ++i)
        ::sigaction(kSignals[i], &g_state.previous[i], nullptr);
    if (g_state.ownAltStack) {
        stack_t off;
        std::memset(&off, 0, sizeof off);
        off.ss_flags = SS_DISABLE;
        ::sigaltstack(&off, nullptr);
        g_state.ownAltStack = false;
    }
    g_state.installed = false;
}
