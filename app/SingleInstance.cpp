#include "SingleInstance.h"

#include "QXLog.h"

#include <QDataStream>
#include <QDir>
#include <QElapsedTimer>
#include <QLocalServer>
#include <QLocalSocket>

#include <unistd.h>

namespace {

// The reply that tells the sender its paths were taken.
constexpr char acknowledgement = '\x06';
// A hand-over bigger than this is not one of ours.
constexpr quint32 maximumMessage = 64u << 20;

QByteArray encode(const QStringList& paths) {
    QByteArray body;
    QDataStream bodyStream(&body, QIODevice::WriteOnly);
    bodyStream << paths;
    QByteArray message;
    QDataStream head(&message, QIODevice::WriteOnly);
    head << static_cast<quint32>(body.size());
    return message + body;
}

} // namespace

SingleInstance::SingleInstance(const QString& name, QObject* parent)
    : QObject(parent), m_name(name) {}

SingleInstance::~SingleInstance() = default;

QString SingleInstance::defaultName() {
    return QStringLiteral("com.corvane.Seqmate.%1").arg(::getuid());
}

bool SingleInstance::handOver(const QStringList& paths, int timeoutMs) {
    QLocalSocket socket;
    socket.connectToServer(m_name);
    if (!socket.waitForConnected(timeoutMs)) return false;
    QStringList absolute;
    for (const QString& path : paths)
        absolute << QDir::current().absoluteFilePath(path);
    socket.write(encode(absolute));
    QElapsedTimer clock;
    clock.start();
    // The running instance answers from its event loop; it may be busy for a moment.
    while (socket.bytesAvailable() < 1) {
        const qint64 left = timeoutMs - clock.elapsed();
        if (left <= 0 || socket.state() != QLocalSocket::ConnectedState ||
            !socket.waitForReadyRead(static_cast<int>(left)))
            break;
    }
    char reply = 0;
    return socket.read(&reply, 1) == 1 && reply == acknowledgement;
}

bool SingleInstance::listen() {
    if (m_server) return true;
    auto* server = new QLocalServer(this);
    server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!server->listen(m_name)) {
        // Nobody answered handOver(), so a socket file left there belongs to an instance that is
        // gone (it crashed or was killed).
        QLocalServer::removeServer(m_name);
        if (!server->listen(m_name)) {
            QXLog::appendLog(QStringLiteral("Unable to listen for other launches: %1")
                                 .arg(server->errorString()));
            delete server;
            return false;
        }
    }
    m_server = server;
    connect(server, &QLocalServer::newConnection, this, &SingleInstance::readHandOver);
    return true;
}

void SingleInstance::readHandOver() {
    while (QLocalSocket* socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] {
            if (socket->bytesAvailable() < 4) return;
            quint32 size = 0;
            QDataStream head(socket->peek(4));
            head >> size;
            if (size > maximumMessage) {
                socket->abort();
                return;
            }
            if (socket->bytesAvailable() < 4 + static_cast<qint64>(size)) return;
            socket->skip(4);
            QStringList paths;
            QDataStream in(socket->read(size));
            in >> paths;
            if (in.status() != QDataStream::Ok) {
                socket->abort();
                return;
            }
            socket->write(&acknowledgement, 1);
            socket->flush();
            emit filesReceived(paths);
        });
        // The whole message may already be there.
        if (socket->bytesAvailable() > 0) emit socket->readyRead();
    }
}
