#include "QXDate.h"

QString QXDate::description(const QDateTime& when) {
    const QDateTime local = when.toLocalTime();
    const int offset = local.offsetFromUtc();
    const int absMinutes = (offset < 0 ? -offset : offset) / 60;
    const QString zone = QStringLiteral("%1%2%3")
                             .arg(offset < 0 ? QLatin1Char('-') : QLatin1Char('+'))
                             .arg(absMinutes / 60, 2, 10, QLatin1Char('0'))
                             .arg(absMinutes % 60, 2, 10, QLatin1Char('0'));
    return local.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss ")) + zone;
}

QString QXDate::datedSuffix(const QDateTime& when) {
    return when.toLocalTime().toString(QStringLiteral("yyyy-MM-dd HH-mm-ss"));
}

QString QXDate::compactStamp(const QDateTime& when) {
    return when.toLocalTime().toString(QStringLiteral("yyyyMMddHHmmss"));
}
