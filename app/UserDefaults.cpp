#include "UserDefaults.h"

#include "Preferences.h"

#include <QSettings>

const QString UserDefaults::conflictActionKey = QStringLiteral("conflictAction");
const QString UserDefaults::showFullSourcePathsKey = QStringLiteral("showFullSourcePaths");
const QString UserDefaults::commitJobsKey = QStringLiteral("commitJobs");

namespace {
QSettings userDefaults() {
    return QSettings(QStringLiteral("Corvane"), QStringLiteral("Seqmate"));
}
} // namespace

UserDefaults* UserDefaults::instance() {
    static UserDefaults* const shared = new UserDefaults; // lives as long as the program
    return shared;
}

int UserDefaults::conflictAction() const {
    return userDefaults().value(conflictActionKey, 0).toInt();
}

bool UserDefaults::showFullSourcePaths() const {
    return userDefaults().value(showFullSourcePathsKey, 0).toInt() == 1;
}

void UserDefaults::setConflictAction(int action) {
    QSettings settings = userDefaults();
    if (settings.contains(conflictActionKey) && settings.value(conflictActionKey).toInt() == action)
        return;
    settings.setValue(conflictActionKey, action);
    settings.sync(); // the commit thread reads it through a settings object of its own
    emit changed(conflictActionKey);
}

void UserDefaults::setShowFullSourcePaths(bool show) {
    if (userDefaults().contains(showFullSourcePathsKey) && showFullSourcePaths() == show) return;
    QSettings settings = userDefaults();
    settings.setValue(showFullSourcePathsKey, show ? 1 : 0);
    settings.sync();
    emit changed(showFullSourcePathsKey);
}

int UserDefaults::commitJobs() const {
    return Preferences::commitJobs();
}

void UserDefaults::setCommitJobs(int jobs) {
    if (userDefaults().contains(commitJobsKey) && commitJobs() == jobs) return;
    Preferences::setCommitJobs(jobs); // its settings object writes the file as it goes
    emit changed(commitJobsKey);
}
