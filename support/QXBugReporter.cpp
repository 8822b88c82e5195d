#include "QXBugReporter.h"

#include "PropertyList.h"
#include "QXConsole.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "QXTask.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QMetaObject>
#include <QMutex>
#include <QSettings>
#include <QStandardPaths>

namespace {

const QString launchKey = QStringLiteral("launch");
const QString exitKey = QStringLiteral("exit");

QMutex& handlerMutex() {
    static QMutex m;
    return m;
}

QXBugReporter::ReportHandler& handlerSlot() {
    static QXBugReporter::ReportHandler slot;
    return slot;
}

QString applicationName() {
    const QString name = QCoreApplication::applicationName();
    return name.isEmpty() ? QStringLiteral("Seqmate") : name;
}

QSettings userDefaults() {
    return QSettings(QStringLiteral("Corvane"), applicationName());
}

QVariant readRecord(const QString& plistPath, const QString& key) {
    if (plistPath.isEmpty()) return userDefaults().value(key);
    return PropertyList::readFile(plistPath).toMap().value(key);
}

// Sets one key to now, in the user defaults or the record file.
void recordNow(const QString& plistPath, const QString& key) {
    const QDateTime now = QDateTime::currentDateTime();
    if (plistPath.isEmpty()) {
        QSettings defaults = userDefaults();
        defaults.setValue(key, now);
        defaults.sync();
        return;
    }
    QVariantMap record = PropertyList::readFile(plistPath).toMap();
    record.insert(key, now);
    QString error;
    if (!PropertyList::writeFile(plistPath, record, &error))
        QXLog::appendLog(QStringLiteral("Unable to write %1: %2").arg(plistPath, error));
    QXBugReporter::chownPlist(plistPath);
}

bool crashReporterDisabled() {
    const QVariant value = PropertyList::readFile(QXLocalPaths::vendorPreferencesPath())
                               .toMap()
                               .value(QStringLiteral("disable-crash-reporter"));
    switch (value.typeId()) {
    case QMetaType::QString:
        return value.toString() == QLatin1String("1");
    case QMetaType::Bool:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Int:
    case QMetaType::Double:
        return value.toDouble() == 1.0;
    default:
        return false;
    }
}

bool openWithBugReporter(const QString& report) {
    QXBugReporter::ReportHandler handler;
    {
        QMutexLocker lock(&handlerMutex());
        handler = handlerSlot();
    }
    if (handler) return handler(report);
    const QString program = QXBugReporter::bugReporterProgram();
    if (program.isEmpty()) {
        QXConsole::print(QStringLiteral("Unable to find the bug reporter for %1").arg(report));
        return false;
    }
    QXTask::runTaskAndReturn(program, {report});
    return true;
}

// The last entry of the folder, in listing order, whose name starts with
// "<name>_" in any case.
QString lastReportIn(const QString& folder, const QString& name) {
    const QString prefix = name + u'_';
    const QStringList entries = QDir(folder).entryList(QDir::Files | QDir::Hidden | QDir::System,
                                                       QDir::Name | QDir::IgnoreCase);
    for (auto it = entries.crbegin(); it != entries.crend(); ++it)
        if (it->startsWith(prefix, Qt::CaseInsensitive)) return folder + u'/' + *it;
    return QString();
}

} // namespace

QStringList QXBugReporter::reportFolders() {
    QStringList folders;
    for (const bool user : {true, false}) {
        const QString logs = QXLocalPaths::logDirectory(user);
        folders << logs + QStringLiteral("/CrashReporter")
                << logs + QStringLiteral("/DiagnosticReports");
    }
    return folders;
}

QString QXBugReporter::checkForCrashes(const QString& appName, const QString& plistPath) {
    const QDateTime launch = readRecord(plistPath, launchKey).toDateTime();
    if (!launch.isValid()) return QString();
    const QDateTime exit = readRecord(plistPath, exitKey).toDateTime();
    if (exit.isValid() && exit >= launch) return QString();

    const QString name = appName.isEmpty() ? applicationName() : appName;
    for (const QString& folder : reportFolders()) {
        const QString report = lastReportIn(folder, name);
        if (report.isEmpty() || !(QFileInfo(report).lastModified() > launch)) continue;
        QXLog::appendLog(QStringLiteral("Application crashed on last launch"));
        if (crashReporterDisabled()) {
            const QString line = QStringLiteral("Crash reporter disabled");
            QXConsole::print(line);
            QXLog::appendLog(line);
        } else {
            openWithBugReporter(report);
        }
        return report;
    }
    return QString();
}

void QXBugReporter::startBugReporter(const QString& appName, const QString& plistPath,
                                     const CrashDelegate& delegate) {
    const QString report = checkForCrashes(appName, plistPath);
    if (!report.isEmpty() && delegate) {
        // On the main thread without waiting; with no application object there is no other thread
        // to wait for.
        if (QCoreApplication* app = QCoreApplication::instance())
            QMetaObject::invokeMethod(
                app, [delegate, report] { delegate(report); }, Qt::QueuedConnection);
        else
            delegate(report);
    }
    recordNow(plistPath, launchKey);
}

void QXBugReporter::startBugReporterWithDelegate(const CrashDelegate& delegate) {
    startBugReporter(QString(), QString(), delegate);
}

void QXBugReporter::stopBugReporter(const QString& plistPath) {
    recordNow(plistPath, exitKey);
}

void QXBugReporter::chownPlist(const QString& path) {
    const QStringList components = path.split(u'/', Qt::SkipEmptyParts);
    qsizetype at = -1;
    for (qsizetype i = 0; i < components.size(); ++i) {
        if (components[i] == QLatin1String("Users") || components[i] == QLatin1String("home")) {
            at = i;
            break;
        }
    }
    if (at < 0 || at + 1 >= components.size()) return;
    const QString tool = QFileInfo::exists(QStringLiteral("/usr/sbin/chown"))
                             ? QStringLiteral("/usr/sbin/chown")
                             : QStringLiteral("/bin/chown");
    QXTask::runTask(tool, {components[at + 1], path}, 5.0);
}

QString QXBugReporter::bugReporterProgram() {
    const QString name = QStringLiteral("seqmate-bugreporter");
    const QString self = QFileInfo(QStringLiteral("/proc/self/exe")).canonicalFilePath();
    if (!self.isEmpty()) {
        const QString beside = QFileInfo(self).path() + u'/' + name;
        if (QXTask::isExecutable(beside)) return beside;
    }
    return QStandardPaths::findExecutable(name);
}

void QXBugReporter::setReportHandler(ReportHandler handler) {
    QMutexLocker lock(&handlerMutex());
    handlerSlot() = std::move(handler);
}
