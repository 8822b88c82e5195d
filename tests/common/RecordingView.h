#pragma once

#include "DocumentView.h"

#include <QList>
#include <QMutex>
#include <QStringList>
#include <atomic>

// A DocumentView for tests: records what the engine shows and answers
// blocking alerts from a script (the default button when the script is empty).
class RecordingView : public DocumentView {
public:
    void reloadTable(bool wait) override {
        QMutexLocker l(&m_mutex);
        (wait ? reloadsWaited : reloadsPosted)++;
    }
    void setSpinner(Spinner which, bool running) override {
        QMutexLocker l(&m_mutex);
        spinnerEvents.append(
            QStringLiteral("%1:%2")
                .arg(which == Spinner::AddFiles ? QStringLiteral("add") : QStringLiteral("preview"))
                .arg(running ? QStringLiteral("start") : QStringLiteral("stop")));
    }
    void setRenameEnabled(bool enabled) override { renameEnabled = enabled; }
    void clearSelection() override { ++selectionCleared; }
    void settingsChanged() override { ++settingsChanges; }
    void taskChanged(int tag, const QString& description) override {
        QMutexLocker l(&m_mutex);
        lastTag = tag;
        lastDescription = description;
    }
    void startProgress(int maximum) override {
        QMutexLocker l(&m_mutex);
        progressEvents.append(QStringLiteral("start:%1").arg(maximum));
    }
    void incrementProgress() override {
        QMutexLocker l(&m_mutex);
        ++progressSteps;
    }
    void endProgress() override {
        QMutexLocker l(&m_mutex);
        progressEvents.append(QStringLiteral("end"));
    }
    int alert(const AlertRequest& request) override {
        QMutexLocker l(&m_mutex);
        alerts.append(request);
        if (!request.block) return -1;
        return answers.isEmpty() ? AlertDefault : answers.takeFirst();
    }
    void requestAttention() override { ++attentionRequests; }

    QList<AlertRequest> alertsSnapshot() {
        QMutexLocker l(&m_mutex);
        return alerts;
    }

    // Public so tests can read them; the mutex guards the lists.
    QList<AlertRequest> alerts;
    QList<int> answers;
    QStringList spinnerEvents;
    QStringList progressEvents;
    int progressSteps = 0;
    std::atomic<int> reloadsWaited{0};
    std::atomic<int> reloadsPosted{0};
    std::atomic<bool> renameEnabled{false};
    std::atomic<int> selectionCleared{0};
    std::atomic<int> settingsChanges{0};
    std::atomic<int> attentionRequests{0};
    int lastTag = -1;
    QString lastDescription;

private:
    QMutex m_mutex;
};
