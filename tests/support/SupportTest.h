#pragma once

// Shared by the support tests: console capture, file helpers, the test log and
// a privilege mechanism that asks nobody.
#include "QXAuthorization.h"
#include "QXConsole.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "QXTask.h"
#include "TempTree.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QMap>
#include <QMutex>
#include <QRegularExpression>
#include <QStringList>
#include <gtest/gtest.h>
#include <zip.h>

#include <functional>
#include <thread>

// Collects what the framework prints to the console while it lives.
class ConsoleCapture {
public:
    ConsoleCapture() {
        QXConsole::setSink([this](const QString& line) {
            QMutexLocker lock(&m_mutex);
            m_lines.append(line);
        });
    }
    ~ConsoleCapture() { QXConsole::setSink(nullptr); }
    QStringList lines() const {
        QMutexLocker lock(&m_mutex);
        return m_lines;
    }
    bool contains(const QString& line) const { return lines().contains(line); }
    void clear() {
        QMutexLocker lock(&m_mutex);
        m_lines.clear();
    }

private:
    mutable QMutex m_mutex; // also makes the capture non-copyable
    QStringList m_lines;
};

// Writes a file at an absolute path, making its folders; false on failure.
inline bool writeFile(const QString& path, const QByteArray& content = "x") {
    QFile f(path);
    return QDir().mkpath(QFileInfo(path).path()) && f.open(QIODevice::WriteOnly) &&
           f.write(content) == content.size();
}

// Whether the whole text matches the regular expression.
inline bool matches(const QString& pattern, const QString& text) {
    return QRegularExpression(QRegularExpression::anchoredPattern(pattern)).match(text).hasMatch();
}

// The entries of a zip archive: name -> (unix mode, data).
inline QMap<QString, std::pair<quint32, QByteArray>> readZip(const QString& path) {
    QMap<QString, std::pair<quint32, QByteArray>> entries;
    zip_t* za = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, nullptr);
    for (zip_int64_t i = 0; za && i < zip_get_num_entries(za, 0); ++i) {
        zip_uint8_t os = 0;
        zip_uint32_t attributes = 0;
        zip_file_get_external_attributes(za, i, 0, &os, &attributes);
        zip_stat_t st;
        zip_stat_index(za, i, 0, &st);
        QByteArray data(static_cast<qsizetype>(st.size), '\0');
        if (zip_file_t* f = zip_fopen_index(za, i, 0)) {
            zip_fread(f, data.data(), st.size);
            zip_fclose(f);
        }
        entries.insert(QString::fromUtf8(zip_get_name(za, i, 0)), {attributes >> 16, data});
    }
    if (za) zip_close(za);
    return entries;
}

// The user's current log file's text once every queued line is written.
inline QString currentLogText() {
    QXLog::finishWriting();
    return readText(QXLog::logFolder() + u'/' + QXLog::sharedController().appName() +
                    QStringLiteral(".1.log"));
}

// Polls until the condition holds, for at most five seconds.
inline bool waitFor(const std::function<bool()>& condition) {
    QElapsedTimer clock;
    clock.start();
    while (!condition() && clock.elapsed() < 5000)
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return condition();
}

// Base of the support tests that share the program's user log.
class SupportTest : public ::testing::Test {
protected:
    // A fresh log in the user's log folder. The tests run as root, whose log
    // goes to the machine-wide folder; the open file stays in use afterwards.
    static void SetUpTestSuite() {
        QXLocalPaths::setUserIdForTesting(1000);
        QXLog::createNewLog();
        QXLocalPaths::setUserIdForTesting(std::nullopt);
    }
    // A path in the temporary tree, and a file made there.
    QString t(const char* relative) const { return tree(QString::fromUtf8(relative)); }
    QString file(const char* relative, const QByteArray& content = "x") const {
        return tree.file(QString::fromUtf8(relative), content);
    }
    ConsoleCapture console;
    TempTree tree;
};

// Records every privilege request and answers as scripted; when told to, it
// runs the tool itself (the tests run as root). Only the test thread calls it.
class FakePrivilegeMechanism : public QXPrivilegeMechanism {
public:
    struct Call {
        QString tool;
        QStringList arguments;
        bool wait;
    };
    int interactiveAnswer = 0, executeAnswer = 0, releases = 0;
    bool runForReal = false;
    QStringList rightsAsked;
    QList<Call> calls;

    int obtainInteractively(const QString& right) override {
        rightsAsked.append(right);
        return interactiveAnswer;
    }
    int obtainWithCredentials(const QString&, const QString&, const QString&) override {
        return -1; // no test grants rights by name and password
    }
    int execute(const QString& tool, const QStringList& arguments, bool wait) override {
        calls.append({tool, arguments, wait});
        if (runForReal) QXTask::runTask(tool, arguments);
        return executeAnswer;
    }
    void release() override { ++releases; }
};

// Runs a test as an ordinary user (id 1000, or the given one) with the fake
// mechanism in place, and puts everything back afterwards.
struct AsOrdinaryUser {
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
};
