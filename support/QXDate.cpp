#include "QXDate.h"

#include <ctime>

namespace {
// Formats a moment in local time with the C library: the time zone is read
// once by the process, where QDateTime's local-time conversion consults it
// again for each call (too slow for a log line per renamed file).
QString localFormat(const QDateTime& when, const char* format) {
    const std::time_t t = static_cast<std::time_t>(when.toSecsSinceEpoch());
    std::tm parts{};
    if (!localtime_r(&t, &parts)) return QString();
    char buffer[64];
    const size_t n = std::strftime(buffer, sizeof buffer, format, &parts);
    return QString::fromLatin1(buffer, static_cast<qsizetype>(n));
}
} // namespace

QString QXDate::description(const QDateTime& when) {
    return localFormat(when, "%Y-%m-%d %H:%M:%S %z");
}

QString QXDate::datedSuffix(const QDateTime& when) {
    return localFormat(when, "%Y-%m-%d %H-%M-%S");
}

QString QXDate::compactStamp(const QDateTime& when) {
    return localFormat(when, "%Y%m%d%H%M%S");
}
