#include "QXConsole.h"

#include <QMutex>
#include <cstdio>

namespace {
QMutex& sinkMutex() {
    static QMutex m;
    return m;
}
std::function<void(const QString&)>& sinkSlot() {
    static std::function<void(const QString&)> s;
    return s;
}
} // namespace

void QXConsole::print(const QString& message) {
    QMutexLocker lock(&sinkMutex());
    if (sinkSlot()) {
        sinkSlot()(message);
        return;
    }
    const QByteArray bytes = message.toUtf8();
    std::fprintf(stderr, "%s\n", bytes.constData());
    std::fflush(stderr);
}

void QXConsole::setSink(std::function<void(const QString&)> sink) {
    QMutexLocker lock(&sinkMutex());
    sinkSlot() = std::move(sink);
}
