#include "Preferences.h"

#include <QMutex>
#include <QSettings>

namespace {
QMutex overrideMutex;
std::optional<int> conflictActionOverride;
std::optional<int> commitJobsOverride;

QSettings userDefaults() {
    return QSettings(QStringLiteral("Corvane"), QStringLiteral("Seqmate"));
}
const QString conflictActionKey = QStringLiteral("conflictAction");
const QString commitJobsKey = QStringLiteral("commitJobs");
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

int Preferences::commitJobs() {
    {
        QMutexLocker lock(&overrideMutex);
        if (commitJobsOverride) return *commitJobsOverride;
    }
    bool ok = false;
    const int jobs = userDefaults().value(commitJobsKey, kDefaultCommitJobs).toInt(&ok);
    return ok && jobs >= 1 ? jobs : kDefaultCommitJobs;
}

void Preferences::setCommitJobs(int value) {
    userDefaults().setValue(commitJobsKey, value);
}

void Preferences::setCommitJobsOverride(std::optional<int> value) {
    QMutexLocker lock(&overrideMutex);
    commitJobsOverride = value;
}
