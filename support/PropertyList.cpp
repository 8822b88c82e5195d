#include "PropertyList.h"
#include "PropertyListBinary.h"

#include <QDateTime>
#include <QFile>
#include <QSaveFile>
#include <QTimeZone>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <cmath>
#include <limits>

namespace {

constexpr int kMaxDepth = PropertyListBinary::kMaxDepth;
// Files larger than this are not property lists we write or need to read.
constexpr qint64 kMaxInputBytes = qint64(512) * 1024 * 1024;

// ---- writing --------------------------------------------------------------------------------

// XML 1.0 cannot carry most control characters, U+FFFE/U+FFFF or lone surrogates, not even as
// character references; such a string is refused instead of producing an unreadable file.
bool isXmlText(const QString& text) {
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t c = text.at(i).unicode();
        if (c < 0x20 && c != 0x9 && c != 0xA && c != 0xD) return false;
        if (c == 0xFFFE || c == 0xFFFF) return false;
        if (QChar::isHighSurrogate(c)) {
            if (i + 1 >= n || !QChar::isLowSurrogate(text.at(i + 1).unicode())) return false;
            ++i;
        } else if (QChar::isLowSurrogate(c)) {
            return false;
        }
    }
    return true;
}

QString realText(double value) {
    if (std::isnan(value)) return QStringLiteral("nan");
    if (std::isinf(value))
        return value > 0 ? QStringLiteral("+infinity") : QStringLiteral("-infinity");
    return QString::number(value, 'g', QLocale::FloatingPointShortest);
}

QString dateText(const QDateTime& when) {
    return when.toUTC().toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
}

class XmlWriter {
public:
    explicit XmlWriter(QByteArray* out) : m_xml(out) { m_xml.setAutoFormatting(true); }

    bool document(const QVariant& root) {
        m_xml.setAutoFormattingIndent(-1); // one tab per level
        m_xml.writeStartDocument();
        m_xml.writeDTD(QStringLiteral("<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                      "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">"));
        m_xml.writeStartElement(QStringLiteral("plist"));
        m_xml.writeAttribute(QStringLiteral("version"), QStringLiteral("1.0"));
        if (!value(root, 0)) return false;
        m_xml.writeEndElement();
        m_xml.writeEndDocument();
        return !m_xml.hasError();
    }

    QString error;

private:
    bool text(const QString& element, const QString& content) {
        if (!isXmlText(content)) {
            error = QStringLiteral("a string holds a character that XML cannot carry");
            return false;
        }
        if (!content.contains(u'\r')) {
            m_xml.writeTextElement(element, content);
            return true;
        }
        // A raw carriage return would come back as a newline (XML normalises line ends), so it
        // goes out as a character reference.
        m_xml.writeStartElement(element);
        const QStringList parts = content.split(u'\r');
        for (qsizetype i = 0; i < parts.size(); ++i) {
            if (i > 0) m_xml.writeEntityReference(QStringLiteral("#13"));
            if (!parts[i].isEmpty()) m_xml.writeCharacters(parts[i]);
        }
        m_xml.writeEndElement();
        return true;
    }

    bool value(const QVariant& v, int depth) {
        if (depth > kMaxDepth) {
            error = QStringLiteral("nesting too deep");
            return false;
        }
        switch (v.typeId()) {
        case QMetaType::QVariantMap: {
            m_xml.writeStartElement(QStringLiteral("dict"));
            const QVariantMap map = v.toMap();
            for (auto it = map.cbegin(); it != map.cend(); ++it) {
                if (!text(QStringLiteral("key"), it.key()) || !value(it.value(), depth + 1))
                    return false;
            }
            m_xml.writeEndElement();
            return true;
        }
        case QMetaType::QVariantHash: {
            // Written in sorted key order, as a map would be.
            const QVariantHash hash = v.toHash();
            QVariantMap map;
            for (auto it = hash.cbegin(); it != hash.cend(); ++it)
                map.insert(it.key(), it.value());
            return value(map, depth);
        }
        case QMetaType::QVariantList:
        case QMetaType::QStringList: {
            m_xml.writeStartElement(QStringLiteral("array"));
            const QVariantList list = v.toList();
            for (const QVariant& item : list)
                if (!value(item, depth + 1)) return false;
            m_xml.writeEndElement();
            return true;
        }
        case QMetaType::QString:
            return text(QStringLiteral("string"), v.toString());
        case QMetaType::Bool:
            m_xml.writeEmptyElement(v.toBool() ? QStringLiteral("true") : QStringLiteral("false"));
            return true;
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::Short:
        case QMetaType::Int:
        case QMetaType::Long:
        case QMetaType::LongLong:
            m_xml.writeTextElement(QStringLiteral("integer"), QString::number(v.toLongLong()));
            return true;
        case QMetaType::UChar:
        case QMetaType::UShort:
        case QMetaType::UInt:
        case QMetaType::ULong:
        case QMetaType::ULongLong:
            m_xml.writeTextElement(QStringLiteral("integer"), QString::number(v.toULongLong()));
            return true;
        case QMetaType::Float:
        case QMetaType::Double:
            m_xml.writeTextElement(QStringLiteral("real"), realText(v.toDouble()));
            return true;
        case QMetaType::QDateTime: {
            const QDateTime when = v.toDateTime();
            if (!when.isValid()) break;
            m_xml.writeTextElement(QStringLiteral("date"), dateText(when));
            return true;
        }
        case QMetaType::QDate: {
            const QDate day = v.toDate();
            if (!day.isValid()) break;
            m_xml.writeTextElement(QStringLiteral("date"),
                                   dateText(QDateTime(day, QTime(0, 0), QTimeZone::utc())));
            return true;
        }
        case QMetaType::QByteArray:
            m_xml.writeTextElement(QStringLiteral("data"),
                                   QString::fromLatin1(v.toByteArray().toBase64()));
            return true;
        case QMetaType::QUrl:
        case QMetaType::QChar:
            return text(QStringLiteral("string"), v.toString());
        default:
            break;
        }
        error = QStringLiteral("a value of type %1 has no property-list form")
                    .arg(QString::fromLatin1(v.isValid() ? v.typeName() : "invalid"));
        return false;
    }

    QXmlStreamWriter m_xml;
};

// ---- XML reading ----------------------------------------------------------------------------

class XmlReader {
public:
    explicit XmlReader(const QByteArray& data) : m_xml(data) {}

    QVariant document(QString* error) {
        QVariant root;
        bool sawPlist = false;
        while (!m_xml.atEnd() && m_error.isEmpty()) {
            const auto token = m_xml.readNext();
            if (token == QXmlStreamReader::StartElement) {
                if (sawPlist) {
                    fail(QStringLiteral("more than one root element"));
                    break;
                }
                sawPlist = true;
                if (m_xml.name() == QLatin1String("plist")) {
                    root = plistBody();
                } else {
                    // A bare value without the <plist> wrapper is accepted as the root.
                    root = valueAt(0);
                }
            } else if (token == QXmlStreamReader::Characters && !m_xml.isWhitespace()) {
                fail(QStringLiteral("text outside the root element"));
            }
        }
        if (m_error.isEmpty() && m_xml.hasError()) fail(m_xml.errorString());
        if (m_error.isEmpty() && !sawPlist) fail(QStringLiteral("no property list found"));
        if (!m_error.isEmpty()) {
            if (error) *error = m_error;
            return QVariant();
        }
        return root;
    }

private:
    void fail(const QString& why) {
        if (m_error.isEmpty())
            m_error = QStringLiteral("line %1: %2").arg(m_xml.lineNumber()).arg(why);
    }

    // Next element or end tag, skipping white space and comments; other text is an error.
    QXmlStreamReader::TokenType nextTag() {
        while (!m_xml.atEnd()) {
            const auto token = m_xml.readNext();
            switch (token) {
            case QXmlStreamReader::StartElement:
            case QXmlStreamReader::EndElement:
                return token;
            case QXmlStreamReader::Characters:
                if (!m_xml.isWhitespace()) {
                    fail(QStringLiteral("unexpected text"));
                    return QXmlStreamReader::Invalid;
                }
                break;
            case QXmlStreamReader::Comment:
            case QXmlStreamReader::ProcessingInstruction:
                break;
            case QXmlStreamReader::Invalid:
                fail(m_xml.errorString());
                return token;
            default:
                fail(QStringLiteral("unexpected content"));
                return QXmlStreamReader::Invalid;
            }
        }
        fail(m_xml.hasError() ? m_xml.errorString() : QStringLiteral("unexpected end of file"));
        return QXmlStreamReader::Invalid;
    }

    QVariant plistBody() {
        const auto token = nextTag();
        if (token == QXmlStreamReader::EndElement) {
            fail(QStringLiteral("empty property list"));
            return QVariant();
        }
        if (token != QXmlStreamReader::StartElement) return QVariant();
        QVariant root = valueAt(0);
        if (!m_error.isEmpty()) return QVariant();
        if (nextTag() != QXmlStreamReader::EndElement) {
            fail(QStringLiteral("more than one value in the property list"));
            return QVariant();
        }
        return root;
    }

    // Text of a leaf element; nested elements are an error.
    bool leafText(QString* out) {
        *out = m_xml.readElementText(QXmlStreamReader::ErrorOnUnexpectedElement);
        if (m_xml.hasError()) {
            fail(m_xml.errorString());
            return false;
        }
        return true;
    }

    // Reads the value whose start tag is current; on return its end tag has been consumed.
    QVariant valueAt(int depth) {
        if (depth > kMaxDepth) {
            fail(QStringLiteral("nesting too deep"));
            return QVariant();
        }
        const QStringView name = m_xml.name();
        if (name == QLatin1String("dict")) return dict(depth);
        if (name == QLatin1String("array")) return array(depth);
        if (name == QLatin1String("true") || name == QLatin1String("false")) {
            const bool flag = name == QLatin1String("true");
            QString body;
            if (!leafText(&body)) return QVariant();
            if (!body.trimmed().isEmpty()) {
                fail(QStringLiteral("text inside a boolean"));
                return QVariant();
            }
            return flag;
        }
        const QString element = name.toString();
        QString body;
        if (!leafText(&body)) return QVariant();
        if (element == QLatin1String("string")) return body;
        if (element == QLatin1String("integer")) return integer(body.trimmed());
        if (element == QLatin1String("real")) return real(body.trimmed());
        if (element == QLatin1String("date")) {
            QDateTime when = QDateTime::fromString(body.trimmed(), Qt::ISODate);
            if (!when.isValid()) {
                fail(QStringLiteral("bad date \"%1\"").arg(body.trimmed()));
                return QVariant();
            }
            return when.toUTC();
        }
        if (element == QLatin1String("data")) {
            QByteArray base64 = body.toLatin1();
            base64.replace(' ', "").replace('\t', "").replace('\n', "").replace('\r', "");
            auto decoded =
                QByteArray::fromBase64Encoding(base64, QByteArray::AbortOnBase64DecodingErrors);
            if (!decoded) {
                fail(QStringLiteral("bad base64 data"));
                return QVariant();
            }
            return *decoded;
        }
        fail(QStringLiteral("unknown element <%1>").arg(element));
        return QVariant();
    }

    QVariant integer(const QString& text) {
        bool ok = false;
        if (text.startsWith(u'-')) {
            const qlonglong value = text.toLongLong(&ok);
            if (ok) return value;
        } else {
            const qulonglong value = text.toULongLong(&ok);
            if (ok) {
                if (value <= static_cast<qulonglong>(std::numeric_limits<qint64>::max()))
                    return static_cast<qlonglong>(value);
                return value;
            }
        }
        fail(QStringLiteral("bad integer \"%1\"").arg(text));
        return QVariant();
    }

    QVariant real(const QString& text) {
        const QString lower = text.toLower();
        if (lower == QLatin1String("nan")) return std::numeric_limits<double>::quiet_NaN();
        if (lower == QLatin1String("inf") || lower == QLatin1String("+inf") ||
            lower == QLatin1String("infinity") || lower == QLatin1String("+infinity"))
            return std::numeric_limits<double>::infinity();
        if (lower == QLatin1String("-inf") || lower == QLatin1String("-infinity"))
            return -std::numeric_limits<double>::infinity();
        bool ok = false;
        const double value = text.toDouble(&ok);
        if (!ok) {
            fail(QStringLiteral("bad real \"%1\"").arg(text));
            return QVariant();
        }
        return value;
    }

    QVariant array(int depth) {
        QVariantList list;
        for (;;) {
            const auto token = nextTag();
            if (token == QXmlStreamReader::EndElement) return list;
            if (token != QXmlStreamReader::StartElement) return QVariant();
            QVariant item = valueAt(depth + 1);
            if (!m_error.isEmpty()) return QVariant();
            list.append(std::move(item));
        }
    }

    QVariant dict(int depth) {
        QVariantMap map;
        for (;;) {
            auto token = nextTag();
            if (token == QXmlStreamReader::EndElement) return map;
            if (token != QXmlStreamReader::StartElement) return QVariant();
            if (m_xml.name() != QLatin1String("key")) {
                fail(QStringLiteral("<%1> where a dict key belongs").arg(m_xml.name()));
                return QVariant();
            }
            QString key;
            if (!leafText(&key)) return QVariant();
            token = nextTag();
            if (token == QXmlStreamReader::EndElement) {
                fail(QStringLiteral("dict key \"%1\" without a value").arg(key));
                return QVariant();
            }
            if (token != QXmlStreamReader::StartElement) return QVariant();
            QVariant item = valueAt(depth + 1);
            if (!m_error.isEmpty()) return QVariant();
            map.insert(key, std::move(item));
        }
    }

    QXmlStreamReader m_xml;
    QString m_error;
};

} // namespace

QByteArray PropertyList::toXml(const QVariant& root) {
    QByteArray out;
    XmlWriter writer(&out);
    if (!writer.document(root)) return QByteArray();
    return out;
}

QVariant PropertyList::fromData(const QByteArray& data, QString* error) {
    QString why;
    QVariant result;
    if (data.size() > kMaxInputBytes) {
        why = QStringLiteral("property list too large");
    } else if (data.startsWith("bplist00")) {
        result = PropertyListBinary::read(data, &why);
    } else if (data.trimmed().isEmpty()) {
        why = QStringLiteral("empty property list");
    } else {
        XmlReader reader(data);
        result = reader.document(&why);
    }
    if (!result.isValid() && why.isEmpty()) why = QStringLiteral("malformed property list");
    if (error) *error = result.isValid() ? QString() : why;
    return result;
}

QVariant PropertyList::readFile(const QString& path, QString* error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error) *error = file.errorString();
        return QVariant();
    }
    if (file.size() > kMaxInputBytes) {
        if (error) *error = QStringLiteral("property list too large");
        return QVariant();
    }
    return fromData(file.readAll(), error);
}

bool PropertyList::writeFile(const QString& path, const QVariant& root, QString* error) {
    QByteArray xml;
    XmlWriter writer(&xml);
    if (!writer.document(root)) {
        if (error)
            *error = writer.error.isEmpty() ? QStringLiteral("cannot write XML") : writer.error;
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(xml) != xml.size() || !file.commit()) {
        if (error) *error = file.errorString();
        return false;
    }
    return true;
}
