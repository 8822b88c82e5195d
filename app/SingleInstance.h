#pragma once

#include <QObject>
#include <QStringList>

class QLocalServer;

// One running Seqmate per user: a second launch hands its paths to the first
// over a local socket and exits. The first answers every hand-over, so a
// second launch that hears nothing back opens its own window instead.
class SingleInstance : public QObject {
    Q_OBJECT
public:
    // The socket's name; the default is per user.
    explicit SingleInstance(const QString& name = defaultName(), QObject* parent = nullptr);
    ~SingleInstance() override;

    static QString defaultName();

    // Sends the paths (made absolute against the current folder) to a running
    // instance; true when it confirmed them, and this launch should exit.
    bool handOver(const QStringList& paths, int timeoutMs = 3000);
    // Becomes the running instance. A socket left by an instance that is gone
    // is removed first. False when the socket cannot be made.
    bool listen();

signals:
    // A later launch's paths (possibly none: it was only started again).
    void filesReceived(const QStringList& paths);

private:
    void readHandOver();

    QString m_name;
    QLocalServer* m_server = nullptr;
};
