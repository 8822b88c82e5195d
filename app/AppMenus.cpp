// The Help menu of every window and the web pages and manual it opens.
#include "AppController.h"

#include "QXLocalPaths.h"
#include "QXLog.h"

#include <QDesktopServices>
#include <QFileInfo>
#include <QMenu>
#include <QMenuBar>

namespace {

// A web address from the build's configuration, as a folder to resolve pages against.
QUrl site(const char* address) {
    QString text = QString::fromUtf8(address);
    if (!text.endsWith(u'/')) text += u'/';
    return QUrl(text);
}

// The application's short token in the support site's queries.
QString shortName() {
    const QString name = QStringLiteral(SEQMATE_SHORT_NAME);
    return name.isEmpty() ? QStringLiteral("tessel_kit") : name;
}

QString escaped(const QString& value) {
    return QString::fromLatin1(QUrl::toPercentEncoding(value));
}

QUrl supportPage(const QString& page, const QString& query) {
    QUrl url = site(SEQMATE_SUPPORT_SITE_URL).resolved(QUrl(page));
    url.setQuery(query, QUrl::StrictMode);
    return url;
}

} // namespace

QUrl AppController::suggestFeatureUrl() {
    return supportPage(QStringLiteral("tesselkit/featurerequest"),
                       QStringLiteral("app=") + escaped(shortName()));
}

QUrl AppController::reportBugUrl() {
    return supportPage(QStringLiteral("tesselkit/bugreport"),
                       QStringLiteral("app=%1&version=%2")
                           .arg(escaped(shortName()), escaped(QStringLiteral(SEQMATE_VERSION))));
}

QString AppController::userManualPath() {
    return QXLocalPaths::libraryDirectory(false) +
           QStringLiteral("/Documentation/Corvane/Tesselkit User Manual.pdf");
}

void AppController::openUrl(const QUrl& url) {
    if (!QDesktopServices::openUrl(url))
        QXLog::appendLog(QStringLiteral("Unable to open %1").arg(url.toDisplayString()));
}

void AppController::helpQXHome() {
    openUrl(site(SEQMATE_HOME_URL));
}

void AppController::helpTesselkitHome() {
    openUrl(site(SEQMATE_SUITE_URL));
}

void AppController::helpSupport() {
    openUrl(site(SEQMATE_SUITE_SUPPORT_URL));
}

void AppController::helpSuggestFeature() {
    openUrl(suggestFeatureUrl());
}

void AppController::helpReportBug() {
    openUrl(reportBugUrl());
}

void AppController::helpUserManual() {
    const QString path = userManualPath();
    if (QFileInfo::exists(path)) openUrl(QUrl::fromLocalFile(path));
}

void AppController::addMenus(QMenuBar* menuBar) {
    QMenu* help = menuBar->addMenu(tr("&Help"));
    help->setObjectName(QStringLiteral("helpMenu"));
    const auto add = [this, help](const QString& text, const char* name,
                                  void (AppController::*slot)()) {
        QAction* action = help->addAction(text, this, slot);
        action->setObjectName(QString::fromLatin1(name));
        return action;
    };
    add(tr("Tesselkit User Manual"), "helpUserManual", &AppController::helpUserManual)
        ->setShortcut(QKeySequence::HelpContents);
    help->addSeparator();
    add(tr("Corvane Home Page"), "helpQXHome", &AppController::helpQXHome);
    add(tr("Tesselkit Home Page"), "helpTesselkitHome", &AppController::helpTesselkitHome);
    add(tr("Tesselkit Support"), "helpSupport", &AppController::helpSupport);
    add(tr("Suggest a Feature…"), "helpSuggestFeature", &AppController::helpSuggestFeature);
    add(tr("Report a Bug…"), "helpReportBug", &AppController::helpReportBug);
    help->addSeparator();
    add(tr("Gather Logs"), "gatherLogs", &AppController::gatherLogs);
    add(tr("View Log"), "viewLog", &AppController::viewLog);
    add(tr("View Task Log"), "viewTaskLog", &AppController::viewTaskLog);
    help->addSeparator();
    add(tr("About Seqmate"), "showAboutDialog", &AppController::showAboutDialog)
        ->setMenuRole(QAction::AboutRole);
}
