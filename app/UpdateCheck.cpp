#include "UpdateCheck.h"

#include "DesktopEntry.h"
#include "PropertyList.h"
#include "QXLocalPaths.h"
#include "QXLog.h"

#include <QProcess>

QString UpdateCheck::entryName() {
    return QXLocalPaths::vendorPrefix() + QStringLiteral("SoftwareUpdate.desktop");
}

bool UpdateCheck::isEnabled() {
    const QVariant value = PropertyList::readFile(QXLocalPaths::vendorPreferencesPath())
                               .toMap()
                               .value(QStringLiteral("SUCheckAtStartup"));
    switch (value.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
        return value.toDouble() != 0.0;
    default: // only a number turns the check off
        return true;
    }
}

QStringList UpdateCheck::command(const QString& programPath) {
    const QString path = DesktopEntry::locate(entryName());
    DesktopEntry entry;
    if (path.isEmpty() || !entry.load(path) || !entry.isLaunchable()) return {};
    return entry.command() << QStringLiteral("-checkpath") << programPath;
}

bool UpdateCheck::run(const QString& programPath) {
    if (!isEnabled()) return false;
    QStringList args = command(programPath);
    if (args.isEmpty()) return false;
    const QString program = args.takeFirst();
    if (QProcess::startDetached(program, args)) return true;
    QXLog::appendLog(QStringLiteral("Unable to start the software update: %1").arg(program));
    return false;
}
