#pragma once

#include <QObject>
#include <QStringList>
#include <QUrl>

#include <functional>

class DocumentHost;
class InterruptedRenames;
class QDialog;
class QMenuBar;
class QWidget;

// The application's delegate: start-up (crash detection, a new log, the
// registered defaults) before the first window, the update check after
// launch, files handed over from outside, and the Help and log menu items.
//
// main() does, in this order:
//   1. SingleInstance::handOver(paths): when the running instance took the
//      paths, exit 0 (nothing below runs, so the second launch records nothing);
//   2. construct the AppController over the window registry's DocumentHost,
//      and hand addMenus to the registry's menu bar hook;
//   3. SingleInstance::listen(), its filesReceived connected to reopen;
//   4. launch(paths), then QApplication::exec().
class AppController : public QObject {
    Q_OBJECT
public:
    // Creates its own window-free state only; the application object must exist.
    explicit AppController(DocumentHost& host, QObject* parent = nullptr);
    ~AppController() override;

    static QString applicationName() { return QStringLiteral("Seqmate"); }

    // Opens the paths of the command line (or a new untitled batch when there
    // are none), then, once the event loop has started, reports renames that
    // did not complete and runs the update check.
    void launch(const QStringList& paths);
    void applicationDidFinishLaunching();
    // Batch files ("sqb" in any case) open as documents, in order; the other
    // paths join the frontmost document, or a new untitled one.
    void openFiles(const QStringList& paths);
    // Another launch's paths: opened as above (with none, a new untitled batch
    // when no window is open), then the frontmost window is brought forward.
    void reopen(const QStringList& paths);
    // Records the clean exit; connected to QCoreApplication::aboutToQuit.
    void applicationWillTerminate();

    // Adds the Help menu (with the log items) to a window's menu bar.
    void addMenus(QMenuBar* menuBar);

    void gatherLogs();
    void viewLog();
    void viewTaskLog();
    void helpQXHome();
    void helpTesselkitHome();
    void helpSupport();
    void helpSuggestFeature();
    void helpReportBug();
    void helpUserManual();
    void showAboutDialog();

    static QUrl suggestFeatureUrl();
    static QUrl reportBugUrl();
    static QString userManualPath();

    // Makes the About dialog; null means its interface could not be loaded.
    using AboutDialogFactory = std::function<QDialog*(QWidget* parent)>;
    void setAboutDialogFactory(AboutDialogFactory factory);

signals:
    // The last run crashed and left this report (told by crash detection).
    void previousRunCrashed(const QString& reportPath);

private:
    static void registerDefaults();
    void openUrl(const QUrl& url);

    DocumentHost& m_host;
    InterruptedRenames* m_interrupted;
    AboutDialogFactory m_aboutFactory;
    bool m_terminated = false;
};
