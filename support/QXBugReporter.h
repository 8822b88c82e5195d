#pragma once

#include <QString>
#include <QStringList>

#include <functional>

// Finds out at start whether the previous run ended in a crash: every launch
// and every clean exit is recorded ("launch", "exit"), and a crash report
// newer than the last launch, with no clean exit after it, is the last run's.
// The report is handed to the bug-reporter program (seqmate-bugreporter).
// Stateless apart from the hand-over hook.
//
// The record lives in the user defaults (QSettings, organization "Corvane",
// application QCoreApplication::applicationName(), "Seqmate" when unset) or,
// when a path is given, in a property-list file at that path.
class QXBugReporter {
public:
    // Told (on the main thread, without waiting) the path of the last run's crash report.
    using CrashDelegate = std::function<void(const QString& reportPath)>;
    // Hands a crash report to the bug reporter; returns false when it could not.
    using ReportHandler = std::function<bool(const QString& reportPath)>;

    // Runs the check, tells the delegate, then records the launch.
    static void startBugReporter(const QString& appName = QString(),
                                 const QString& plistPath = QString(),
                                 const CrashDelegate& delegate = nullptr);
    static void startBugReporterWithDelegate(const CrashDelegate& delegate);
    // Records a clean exit.
    static void stopBugReporter(const QString& plistPath = QString());

    // The crash report of the last run, or "" when it ended cleanly or left none.
    // The name defaults to the application's name.
    static QString checkForCrashes(const QString& appName = QString(),
                                   const QString& plistPath = QString());

    // Gives a record file in a user's home back to that user (after a
    // privileged run). The owner is the component after "Users" or, on
    // Linux, after "home"; other paths are left alone.
    static void chownPlist(const QString& path);

    // "seqmate-bugreporter" next to the running program, else on PATH; "" when neither.
    static QString bugReporterProgram();
    // Replaces the hand-over (tests: nothing is opened); null restores the program.
    static void setReportHandler(ReportHandler handler);

    // The four folders searched, in order.
    static QStringList reportFolders();
};
