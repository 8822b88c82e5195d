#include "NameComponent.h"

#include <charconv>

QString componentKindName(ComponentKind kind) {
    switch (kind) {
    case ComponentKind::Filename:
        return QStringLiteral("Filename");
    case ComponentKind::Separator:
        return QStringLiteral("Separator");
    case ComponentKind::FrameNumber:
        return QStringLiteral("Frame Number");
    case ComponentKind::FileExtension:
        return QStringLiteral("File Extension");
    case ComponentKind::Date:
        return QStringLiteral("Date");
    case ComponentKind::Unknown:
        break;
    }
    return QStringLiteral("Unknown");
}

ComponentKind componentKindFromName(const QString& name) {
    for (auto k : {ComponentKind::Filename, ComponentKind::Separator, ComponentKind::FrameNumber,
                   ComponentKind::FileExtension, ComponentKind::Date}) {
        if (componentKindName(k) == name) return k;
    }
    return ComponentKind::Unknown;
}

static bool isSignedInt(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::LongLong:
    case QMetaType::Long:
    case QMetaType::Short:
        return true;
    default:
        return false;
    }
}

static bool isUnsignedInt(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::UInt:
    case QMetaType::ULongLong:
    case QMetaType::ULong:
    case QMetaType::UShort:
        return true;
    default:
        return false;
    }
}

bool NameComponent::holdsNumber() const {
    return isSignedInt(value) || isUnsignedInt(value);
}

quint64 FrameValue::toUnsigned(const QVariant& v) {
    if (isUnsignedInt(v)) return v.toULongLong();
    if (isSignedInt(v)) return static_cast<quint64>(v.toLongLong());
    return 0;
}

qint64 FrameValue::toSigned(const QVariant& v) {
    if (isUnsignedInt(v)) return static_cast<qint64>(v.toULongLong());
    if (isSignedInt(v)) return v.toLongLong();
    return 0;
}

QString FrameValue::toText(const QVariant& v) {
    QString text;
    appendPadded(text, v, 0);
    return text;
}

namespace {
// The decimal digits (and sign) of an integer value; 0 for any other value.
qsizetype integerDigits(const QVariant& v, char (&digits)[24]) {
    if (isUnsignedInt(v))
        return std::to_chars(digits, digits + sizeof digits, v.toULongLong()).ptr - digits;
    if (isSignedInt(v))
        return std::to_chars(digits, digits + sizeof digits, v.toLongLong()).ptr - digits;
    return 0;
}
} // namespace

void FrameValue::appendPadded(QString& out, const QVariant& v, qsizetype width) {
    char digits[24];
    const qsizetype n = integerDigits(v, digits);
    if (n == 0) {
        const QString s = v.toString();
        if (width > s.size()) out.resize(out.size() + width - s.size(), u'0');
        out += s;
        return;
    }
    if (width > n) out.resize(out.size() + width - n, u'0');
    out += QLatin1StringView(digits, n);
}

qsizetype FrameValue::paddedLength(const QVariant& v, qsizetype width) {
    char digits[24];
    const qsizetype n = integerDigits(v, digits);
    return qMax(width, n != 0 ? n : v.toString().size());
}

int FrameValue::compare(const QVariant& a, const QVariant& b) {
    const bool aNeg = isSignedInt(a) && a.toLongLong() < 0;
    const bool bNeg = isSignedInt(b) && b.toLongLong() < 0;
    if (aNeg != bNeg) return aNeg ? -1 : 1;
    if (aNeg) {
        const qint64 x = a.toLongLong(), y = b.toLongLong();
        return x < y ? -1 : (x > y ? 1 : 0);
    }
    const quint64 x = toUnsigned(a), y = toUnsigned(b);
    return x < y ? -1 : (x > y ? 1 : 0);
}
