#pragma once

#include <QList>
#include <QString>
#include <QVariant>

// The kind of one name component: the key of its one-key dictionary.
enum class ComponentKind : quint8 {
    Filename,
    Separator,
    FrameNumber,
    FileExtension,
    Date,
    Unknown,
};

QString componentKindName(ComponentKind kind);
// "Filename", "Separator", ... back to the kind; any other text is Unknown.
ComponentKind componentKindFromName(const QString& name);

// One piece of a parsed file name. A small value type (there are millions):
// text kinds hold a QString, "Frame Number" holds an integer (qlonglong as
// parsed, qulonglong once a task has computed it), "Date" a QDateTime.
struct NameComponent {
    ComponentKind kind = ComponentKind::Filename;
    QVariant value;

    static NameComponent filename(const QString& text) { return {ComponentKind::Filename, text}; }
    static NameComponent separator(QChar c) { return {ComponentKind::Separator, QString(c)}; }
    static NameComponent separator(const QString& s) { return {ComponentKind::Separator, s}; }
    static NameComponent frameNumber(const QVariant& n) { return {ComponentKind::FrameNumber, n}; }
    static NameComponent extension(const QString& e) { return {ComponentKind::FileExtension, e}; }

    bool is(ComponentKind k) const { return kind == k; }
    QString text() const { return value.toString(); }
    // True when the value is an integer (the frame number's normal form).
    bool holdsNumber() const;

    bool operator==(const NameComponent& o) const { return kind == o.kind && value == o.value; }
};

using ComponentList = QList<NameComponent>;

// Number helpers for frame-number values, which may be signed or unsigned.
namespace FrameValue {
// Reads the value as the platform's unsigned long (two's complement for
// negative values, 0 for a null or non-number value).
quint64 toUnsigned(const QVariant& v);
qint64 toSigned(const QVariant& v);
// Decimal text as the number prints itself (signed values with their sign).
QString toText(const QVariant& v);
// Appends that text with zeros in front up to `width` characters (a sign
// counts as one), without a string of its own for integer values.
void appendPadded(QString& out, const QVariant& v, qsizetype width);
// How many characters appendPadded would append.
qsizetype paddedLength(const QVariant& v, qsizetype width);
// Three-way numeric comparison of two integer values (-1, 0, 1).
int compare(const QVariant& a, const QVariant& b);
} // namespace FrameValue
