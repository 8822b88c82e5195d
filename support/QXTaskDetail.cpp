#include "QXTaskDetail.h"

#include "QXConsole.h"
#include "QXException.h"
#include "QXLog.h"

#include <QFile>
#include <QStringDecoder>

#include <cerrno>
#include <climits>
#include <cmath>
#include <cstring>
#include <unistd.h>

namespace QXTaskDetail {

Argv::Argv(const QString& path, const QStringList& arguments) {
    storage.reserve(static_cast<size_t>(arguments.size()) + 1);
    storage.push_back(QFile::encodeName(path));
    for (const QString& a : arguments)
        storage.push_back(a.toUtf8());
    for (QByteArray& s : storage)
        pointers.push_back(s.data());
    pointers.push_back(nullptr);
}

void closeFd(int& fd) {
    if (fd >= 0) ::close(fd);
    fd = -1;
}

QString errnoText(int err) {
    return QString::fromLocal8Bit(std::strerror(err));
}

void reportNotExecutable(const QString& path) {
    const QString line = QStringLiteral("Error: %1 is not executable").arg(path);
    QXConsole::print(line);
    QXLog::appendLog(line);
}

void reportLaunchFailure(const QString& path, const QString& reason, const char* method) {
    QXException::logException(QXException::invalidArgument(),
                              QStringLiteral("launch path %1 not accessible: %2").arg(path, reason),
                              method);
}

bool readSome(int fd, QByteArray& buffer) {
    char chunk[65536];
    for (;;) {
        const ssize_t n = ::read(fd, chunk, sizeof chunk);
        if (n > 0) {
            buffer.append(chunk, static_cast<qsizetype>(n));
            return true;
        }
        if (n < 0 && errno == EINTR) continue;
        return false;
    }
}

int clampSeconds(double timeout) {
    if (!(timeout > 0)) return 0; // negative and NaN fire at once
    if (timeout >= static_cast<double>(INT_MAX)) return INT_MAX;
    return static_cast<int>(std::trunc(timeout));
}

QString decode(const QByteArray& bytes, QXTask::Encoding encoding) {
    switch (encoding) {
    case QXTask::Encoding::ASCII:
        for (char c : bytes)
            if (static_cast<unsigned char>(c) > 0x7f) return QString();
        return QString::fromLatin1(bytes);
    case QXTask::Encoding::Latin1:
        return QString::fromLatin1(bytes);
    case QXTask::Encoding::UTF8: {
        QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
        QString text = decoder(bytes);
        return decoder.hasError() ? QString() : text;
    }
    }
    return QString();
}

} // namespace QXTaskDetail
