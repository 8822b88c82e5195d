#include "QXFileItem.h"

#include "QXDate.h"
#include "QXException.h"

#include <QDataStream>
#include <QDir>
#include <QIODevice>
#include <thread>

class QXFileItem::Guard {
public:
    explicit Guard(const QXFileItem* item) : m_item(item) { m_item->lock(); }
    ~Guard() { m_item->unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

private:
    const QXFileItem* m_item;
};

void QXFileItem::lock() const {
    while (m_lock.test_and_set(std::memory_order_acquire))
        std::this_thread::yield();
}

void QXFileItem::unlock() const {
    m_lock.clear(std::memory_order_release);
}

QXFileItem::QXFileItem(const QXFileItem& other) {
    Guard g(&other);
    m_containerDir = other.m_containerDir;
    m_fileName = other.m_fileName;
    m_padding = other.m_padding;
    m_components = other.m_components; // values are shared until one side edits
    m_hasComponents = other.m_hasComponents;
    m_conflicting.store(other.isConflicting(), std::memory_order_relaxed);
    m_isDir.store(other.isDir(), std::memory_order_relaxed);
}

// ---- name rules ---------------------------------------------------------------------------

const QString& QXFileItem::separatorCharacters() {
    static const QString seps = QStringLiteral("#()-.<>[]_{}");
    return seps;
}

bool QXFileItem::isSeparator(QChar c) {
    switch (c.unicode()) {
    case '#':
    case '(':
    case ')':
    case '-':
    case '.':
    case '<':
    case '>':
    case '[':
    case ']':
    case '_':
    case '{':
    case '}':
        return true;
    default:
        return false;
    }
}

// A run of decimal digits that the plain integer conversion reads in full, and
// that fits the native signed integer: digits of other scripts and overlong
// runs would not survive the round trip.
static bool readFrameDigits(QStringView token, qint64* value) {
    if (token.isEmpty()) return false;
    qint64 v = 0;
    for (QChar c : token) {
        const ushort u = c.unicode();
        if (u < '0' || u > '9') return false;
        const int d = u - '0';
        if (v > (std::numeric_limits<qint64>::max() - d) / 10) return false;
        v = v * 10 + d;
    }
    *value = v;
    return true;
}

QVariant QXFileItem::typedValue(const QString& token) {
    qint64 value = 0;
    if (!readFrameDigits(token, &value)) return token;
    return QVariant::fromValue<qlonglong>(value);
}

QString QXFileItem::lastPathComponent(const QString& path) {
    QStringView v(path);
    while (v.size() > 1 && v.endsWith(u'/'))
        v.chop(1);
    const qsizetype slash = v.lastIndexOf(u'/');
    if (v.size() == path.size() && slash < 0) return path; // a bare name: shared, not copied
    if (slash < 0 || v.size() == 1) return v.toString();
    return v.mid(slash + 1).toString();
}

QString QXFileItem::deletingLastPathComponent(const QString& path) {
    QStringView v(path);
    while (v.size() > 1 && v.endsWith(u'/'))
        v.chop(1);
    const qsizetype slash = v.lastIndexOf(u'/');
    if (slash < 0) return QString();
    if (slash == 0) return QStringLiteral("/");
    return v.left(slash).toString();
}

QString QXFileItem::pathExtension(const QString& name) {
    const QString last = lastPathComponent(name);
    const qsizetype dot = last.lastIndexOf(u'.');
    if (dot <= 0 || dot == last.size() - 1) return QString();
    return last.mid(dot + 1);
}

QString QXFileItem::deletingPathExtension(const QString& name) {
    const QString ext = pathExtension(name);
    if (ext.isEmpty()) return name;
    return name.left(name.size() - ext.size() - 1);
}

QString QXFileItem::expandTilde(const QString& path) {
    if (path == u'~') return QDir::homePath();
    if (path.startsWith(QStringLiteral("~/"))) return QDir::homePath() + path.mid(1);
    return path;
}

QString QXFileItem::abbreviateTilde(const QString& path) {
    const QString home = QDir::homePath();
    if (home.size() > 1 && (path == home || path.startsWith(home + u'/')))
        return u'~' + path.mid(home.size());
    return path;
}

// One shared string per separator character, so parsing allocates none.
static const QString& separatorString(QChar c) {
    static const QString strings[] = {
        QStringLiteral("#"), QStringLiteral("("), QStringLiteral(")"), QStringLiteral("-"),
        QStringLiteral("."), QStringLiteral("<"), QStringLiteral(">"), QStringLiteral("["),
        QStringLiteral("]"), QStringLiteral("_"), QStringLiteral("{"), QStringLiteral("}")};
    const qsizetype i = QXFileItem::separatorCharacters().indexOf(c);
    return strings[i < 0 ? 4 : i];
}

ComponentList QXFileItem::parseName(const QString& name, quint32* padding) {
    const QString last = lastPathComponent(name);
    const QString ext = pathExtension(last);
    const QStringView base =
        ext.isEmpty() ? QStringView(last) : QStringView(last).left(last.size() - ext.size() - 1);

    // Sized exactly: previews keep their lists, and most names have fewer
    // components than a round guess would hold.
    qsizetype separators = 0;
    for (const QChar c : base)
        separators += isSeparator(c) ? 1 : 0;
    ComponentList list;
    list.reserve(2 * separators + 1 + (ext.isEmpty() ? 0 : 2));
    qsizetype start = 0;
    for (qsizetype i = 0; i < base.size(); ++i) {
        const QChar c = base[i];
        if (!isSeparator(c)) continue;
        // A token before a separator is always text, even when it is all
        // digits: only the last token of the base name can be a frame number.
        list.append(NameComponent::filename(base.mid(start, i - start).toString()));
        list.append(NameComponent::separator(separatorString(c)));
        start = i + 1;
    }
    if (start < base.size()) {
        const QStringView token = base.mid(start);
        qint64 value = 0;
        if (readFrameDigits(token, &value)) {
            list.append(NameComponent::frameNumber(QVariant::fromValue<qlonglong>(value)));
            if (padding) *padding = static_cast<quint32>(token.size());
        } else {
            list.append(NameComponent::filename(token.toString()));
        }
    }
    if (!ext.isEmpty()) {
        list.append(NameComponent::separator(separatorString(u'.')));
        list.append(NameComponent::extension(ext));
    }
    return list;
}

static QVariant firstFrameNumber(const ComponentList& list) {
    for (const auto& c : list)
        if (c.kind == ComponentKind::FrameNumber && c.holdsNumber()) return c.value;
    return QVariant();
}

static QString padded(const QVariant& frame, quint32 padding) {
    QString s;
    FrameValue::appendPadded(s, frame, padding);
    return s;
}

QString QXFileItem::buildName(const ComponentList& list, quint32 padding) {
    const QVariant frame = firstFrameNumber(list);
    // Sized up front: every item keeps its name, and growing by appending
    // would leave most of each buffer unused.
    qsizetype length = 0;
    for (const auto& c : list) {
        if (c.value.typeId() == QMetaType::QString)
            length += static_cast<const QString*>(c.value.constData())->size();
        else if (c.kind == ComponentKind::FrameNumber && c.holdsNumber())
            length += FrameValue::paddedLength(frame, padding);
        else
            length += 24; // other numbers and dates: rare; a guess is enough
    }
    QString out;
    out.reserve(length);
    for (const auto& c : list) {
        if (c.value.typeId() == QMetaType::QString) { // most components: text as it stands
            out += *static_cast<const QString*>(c.value.constData());
        } else if (c.holdsNumber()) {
            if (c.kind == ComponentKind::FrameNumber) // the item's first number, with its padding
                FrameValue::appendPadded(out, frame, padding);
            else
                out += QString::number(FrameValue::toUnsigned(c.value));
        } else if (c.value.typeId() == QMetaType::QDateTime) {
            out += QXDate::description(c.value.toDateTime());
        } else {
            out += c.value.toString();
        }
    }
    return out;
}

// ---- creation and accessors ---------------------------------------------------------------

FileItemPtr QXFileItem::fileItemWithFile(const QString& path) {
    auto item = std::make_shared<QXFileItem>();
    const QString expanded = expandTilde(path);
    item->m_containerDir = deletingLastPathComponent(expanded);
    if (item->m_containerDir == u'/') item->m_containerDir.clear(); // fullPath adds the "/"

    // Parsing and rebuilding a name from disk gives back the same text, so the
    // item keeps no component list until one is edited (see components()).
    quint32 padding = 0;
    const QString last = lastPathComponent(expanded);
    const ComponentList parsed = parseName(last, &padding);
    item->m_padding = padding;
    item->m_fileName = buildName(parsed, padding);
    item->m_hasComponents = false;
    if (item->m_fileName != last) { // cannot happen for names parsed here; stay exact anyway
        item->m_components = parsed;
        item->m_hasComponents = true;
    }
    item->m_previewPending = true; // resetPreview, deferred until needed
    return item;
}

// Finds the frame number of a name as parsing would: the last token of the
// base name, when it is a lossless run of decimal digits. No allocation.
static bool lastFrameToken(QStringView name, qsizetype* start, qsizetype* end, qint64* value) {
    qsizetype e = name.size();
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot > 0 && dot < name.size() - 1) e = dot; // drop the extension
    qsizetype b = e;
    while (b > 0 && !QXFileItem::isSeparator(name[b - 1]))
        --b;
    if (!readFrameDigits(name.mid(b, e - b), value)) return false;
    *start = b;
    *end = e;
    return true;
}

quint32 QXFileItem::framePadding(QStringView name) {
    qsizetype start = 0, end = 0;
    qint64 value = 0;
    return lastFrameToken(name, &start, &end, &value) ? static_cast<quint32>(end - start) : 0;
}

FileItemPtr QXFileItem::fileItemInFolder(const QString& folder, const QString& name) {
    auto item = std::make_shared<QXFileItem>();
    item->m_containerDir = folder;
    item->m_fileName = name; // a parsed name rebuilds to itself
    item->m_padding = framePadding(name);
    item->m_previewPending = true;
    return item;
}

void QXFileItem::setIsConflicting(bool v) {
    Guard g(this);
    materializePreviewLocked();
    m_conflicting.store(v, std::memory_order_relaxed);
}

void QXFileItem::setIsDir(bool v) {
    Guard g(this);
    materializePreviewLocked();
    m_isDir.store(v, std::memory_order_relaxed);
}

void QXFileItem::materializePreviewLocked() {
    if (!m_previewPending) return;
    m_previewPending = false;
    auto p = std::make_shared<QXFileItem>();
    p->m_containerDir = m_containerDir;
    p->m_fileName = m_fileName;
    p->m_padding = m_padding;
    p->m_components = m_components;
    p->m_hasComponents = m_hasComponents;
    p->m_conflicting.store(isConflicting(), std::memory_order_relaxed);
    p->m_isDir.store(isDir(), std::memory_order_relaxed);
    m_preview = std::move(p);
}

ComponentList QXFileItem::componentsLocked() const {
    if (m_hasComponents) return m_components;
    return parseName(m_fileName);
}

QString QXFileItem::fileName() const {
    Guard g(this);
    return m_fileName;
}

void QXFileItem::setFileName(const QString& name) {
    Guard g(this);
    if (name == m_fileName) return;
    materializePreviewLocked();
    if (!m_hasComponents) { // keep the components of the old name
        m_components = parseName(m_fileName);
        m_hasComponents = true;
    }
    m_fileName = name;
}

QString QXFileItem::containerDir() const {
    Guard g(this);
    return m_containerDir;
}

void QXFileItem::setContainerDir(const QString& dir) {
    Guard g(this);
    materializePreviewLocked();
    m_containerDir = dir;
}

quint32 QXFileItem::paddingLength() const {
    Guard g(this);
    return m_padding;
}

void QXFileItem::setPaddingLength(quint32 length) {
    Guard g(this);
    materializePreviewLocked();
    m_padding = length;
}

ComponentList QXFileItem::components() const {
    Guard g(this);
    return componentsLocked();
}

void QXFileItem::setComponents(const ComponentList& list) {
    Guard g(this);
    materializePreviewLocked();
    m_components = list;
    m_hasComponents = true;
}

FileItemPtr QXFileItem::previewObject() const {
    Guard g(this);
    const_cast<QXFileItem*>(this)->materializePreviewLocked();
    return m_preview;
}

void QXFileItem::setPreviewObject(FileItemPtr preview) {
    Guard g(this);
    m_previewPending = false;
    m_preview = std::move(preview);
}

void QXFileItem::generateComponentsFromFile(const QString& path) {
    quint32 padding = 0;
    bool found = false;
    ComponentList list = parseName(path, &padding);
    for (const auto& c : list)
        found = found || c.kind == ComponentKind::FrameNumber;
    Guard g(this);
    materializePreviewLocked();
    m_components = std::move(list);
    m_hasComponents = true;
    if (found) m_padding = padding; // untouched when no frame number was found
}

QVariant QXFileItem::frameNumber() const {
    Guard g(this);
    if (!m_hasComponents) { // the parse of the name, without building it
        qsizetype start = 0, end = 0;
        qint64 value = 0;
        if (!lastFrameToken(m_fileName, &start, &end, &value)) return QVariant();
        return QVariant::fromValue<qlonglong>(value);
    }
    return firstFrameNumber(m_components);
}

void QXFileItem::setFrameNumber(const QVariant& number) {
    ComponentList list = components();
    if (!number.isNull()) {
        for (auto& c : list) {
            if (c.kind == ComponentKind::FrameNumber) {
                c.value = number;
                setComponents(list);
                return;
            }
        }
        const NameComponent sep = NameComponent::separator(u'.');
        const NameComponent frame = NameComponent::frameNumber(number);
        if (!list.isEmpty() && list.last().kind == ComponentKind::FileExtension) {
            if (list.size() < 2)
                throw QXException(QXException::rangeError(),
                                  QStringLiteral("index -1 beyond bounds for setFrameNumber"));
            list.insert(list.size() - 2, sep);   // at count - 2
            list.insert(list.size() - 2, frame); // at the new count - 2
        } else {
            list.append(sep);
            list.append(frame);
        }
        setComponents(list);
        return;
    }
    qsizetype index = -1;
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (list[i].kind == ComponentKind::FrameNumber) {
            index = i;
            break;
        }
    }
    if (index < 0) return; // nothing to remove; the list is not even stored again
    const ComponentList before = list;
    const NameComponent removed = list[index];
    list.removeAll(removed); // by equality: every component equal to it goes
    if (index > 0 && before[index - 1].kind == ComponentKind::Separator) {
        if (index - 1 < list.size()) list.removeAt(index - 1);
    }
    setComponents(list);
}

QString QXFileItem::paddedFrameNumber() const {
    const QVariant frame = frameNumber();
    Guard g(this);
    return padded(frame, m_padding);
}

QString QXFileItem::proposedFileName() const {
    Guard g(this);
    if (m_hasComponents) return buildName(m_components, m_padding);
    // The name rebuilt from its own parse differs only in the frame number's
    // padding, so only that token is rewritten.
    qsizetype start = 0, end = 0;
    qint64 value = 0;
    if (!lastFrameToken(m_fileName, &start, &end, &value)) return m_fileName;
    QString out;
    out.reserve(m_fileName.size() + m_padding);
    out += QStringView(m_fileName).left(start);
    FrameValue::appendPadded(out, QVariant::fromValue<qlonglong>(value), m_padding);
    out += QStringView(m_fileName).mid(end);
    return out;
}

void QXFileItem::synchronize() {
    setFileName(proposedFileName());
}

void QXFileItem::takeNameFrom(const QXFileItem& other) {
    ComponentList list;
    quint32 padding = 0;
    {
        Guard g(&other);
        list = other.componentsLocked();
        padding = other.m_padding;
    }
    Guard g(this);
    materializePreviewLocked();
    m_components = std::move(list);
    m_hasComponents = true;
    m_padding = padding;
}

void QXFileItem::resetPreview() {
    auto fresh = copy();
    Guard g(this);
    m_previewPending = false;
    m_preview = std::move(fresh);
}

QString QXFileItem::fullPath() const {
    Guard g(this);
    return m_containerDir + u'/' + m_fileName;
}

QString QXFileItem::displayName() const {
    return abbreviateTilde(fullPath());
}

int QXFileItem::previewFilenameCompare(const QXFileItem* other) const {
    if (!other) return 1;
    const FileItemPtr mine = previewObject();
    const FileItemPtr theirs = other->previewObject();
    if (!mine) return 0; // a message to nothing answers the zero ordering
    if (!theirs) return 1;
    const int r = QString::compare(mine->fileName(), theirs->fileName(), Qt::CaseSensitive);
    return r < 0 ? -1 : (r > 0 ? 1 : 0);
}

int QXFileItem::frameNumberCompare(const QXFileItem* other) const {
    if (!other) return 1;
    const QVariant theirs = other->frameNumber();
    if (theirs.isNull()) return 1;
    const QVariant mine = frameNumber();
    if (mine.isNull()) return 0; // kept: the mixed-list sort order depends on it
    return FrameValue::compare(mine, theirs);
}

// ---- archiving ----------------------------------------------------------------------------

static constexpr quint32 kArchiveMagic = 0x51584649; // "QXFI"
static constexpr quint16 kArchiveVersion = 1;

QByteArray QXFileItem::encode() const {
    QByteArray out;
    QDataStream s(&out, QIODevice::WriteOnly);
    s.setVersion(QDataStream::Qt_6_4);
    const ComponentList comps = components();
    s << kArchiveMagic << kArchiveVersion;
    s << containerDir() << fileName();
    s << QStringLiteral("paddingLength") << static_cast<qint64>(paddingLength());
    s << static_cast<quint32>(comps.size());
    for (const auto& c : comps)
        s << componentKindName(c.kind) << c.value;
    s << QStringLiteral("isConflicting") << static_cast<qint64>(isConflicting() ? 1 : 0);
    s << QStringLiteral("isDir") << static_cast<qint64>(isDir() ? 1 : 0);
    return out;
}

FileItemPtr QXFileItem::decode(const QByteArray& data) {
    QDataStream s(data);
    s.setVersion(QDataStream::Qt_6_4);
    quint32 magic = 0;
    quint16 version = 0;
    s >> magic >> version;
    if (magic != kArchiveMagic || version != kArchiveVersion) return nullptr;
    auto item = std::make_shared<QXFileItem>();
    QString key;
    qint64 padding = 0, conflicting = 0, dir = 0;
    quint32 count = 0;
    s >> item->m_containerDir >> item->m_fileName;
    s >> key >> padding;
    if (key != QLatin1String("paddingLength")) return nullptr;
    s >> count;
    if (s.status() != QDataStream::Ok || count > 1u << 20) return nullptr;
    ComponentList comps;
    for (quint32 i = 0; i < count; ++i) {
        QString kind;
        QVariant value;
        s >> kind >> value;
        comps.append({componentKindFromName(kind), value});
    }
    s >> key >> conflicting;
    if (key != QLatin1String("isConflicting")) return nullptr;
    s >> key >> dir;
    if (key != QLatin1String("isDir") || s.status() != QDataStream::Ok) return nullptr;
    item->m_padding = static_cast<quint32>(padding);
    item->m_components = std::move(comps);
    item->m_hasComponents = true;
    // The two flags take the integer's low byte as a boolean.
    item->m_conflicting.store((conflicting & 0xff) != 0);
    item->m_isDir.store((dir & 0xff) != 0);
    return item;
}
