#pragma once

#include <QObject>

// The user's preferences as the windows see them: stored with QSettings
// (organization "Corvane", application "Seqmate"), where the engine reads them
// too, and announced when they change so open windows follow at once.
class UserDefaults : public QObject {
    Q_OBJECT
public:
    static UserDefaults* instance(); // main thread only

    static const QString conflictActionKey;
    static const QString showFullSourcePathsKey;
    static const QString commitJobsKey;

    int conflictAction() const;
    bool showFullSourcePaths() const;
    int commitJobs() const; // moves a commit keeps in flight (Preferences::commitJobs)
    // Each stores the value and emits changed when it differs from the stored one.
    void setConflictAction(int action);
    void setShowFullSourcePaths(bool show);
    void setCommitJobs(int jobs);

signals:
    void changed(const QString& key);

private:
    UserDefaults() = default;
};
