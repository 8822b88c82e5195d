#pragma once

#include <QString>

#include <ctime>

// Writes a crash report when the process dies of a fatal signal (SIGSEGV,
// SIGBUS, SIGILL, SIGFPE, SIGABRT, SIGTRAP, SIGSYS), so that the next launch
// can find it (QXBugReporter). The report is
// "<name>_<yyyy-MM-dd-HHmmss>_<host>.crash" in the user's log folder under
// "DiagnosticReports", holding the signal and a backtrace.
//
// The handler itself uses async-signal-safe calls only: everything that
// allocates or locks (the folder, the host name, the local time offset,
// loading the unwinder for backtrace()) happens at install time; the time of
// the crash comes from clock_gettime() and is turned into a date by plain
// arithmetic (localtime_r is not async-signal-safe). The offset from UTC is
// the one at install time, so a report written after a daylight-saving change
// is named an hour off; detection goes by the file's modification time, not
// its name. The alternate signal stack (for stack overflows) is set up for
// the installing thread.
class CrashHandler {
public:
    // Installs the handlers; false when the report folder cannot be made.
    static bool install(const QString& appName);
    // Puts back the handlers that were there before install().
    static void uninstall();
    // The folder reports go to.
    static QString reportFolder();

    // "yyyy-MM-dd-HHmmss" of a time (seconds since the epoch, plus the
    // offset from UTC in seconds) into out, with its terminating zero.
    // Async-signal-safe.
    static void formatTimestamp(long long secondsSinceEpoch, long utcOffset, char (&out)[18]);
};
