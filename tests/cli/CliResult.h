#pragma once
// What a run of the built command-line program said, collected once it ends.
#include <QProcess>
#include <QString>
#include <QStringList>

struct CliResult {
    int status = -1; // the exit code; -1 when the program crashed or did not end in time
    QString out;
    QString err;
};

// Arguments written as one line, split at spaces.
inline QStringList words(const QString& line) {
    return line.split(u' ', Qt::SkipEmptyParts);
}

inline CliResult waitForCli(QProcess& p, int timeoutMs) {
    p.waitForFinished(timeoutMs);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

// Runs the built program with no standard input and waits for it.
inline CliResult runCli(const QStringList& args, int timeoutMs = 60000) {
    QProcess p;
    p.start(QStringLiteral(SEQMATE_CLI_PATH), args);
    p.closeWriteChannel();
    return waitForCli(p, timeoutMs);
}
