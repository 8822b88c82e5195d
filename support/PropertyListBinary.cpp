// Binary property lists, read through libplist's C API after a structural check of our own.
#include "PropertyListBinary.h"

#include <QDateTime>
#include <QTimeZone>

#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <memory>
#include <vector>

namespace {

using PropertyListBinary::kMaxDepth;
// A binary list can reference one object many times; its expanded tree is capped.
constexpr quint64 kMaxExpandedObjects = 20'000'000;

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

} // namespace

QVariant PropertyListBinary::read(const QByteArray& data, QString* why) {
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
