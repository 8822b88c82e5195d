#pragma once

#include <QString>
#include <QtGlobal>

// The process-wide application log: numbered files in the user's library
// folder under "Logs/Corvane", five generations, restarted past 500,000 bytes.
// Every operation is safe from any thread; one writer thread writes in order.
class QXLog {
public:
    static QXLog& sharedController();

    // Rotates the files and starts a new log with its header.
    static void createNewLog(const QString& name = QString());
    // Queues one message (already formatted; a null string does nothing).
    // Short messages logged while little is pending are on disk on return.
    static void appendLog(const QString& message);
    // appendLog for each message in order, handed to the writer at once.
    static void appendLogs(const QStringList& messages);
    // As appendLog, and also prints the message to the console.
    static void appendLogAndPrint(const QString& message);
    // Blocks until every message queued before the call is written. On the writer thread itself
    // (the restart past 500KB calls createNewLog there) it returns at once: the running write is
    // the caller, and the lines behind it are written after it, into the new file.
    static void finishWriting();

    // The base name of the files: the stored name, else the executable's name.
    QString appName() const;
    void setAppName(const QString& name);

    // Paths, for the log viewer, the gatherer and tests.
    static QString logFolder();      // user-domain library + "/Logs/Corvane"
    static QString currentLogPath(); // "<folder>/<appName>.1.log" (super-user rule applied)

    bool loggingDisabled() const;
    quint64 bytesWritten() const;
    quint64 bytesInQueue() const;

    // Test seam: forget the disabled state, the file handle and the counters.
    static void resetForTesting();

    QXLog(const QXLog&) = delete;
    QXLog& operator=(const QXLog&) = delete;

private:
    QXLog();
    ~QXLog() = delete; // never freed during the process
    struct Impl;
    Impl* d;
    friend struct QXLogAccess;
};
