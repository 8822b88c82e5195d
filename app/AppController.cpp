#include "AppController.h"

#include "AboutDialog.h"
#include "CrashHandler.h"
#include "DocumentHost.h"
#include "InterruptedRenames.h"
#include "QXBugReporter.h"
#include "QXLog.h"
#include "QXTroubleshootingUtils.h"
#include "TroubleshootingFrontEnd.h"
#include "UpdateCheck.h"

#include <QApplication>
#include <QDialog>
#include <QFileInfo>
#include <QIcon>
#include <QMessageBox>
#include <QPointer>
#include <QSettings>
#include <QTimer>
#include <QWidget>

namespace {

// Registered once: without a stored value the user defaults read these.
const std::pair<const char16_t*, int> registeredDefaults[] = {
    {u"conflictAction", 0},
    {u"showFullSourcePaths", 0},
};

bool isBatchFile(const QString& path) {
    return QFileInfo(path).suffix().toLower() == QLatin1String("sqb");
}

} // namespace

AppController::AppController(DocumentHost& host, QObject* parent)
    : QObject(parent), m_host(host), m_interrupted(new InterruptedRenames(this)) {
    QCoreApplication::setApplicationName(applicationName());
    QCoreApplication::setOrganizationName(QStringLiteral("Corvane"));
    // The library's resources are not referenced by name, so a static link would drop them.
    Q_INIT_RESOURCE(AppShell);
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/shell/seqmate.png")));
    // Lets the desktop match our windows to the installed entry and its icon.
    QGuiApplication::setDesktopFileName(QStringLiteral("com.corvane.Seqmate"));

    // Crash detection first: it must see the previous run's record before this run's launch.
    QPointer<AppController> self(this);
    QXBugReporter::startBugReporter(applicationName(), QString(), [self](const QString& report) {
        if (self) emit self->previousRunCrashed(report);
    });
    CrashHandler::install(applicationName());
    QXLog::createNewLog(applicationName());
    registerDefaults();

    QXTroubleshootingUtils::setFrontEnd(std::make_shared<TroubleshootingFrontEnd>(
        [self]() -> QWidget* { return self ? self->m_host.frontmostWindow() : nullptr; }));
    connect(qApp, &QCoreApplication::aboutToQuit, this, &AppController::applicationWillTerminate);
}

AppController::~AppController() {
    QXTroubleshootingUtils::setFrontEnd(nullptr);
}

void AppController::registerDefaults() {
    QSettings defaults(QStringLiteral("Corvane"), applicationName());
    for (const auto& [key, value] : registeredDefaults) {
        const QString name = QString::fromUtf16(key);
        if (!defaults.contains(name)) defaults.setValue(name, value);
    }
    defaults.sync();
}

void AppController::launch(const QStringList& paths) {
    if (paths.isEmpty())
        m_host.newUntitledDocument();
    else
        openFiles(paths);
    QTimer::singleShot(0, this, &AppController::applicationDidFinishLaunching);
}

void AppController::applicationDidFinishLaunching() {
    m_interrupted->offer(m_host.frontmostWindow());
    UpdateCheck::run(QCoreApplication::applicationFilePath());
}

void AppController::openFiles(const QStringList& paths) {
    QStringList others;
    // Cleared once, not per file: after a failure every later batch file logs
    // that error again unless its own opening reports a new one.
    QString error;
    for (const QString& path : paths) {
        if (!isBatchFile(path)) {
            others << path;
            continue;
        }
        m_host.openBatchFile(path, &error);
        if (!error.isEmpty()) QXLog::appendLog(QStringLiteral("Error: %1").arg(error));
    }
    if (others.isEmpty()) return;
    if (!m_host.hasOpenDocument()) m_host.newUntitledDocument();
    m_host.addToFrontmost(others);
}

void AppController::reopen(const QStringList& paths) {
    if (!paths.isEmpty())
        openFiles(paths);
    else if (!m_host.hasOpenDocument())
        m_host.newUntitledDocument();
    if (QWidget* window = m_host.frontmostWindow()) {
        window->showNormal();
        window->raise();
        window->activateWindow();
    }
}

void AppController::applicationWillTerminate() {
    if (m_terminated) return;
    m_terminated = true;
    QXBugReporter::stopBugReporter();
    QXLog::finishWriting();
}

void AppController::gatherLogs() {
    QXTroubleshootingUtils::gatherLogsForAppWithName(applicationName());
}

void AppController::viewLog() {
    QXTroubleshootingUtils::viewLogForApp(applicationName());
}

void AppController::viewTaskLog() {
    QXTroubleshootingUtils::viewTaskLogForApp(applicationName());
}

void AppController::setAboutDialogFactory(AboutDialogFactory factory) {
    m_aboutFactory = std::move(factory);
}

void AppController::showAboutDialog() {
    QWidget* parent = m_host.frontmostWindow();
    QDialog* dialog = m_aboutFactory ? m_aboutFactory(parent) : AboutDialog::load(parent);
    if (!dialog) {
        QXLog::appendLog(QStringLiteral(
            "Error: unable to load About dialog. Please report this error to Corvane."));
        QMessageBox box(QMessageBox::Critical, QApplication::applicationDisplayName(),
                        QStringLiteral("Error: unable to load About dialog."), QMessageBox::Ok,
                        parent);
        box.setInformativeText(QStringLiteral("Please report this error to Corvane."));
        box.exec();
        return;
    }
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->open();
}
