#pragma once

#include <QDateTime>
#include <QString>

namespace QXDate {
// The platform's default text form of a date-time: "2011-03-24 10:45:32 +0100"
// (local time, with the offset from UTC).
QString description(const QDateTime& when);
// Local time in the dated-name form "%Y-%m-%d %H-%M-%S" (2011-03-03 14-05-09).
QString datedSuffix(const QDateTime& when);
// Local time as "%Y%m%d%H%M%S" (20110303140509).
QString compactStamp(const QDateTime& when);
} // namespace QXDate
