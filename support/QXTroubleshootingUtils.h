#pragma once

#include <QString>
#include <QStringList>

#include <memory>

// What a front end does for the log tools: show an alert panel (message and
// informative text, one OK button) and open a file in its default viewer.
// The GUI implements it with widgets; without one nothing is shown.
class QXTroubleshootingFrontEnd {
public:
    virtual ~QXTroubleshootingFrontEnd() = default;
    virtual void showAlertPanel(const QString& messageText, const QString& informativeText) = 0;
    virtual void openWithDefaultApplication(const QString& path) = 0;
};

// The end of a gathering, as data: success, the outcome the user is told
// about (with its texts) and the archive made.
struct QXGatherResult {
    enum class Outcome {
        Failed,      // preparing or copying failed: console messages only, no alert
        NoLogsFound, // "No logs found"
        Gathered,    // "Logs gathered successfully"
        NotGathered, // "Logs could not be gathered"
    };
    bool success = false;
    Outcome outcome = Outcome::Failed;
    QString messageText;
    QString informativeText;
    QString archivePath; // set when an archive was made
    int found = 0;       // logs, crash reports and preference files gathered

    explicit operator bool() const { return success; }
};

// The log to open, or the "No log found" alert's texts when there is none.
struct QXViewLogResult {
    QString path;
    QString messageText;
    QString informativeText;
};

// Gathers an application's logs, crash reports and preference files (user
// and machine-wide) into "<name> Logs.zip" on the desktop, for support; and
// finds the current log or task log to open. Stateless.
//
// Besides the classic "CrashReporter" folder the crash reports of our own
// handler ("DiagnosticReports") are gathered, and besides the preference
// property lists the QSettings file that holds the user defaults on Linux.
class QXTroubleshootingUtils {
public:
    // The front end that shows the alerts and opens files (may be null).
    static void setFrontEnd(std::shared_ptr<QXTroubleshootingFrontEnd> frontEnd);

    static QXGatherResult gatherLogsForAppWithName(const QString& name);
    static QXGatherResult gatherLogsForAppsWithNames(const QStringList& names, bool silent = false,
                                                     const QStringList& additionalFiles = {});

    static QXViewLogResult viewLogForApp(const QString& name);
    static QXViewLogResult viewTaskLogForApp(const QString& name);

    // The folder the logs are gathered in before they are archived.
    static QString workFolder();
};
