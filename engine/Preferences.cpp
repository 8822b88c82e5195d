#include "Preferences.h"

#include <QMutex>
#include <QSettings>

namespace {
QMutex overrideMutex;
std::optional<int> conflictActionOverride;

QSettings userDefaults() {
    return QSettings(QStringLiteral("Corvane"), QStringLiteral("Seqmate"));
}
const QString conflictActionKey = QStringLiteral("conflictAction");
} // namespace

int Preferences::conflictAction() {
    {
        QMutexLocker lock(&overrideMutex);
        if (conflictActionOverride) return *conflictActionOverride;
    }
    return userDefaults().value(conflictActionKey, 0).toInt();
}

bool Preferences::showFullSourcePaths() {
    return userDefaults().value(QStringLiteral("showFullSourcePaths"), 0).toInt() == 1;
}

void Preferences::setConflictAction(int value) {
    userDefaults().setValue(conflictActionKey, value);
}

void Preferences::setConflictActionOverride(std::optional<int> value) {
    QMutexLocker lock(&overrideMutex);
    conflictActionOverride = value;
}
