#include "QXTroubleshootingUtils.h"

#include "QXConsole.h"
#include "QXDate.h"
#include "QXFileManager.h"
#include "QXLocalPaths.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QMutex>
#include <QSettings>

#include <filesystem>
#include <sys/stat.h>

namespace {

QMutex& frontEndMutex() {
    static QMutex m;
    return m;
}

std::shared_ptr<QXTroubleshootingFrontEnd>& frontEndSlot() {
    static std::shared_ptr<QXTroubleshootingFrontEnd> slot;
    return slot;
}

std::shared_ptr<QXTroubleshootingFrontEnd> frontEnd() {
    QMutexLocker lock(&frontEndMutex());
    return frontEndSlot();
}

void showAlert(const QString& message, const QString& text) {
    if (auto fe = frontEnd()) fe->showAlertPanel(message, text);
}

bool existsAt(const QString& path) {
    struct stat st;
    return !path.isEmpty() && ::lstat(QFile::encodeName(path).constData(), &st) == 0;
}

QStringList entriesOf(const QString& folder) {
    // System takes in links to nowhere, which must be gathered too.
    return QDir(folder).entryList(
        QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name);
}

// The gathering of one run: the work folder and the count of what was taken.
struct Gatherer {
    QString work;
    int found = 0;

    QString mirror(const QString& folder) const { return work + QDir::cleanPath(folder); }

    // Copies one entry into the work folder's copy of its folder. A link to an
    // existing file brings the file's contents, a dangling link itself.
    bool copyEntry(const QString& folder, const QString& name) {
        const QString destFolder = mirror(folder);
        if (!QFileInfo(destFolder).isDir() && !QDir().mkpath(destFolder)) {
            QXConsole::print(QStringLiteral("Unable to copy log: %1")
                                 .arg(QStringLiteral("Could not create %1").arg(destFolder)));
            return false;
        }
        const QString entry = QXFileManager::joinPath(folder, name);
        QString source = entry;
        const QFileInfo info(entry);
        if (info.isSymLink() && info.exists()) source = info.canonicalFilePath();
        const QString dest = QXFileManager::joinPath(destFolder, name);
        if (existsAt(dest)) return true;
        QString error;
        if (!QXFileManager::copyItem(source, dest, &error)) {
            QXConsole::print(QStringLiteral("Unable to copy log: %1").arg(error));
            return false;
        }
        ++found;
        return true;
    }

    bool takeMatching(const QString& folder, const QStringList& names, const QString& separator,
                      const QString& suffix) {
        for (const QString& entry : entriesOf(folder)) {
            if (!entry.endsWith(suffix)) continue;
            const bool wanted = std::any_of(names.begin(), names.end(), [&](const QString& n) {
                return entry.startsWith(n + separator);
            });
            if (wanted && !copyEntry(folder, entry)) return false;
        }
        return true;
    }

    bool takePreferences(const QString& prefs, const QStringList& names, bool user) {
        for (const QString& name : names) {
            QString compact = name;
            compact.remove(u' ');
            QString file = QXLocalPaths::vendorPrefix() + compact + QStringLiteral(".plist");
            if (!QFileInfo::exists(QXFileManager::joinPath(prefs, file)))
                file = QXLocalPaths::vendorPrefix() + compact.toLower() + QStringLiteral(".plist");
            if (QFileInfo::exists(QXFileManager::joinPath(prefs, file)) && !copyEntry(prefs, file))
                return false;
            // The user defaults themselves live in a QSettings file on Linux.
            const QString settings = QSettings(QSettings::NativeFormat,
                                               user ? QSettings::UserScope : QSettings::SystemScope,
                                               QStringLiteral("Corvane"), name)
                                         .fileName();
            const QFileInfo settingsInfo(settings);
            if (settingsInfo.isFile() &&
                !copyEntry(settingsInfo.absolutePath(), settingsInfo.fileName()))
                return false;
        }
        return true;
    }
};

QXGatherResult finish(QXGatherResult result, QXGatherResult::Outcome outcome, bool silent) {
    result.outcome = outcome;
    switch (outcome) {
    case QXGatherResult::Outcome::Failed:
        return result;
    case QXGatherResult::Outcome::NoLogsFound:
        result.messageText = QStringLiteral("No logs found");
        result.informativeText = QStringLiteral("There were no logs available to gather.");
        break;
    case QXGatherResult::Outcome::Gathered:
        result.success = true;
        result.messageText = QStringLiteral("Logs gathered successfully");
        result.informativeText = QStringLiteral("The gathered logs were placed on your desktop.");
        break;
    case QXGatherResult::Outcome::NotGathered:
        result.messageText = QStringLiteral("Logs could not be gathered");
        result.informativeText = QStringLiteral("Please check your file permissions.");
        break;
    }
    if (!silent) showAlert(result.messageText, result.informativeText);
    return result;
}

QXViewLogResult viewLog(const QString& path, const QString& missingText) {
    QXViewLogResult result;
    if (!QFileInfo::exists(path)) {
        result.messageText = QStringLiteral("No log found");
        result.informativeText = missingText;
        showAlert(result.messageText, result.informativeText);
        return result;
    }
    result.path = path;
    if (auto fe = frontEnd()) fe->openWithDefaultApplication(path);
    return result;
}

QString corvaneLogs(bool user) {
    return QXLocalPaths::libraryDirectory(user) + QStringLiteral("/Logs/Corvane");
}

} // namespace

void QXTroubleshootingUtils::setFrontEnd(std::shared_ptr<QXTroubleshootingFrontEnd> fe) {
    QMutexLocker lock(&frontEndMutex());
    frontEndSlot() = std::move(fe);
}

QString QXTroubleshootingUtils::workFolder() {
    return QXFileManager::joinPath(QXLocalPaths::tempDirectory(), QStringLiteral("QX_App_Logs"));
}

QXGatherResult QXTroubleshootingUtils::gatherLogsForAppWithName(const QString& name) {
    if (name.isEmpty()) return QXGatherResult();
    return gatherLogsForAppsWithNames({name});
}

QXGatherResult
QXTroubleshootingUtils::gatherLogsForAppsWithNames(const QStringList& names, bool silent,
                                                   const QStringList& additionalFiles) {
    using Outcome = QXGatherResult::Outcome;
    QXGatherResult result;
    if (names.isEmpty()) return result;

    Gatherer g;
    g.work = workFolder();
    namespace fs = std::filesystem;
    const fs::path workPath(QFile::encodeName(g.work).toStdString());
    std::error_code ec;
    if (existsAt(g.work)) {
        fs::remove_all(workPath, ec);
        if (ec) {
            QXConsole::print(QStringLiteral("Error removing existing folder: %1")
                                 .arg(QString::fromLocal8Bit(ec.message().c_str())));
            return result;
        }
    }
    fs::create_directories(workPath, ec);
    if (ec || !QFileInfo(g.work).isDir()) {
        QXConsole::print(QStringLiteral("Error creating temp folder: %1")
                             .arg(ec ? QString::fromLocal8Bit(ec.message().c_str())
                                     : QStringLiteral("Not a directory")));
        return result;
    }

    for (const bool user : {true, false}) {
        const QString logs = corvaneLogs(user);
        const QString reports = QXLocalPaths::logDirectory(user);
        if (!g.takeMatching(logs, names, QString(), QStringLiteral(".log")) ||
            !g.takeMatching(reports + QStringLiteral("/CrashReporter"), names, QStringLiteral("_"),
                            QStringLiteral(".crash")) ||
            !g.takeMatching(reports + QStringLiteral("/DiagnosticReports"), names,
                            QStringLiteral("_"), QStringLiteral(".crash")) ||
            !g.takePreferences(QXLocalPaths::prefsDirectory(user), names, user)) {
            result.found = g.found;
            return result; // the work folder stays for a look at what happened
        }
    }
    result.found = g.found;

    for (const QString& file : additionalFiles) {
        const QFileInfo info(file);
        const QString destFolder = g.mirror(info.absolutePath());
        QString error;
        if (!QXFileManager::isDirectoryAtPath(destFolder))
            QXFileManager::createDirectory(destFolder);
        if (!QXFileManager::copyItem(file, QXFileManager::joinPath(destFolder, info.fileName()),
                                     &error)) {
            QXConsole::print(QStringLiteral("Unable to copy file: %1").arg(error));
            return result;
        }
    }

    if (g.found == 0) {
        QXFileManager::removeFile(g.work, false);
        return finish(result, Outcome::NoLogsFound, silent);
    }

    QString archive =
        QXLocalPaths::desktopDirectory() + QStringLiteral("/%1 Logs.zip").arg(names.first());
    if (existsAt(archive)) {
        archive.chop(4);
        archive +=
            QStringLiteral("_%1.zip").arg(QXDate::compactStamp(QDateTime::currentDateTime()));
        // Twice in one second: a count rather than replacing the earlier archive.
        archive = QXFileManager::uniqueFilename(archive);
    }
    const bool compressed = QXFileManager::compressFile(g.work, archive);
    QXFileManager::removeFile(g.work, false);
    if (!compressed) return finish(result, Outcome::NotGathered, silent);
    result.archivePath = archive;
    return finish(result, Outcome::Gathered, silent);
}

QXViewLogResult QXTroubleshootingUtils::viewLogForApp(const QString& name) {
    return viewLog(corvaneLogs(true) + QStringLiteral("/%1.1.log").arg(name),
                   QStringLiteral("You must perform a task before viewing the log."));
}

QXViewLogResult QXTroubleshootingUtils::viewTaskLogForApp(const QString& name) {
    return viewLog(corvaneLogs(true) + QStringLiteral("/%1.1.task.log").arg(name),
                   QStringLiteral("You must run the application as a task (e.g. through Tasklane) "
                                  "before viewing a log."));
}
