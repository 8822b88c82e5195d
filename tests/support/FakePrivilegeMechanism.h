#pragma once

#include "QXAuthorization.h"
#include "QXLocalPaths.h"
#include "QXTask.h"

#include <QList>
#include <QMutex>
#include <QStringList>

// A privilege mechanism that asks nobody: it records every request, answers
// as scripted and, when told to, runs the tool itself (the tests run as root).
class FakePrivilegeMechanism : public QXPrivilegeMechanism {
public:
    struct Call {
        QString tool;
        QStringList arguments;
        bool wait;
    };
    int interactiveAnswer = 0, credentialsAnswer = 0, executeAnswer = 0;
    bool runForReal = false;
    QStringList rightsAsked, credentials;
    QList<Call> calls;
    int releases = 0;

    int obtainInteractively(const QString& right) override {
        QMutexLocker lock(&m_mutex);
        rightsAsked.append(right);
        return interactiveAnswer;
    }
    int obtainWithCredentials(const QString& right, const QString& user,
                              const QString& password) override {
        QMutexLocker lock(&m_mutex);
        rightsAsked.append(right);
        credentials.append(user + u':' + password);
        return credentialsAnswer;
    }
    int execute(const QString& tool, const QStringList& arguments, bool wait) override {
        {
            QMutexLocker lock(&m_mutex);
            calls.append({tool, arguments, wait});
        }
        if (runForReal) QXTask::runTask(tool, arguments);
        return executeAnswer;
    }
    void release() override {
        QMutexLocker lock(&m_mutex);
        ++releases;
    }

private:
    QMutex m_mutex;
};

// Runs a test as an ordinary user (id 1000, or the given one) with the fake
// mechanism in place, and puts everything back afterwards.
class AsOrdinaryUser {
public:
    explicit AsOrdinaryUser(std::shared_ptr<FakePrivilegeMechanism> fake, bool gui = true,
                            uid_t uid = 1000) {
        QXLocalPaths::setUserIdForTesting(uid);
        QXAuthorization::sharedController().setMechanism(std::move(fake));
        QXAuthorization::sharedController().resetForTesting(gui);
    }
    ~AsOrdinaryUser() {
        QXAuthorization::sharedController().setMechanism(nullptr);
        QXLocalPaths::setUserIdForTesting(std::nullopt);
        QXAuthorization::sharedController().resetForTesting(true);
    }
    AsOrdinaryUser(const AsOrdinaryUser&) = delete;
    AsOrdinaryUser& operator=(const AsOrdinaryUser&) = delete;
};
