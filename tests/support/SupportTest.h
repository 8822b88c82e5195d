#pragma once

#include "QXConsole.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "TempTree.h"

#include <QMutex>
#include <QStringList>

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
    ConsoleCapture(const ConsoleCapture&) = delete;
    ConsoleCapture& operator=(const ConsoleCapture&) = delete;

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
    mutable QMutex m_mutex;
    QStringList m_lines;
};

// Starts a fresh log in the user's log folder. The tests run as root, whose
// log goes to the machine-wide folder; the open file stays in use afterwards.
inline void startUserLog() {
    QXLocalPaths::setUserIdForTesting(1000);
    QXLog::createNewLog();
    QXLocalPaths::setUserIdForTesting(std::nullopt);
}

// The user's current log file's text once every queued line is written.
inline QString currentLogText() {
    QXLog::finishWriting();
    return readText(QXLog::logFolder() + QStringLiteral("/") + QXLog::sharedController().appName() +
                    QStringLiteral(".1.log"));
}
