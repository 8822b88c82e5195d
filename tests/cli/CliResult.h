#pragma once
// What a run of the built command-line program said, collected once it ends.
#include <QProcess>
#include <QString>

struct CliResult {
    int status = -1; // the exit code; -1 when the program crashed or did not end in time
    QString out;
    QString err;
};

inline CliResult waitForCli(QProcess& p, int timeoutMs) {
    p.waitForFinished(timeoutMs);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}
