#pragma once

#include <QByteArray>
#include <QString>
#include <QVariant>

// Property lists as QVariant trees: QVariantMap (dict), QVariantList (array),
// QString (string), qlonglong / qulonglong (integer: values above the signed
// range stay unsigned), double (real), bool, QDateTime (date), QByteArray (data).
namespace PropertyList {
// XML property list text, UTF-8.
QByteArray toXml(const QVariant& root);
// Reads XML or binary (by the "bplist00" magic). An invalid input gives an
// invalid QVariant and, when error is given, a short reason.
QVariant fromData(const QByteArray& data, QString* error = nullptr);
QVariant readFile(const QString& path, QString* error = nullptr);
// Writes XML atomically (temporary file, then one rename).
bool writeFile(const QString& path, const QVariant& root, QString* error = nullptr);
} // namespace PropertyList
