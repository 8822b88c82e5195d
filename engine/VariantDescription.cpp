#include "VariantDescription.h"

#include "QXDate.h"

#include <QDateTime>

static QString quoteIfNeeded(const QString& s) {
    bool plain = !s.isEmpty();
    for (QChar c : s)
        if (!(c.isLetterOrNumber() || c == u'_' || c == u'.' || c == u'/')) plain = false;
    if (plain) return s;
    QString escaped = s;
    escaped.replace(u'\\', QStringLiteral("\\\\")).replace(u'"', QStringLiteral("\\\""));
    escaped.replace(u'\n', QStringLiteral("\\n"));
    return u'"' + escaped + u'"';
}

QString describeVariant(const QVariant& value, int indent) {
    const QString pad(indent * 4, u' ');
    const QString inner((indent + 1) * 4, u' ');
    switch (value.typeId()) {
    case QMetaType::QVariantMap: {
        const QVariantMap map = value.toMap();
        QString out = QStringLiteral("{\n");
        for (auto it = map.begin(); it != map.end(); ++it)
            out += inner + quoteIfNeeded(it.key()) + QStringLiteral(" = ") +
                   describeVariant(it.value(), indent + 1) + QStringLiteral(";\n");
        return out + pad + u'}';
    }
    case QMetaType::QVariantList:
    case QMetaType::QStringList: {
        const QVariantList list = value.toList();
        QString out = QStringLiteral("(\n");
        for (qsizetype i = 0; i < list.size(); ++i)
            out += inner + describeVariant(list[i], indent + 1) +
                   (i + 1 < list.size() ? QStringLiteral(",\n") : QStringLiteral("\n"));
        return out + pad + u')';
    }
    case QMetaType::QString:
        return quoteIfNeeded(value.toString());
    case QMetaType::Bool:
        return value.toBool() ? QStringLiteral("1") : QStringLiteral("0");
    case QMetaType::QDateTime:
        return QXDate::description(value.toDateTime());
    case QMetaType::ULongLong:
        return QString::number(value.toULongLong());
    default:
        return value.toString();
    }
}
