#include "PropertyList.h"

#include <QDateTime>
#include <QFile>
#include <QSaveFile>
#include <QTimeZone>
#include <QXmlStreamReader>
#include <QXmlStreamWriter>

#include <plist/plist.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

namespace {

// Nesting deeper than this is refused rather than walked (a recursion on hostile input).
constexpr int kMaxDepth = 512;
// Files larger than this are not property lists we write or need to read.
constexpr qint64 kMaxInputBytes = qint64(512) * 1024 * 1024;
// A binary list can reference one object many times; its expanded tree is capped.
constexpr quint64 kMaxExpandedObjects = 20'000'000;

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

// ---- binary reading -------------------------------------------------------------------------

// A structural pass over the binary format before the library parses it: offsets in range,
// references valid, no cycles, nesting within kMaxDepth and a bounded expanded size, so that the
// library's recursive parser never meets input it could overflow its stack or memory on.
class BinaryCheck {
public:
    explicit BinaryCheck(const QByteArray& data)
        : m_data(reinterpret_cast<const uchar*>(data.constData())),
          m_size(static_cast<quint64>(data.size())) {}

    bool run(QString* why) {
        if (m_size < 8 + 32) return bad(why, QStringLiteral("truncated binary property list"));
        const uchar* trailer = m_data + m_size - 32;
        m_offsetSize = trailer[6];
        m_refSize = trailer[7];
        m_count = be(trailer + 8, 8);
        const quint64 top = be(trailer + 16, 8);
        const quint64 tableOffset = be(trailer + 24, 8);
        if (m_offsetSize < 1 || m_offsetSize > 8 || m_refSize < 1 || m_refSize > 8)
            return bad(why, QStringLiteral("bad binary property list trailer"));
        if (m_count == 0 || top >= m_count || tableOffset < 8 || tableOffset >= m_size - 32 ||
            m_count > (m_size - 32 - tableOffset) / m_offsetSize)
            return bad(why, QStringLiteral("bad binary property list offset table"));
        m_tableOffset = tableOffset;
        m_state.assign(m_count, 0);
        m_expanded.assign(m_count, 0);
        m_height.assign(m_count, 0);
        if (!visit(top, why)) return false;
        return true;
    }

private:
    static bool bad(QString* why, const QString& text) {
        *why = text;
        return false;
    }

    quint64 be(const uchar* p, int n) const {
        quint64 v = 0;
        for (int i = 0; i < n; ++i)
            v = (v << 8) | p[i];
        return v;
    }

    bool objectOffset(quint64 index, quint64* offset) const {
        const uchar* entry = m_data + m_tableOffset + index * m_offsetSize;
        *offset = be(entry, m_offsetSize);
        return *offset >= 8 && *offset < m_tableOffset;
    }

    // Length of an object from its marker's low nibble, or from the integer that follows.
    bool length(quint64* pos, uchar info, quint64* out) const {
        if (info != 0xF) {
            *out = info;
            return true;
        }
        if (*pos >= m_tableOffset) return false;
        const uchar marker = m_data[*pos];
        if ((marker & 0xF0) != 0x10) return false;
        const quint64 bytes = quint64(1) << (marker & 0x0F);
        if (bytes > 8 || *pos + 1 + bytes > m_tableOffset) return false;
        *out = be(m_data + *pos + 1, static_cast<int>(bytes));
        *pos += 1 + bytes;
        return true;
    }

    // Iterative depth-first walk (the input decides the depth, so no recursion here).
    bool visit(quint64 root, QString* why) {
        struct Frame {
            quint64 index;
            std::vector<quint64> children;
            size_t next = 0;
        };
        std::vector<Frame> stack;
        auto enter = [&](quint64 index) -> bool {
            Frame frame{index, {}, 0};
            if (!children(index, &frame.children, why)) return false;
            m_state[index] = 1;
            stack.push_back(std::move(frame));
            if (stack.size() > static_cast<size_t>(kMaxDepth) + 1)
                return bad(why, QStringLiteral("nesting too deep"));
            return true;
        };
        if (!enter(root)) return false;
        while (!stack.empty()) {
            Frame& top = stack.back();
            if (top.next < top.children.size()) {
                const quint64 child = top.children[top.next++];
                if (child >= m_count) return bad(why, QStringLiteral("bad object reference"));
                if (m_state[child] == 1)
                    return bad(why, QStringLiteral("object references itself"));
                if (m_state[child] == 0 && !enter(child)) return false;
                continue;
            }
            quint64 expanded = 1;
            quint32 height = 0;
            for (quint64 child : top.children) {
                expanded += m_expanded[child];
                height = std::max(height, m_height[child] + 1);
                if (expanded > kMaxExpandedObjects)
                    return bad(why, QStringLiteral("binary property list too large"));
            }
            if (height > static_cast<quint32>(kMaxDepth))
                return bad(why, QStringLiteral("nesting too deep"));
            m_expanded[top.index] = expanded;
            m_height[top.index] = height;
            m_state[top.index] = 2;
            stack.pop_back();
        }
        return true;
    }

    bool children(quint64 index, std::vector<quint64>* out, QString* why) {
        quint64 pos = 0;
        if (!objectOffset(index, &pos)) return bad(why, QStringLiteral("bad object offset"));
        const uchar marker = m_data[pos++];
        const uchar kind = marker >> 4;
        const uchar info = marker & 0x0F;
        const auto truncated = [&] { return bad(why, QStringLiteral("truncated object")); };
        switch (kind) {
        case 0x0: // null, booleans, fill
            return true;
        case 0x1: { // integer of 2^info bytes
            const quint64 bytes = quint64(1) << std::min<uchar>(info, 5);
            if (bytes > 16 || pos + bytes > m_tableOffset) return truncated();
            return true;
        }
        case 0x2: // real
        case 0x3: // date
            return pos + (quint64(1) << std::min<uchar>(info, 4)) <= m_tableOffset ? true
                                                                                   : truncated();
        case 0x4: // data, ASCII and UTF-16 strings, uid
        case 0x5:
        case 0x6: {
            quint64 n = 0;
            if (!length(&pos, info, &n)) return truncated();
            const quint64 unit = kind == 0x6 ? 2 : 1;
            if (n > (m_tableOffset - pos) / unit) return truncated();
            return true;
        }
        case 0x8:
            return pos + info + 1 <= m_tableOffset ? true : truncated();
        case 0xA:   // array
        case 0xC:   // set
        case 0xD: { // dict: keys, then values
            quint64 n = 0;
            if (!length(&pos, info, &n)) return truncated();
            const quint64 refs = kind == 0xD ? n * 2 : n;
            if (n > m_size || refs > (m_tableOffset - pos) / m_refSize) return truncated();
            out->reserve(static_cast<size_t>(refs));
            for (quint64 i = 0; i < refs; ++i)
                out->push_back(be(m_data + pos + i * m_refSize, m_refSize));
            return true;
        }
        default:
            return bad(
                why,
                QStringLiteral("unknown object type 0x%1").arg(marker, 2, 16, QLatin1Char('0')));
        }
    }

    const uchar* m_data;
    quint64 m_size;
    int m_offsetSize = 0;
    int m_refSize = 0;
    quint64 m_count = 0;
    quint64 m_tableOffset = 0;
    std::vector<uchar> m_state; // 0 unseen, 1 on the current path, 2 done
    std::vector<quint64> m_expanded;
    std::vector<quint32> m_height;
};

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};

QVariant fromNode(plist_t node, int depth, QString* why) {
    if (!node || depth > kMaxDepth) {
        *why = QStringLiteral("bad binary property list");
        return QVariant();
    }
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        uint8_t v = 0;
        plist_get_bool_val(node, &v);
        return v != 0;
    }
    case PLIST_UINT: {
        uint64_t v = 0;
        plist_get_uint_val(node, &v);
        // The library reports every integer unsigned: values past the signed range stay
        // unsigned (a negative number comes back as its two's complement).
        const auto u = static_cast<quint64>(v);
        if (u > static_cast<quint64>(std::numeric_limits<qint64>::max()))
            return static_cast<qulonglong>(u);
        return static_cast<qlonglong>(u);
    }
    case PLIST_UID: {
        uint64_t v = 0;
        plist_get_uid_val(node, &v);
        return static_cast<qulonglong>(v);
    }
    case PLIST_REAL: {
        double v = 0;
        plist_get_real_val(node, &v);
        return v;
    }
    case PLIST_STRING:
    case PLIST_KEY: {
        char* text = nullptr;
        if (plist_get_node_type(node) == PLIST_KEY)
            plist_get_key_val(node, &text);
        else
            plist_get_string_val(node, &text);
        const QString s = QString::fromUtf8(text);
        std::free(text);
        return s;
    }
    case PLIST_DATE: {
        int32_t sec = 0, usec = 0;
        plist_get_date_val(node, &sec, &usec);
        // Seconds from 2001-01-01 00:00:00 UTC, the binary format's epoch.
        const QDateTime epoch(QDate(2001, 1, 1), QTime(0, 0), QTimeZone::utc());
        return epoch.addMSecs(qint64(sec) * 1000 + usec / 1000);
    }
    case PLIST_DATA: {
        char* bytes = nullptr;
        uint64_t length = 0;
        plist_get_data_val(node, &bytes, &length);
        QByteArray data(bytes, static_cast<qsizetype>(length));
        std::free(bytes);
        return data;
    }
    case PLIST_ARRAY: {
        QVariantList list;
        const uint32_t n = plist_array_get_size(node);
        list.reserve(n);
        for (uint32_t i = 0; i < n; ++i) {
            QVariant item = fromNode(plist_array_get_item(node, i), depth + 1, why);
            if (!item.isValid()) return QVariant();
            list.append(std::move(item));
        }
        return list;
    }
    case PLIST_DICT: {
        QVariantMap map;
        plist_dict_iter it = nullptr;
        plist_dict_new_iter(node, &it);
        for (;;) {
            char* key = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, it, &key, &value);
            if (!key) break;
            const QString name = QString::fromUtf8(key);
            std::free(key);
            QVariant item = fromNode(value, depth + 1, why);
            if (!item.isValid()) {
                std::free(it);
                return QVariant();
            }
            map.insert(name, std::move(item));
        }
        std::free(it);
        return map;
    }
    default:
        *why = QStringLiteral("unsupported binary property list value");
        return QVariant();
    }
}

QVariant fromBinary(const QByteArray& data, QString* why) {
    if (data.size() > std::numeric_limits<uint32_t>::max()) {
        *why = QStringLiteral("binary property list too large");
        return QVariant();
    }
    BinaryCheck check(data);
    if (!check.run(why)) return QVariant();
    plist_t raw = nullptr;
    plist_from_bin(data.constData(), static_cast<uint32_t>(data.size()), &raw);
    std::unique_ptr<void, PlistFree> root(raw);
    if (!root) {
        *why = QStringLiteral("malformed binary property list");
        return QVariant();
    }
    return fromNode(root.get(), 0, why);
}

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
        result = fromBinary(data, &why);
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
