// Conform to format: every name is rebuilt from the token field's format
// (kind tokens, free text and separators).
#include "MyDocument.h"
#include "QXException.h"

#include <QDateTime>
#include <QFileInfo>
#include <QSet>

namespace {

const QString kTokenHead = QStringLiteral("@@ ");
const QString kTokenTail = QStringLiteral(" @@");
const QString kFilename = QStringLiteral("Filename");
const QString kFrameNumber = QStringLiteral("Frame Number");
const QString kFileExtension = QStringLiteral("File Extension");
const QString kCreatedDate = QStringLiteral("Created Date");
const QString kTodaysDate = QStringLiteral("Today's Date");
const QString kText = QStringLiteral("Text");
const QString kSeparator = QStringLiteral("Separator");

bool isKindToken(const QVariant& token) {
    if (token.typeId() != QMetaType::QString) return false;
    const QString s = token.toString();
    return s.startsWith(kTokenHead) && s.endsWith(kTokenTail);
}

// "@@ @@" overlaps its own ends and names the empty kind.
QString kindOfToken(const QString& token) {
    return token.mid(3, std::max<qsizetype>(token.size() - 6, 0));
}

QString tokenForKind(const QString& kind) {
    return kTokenHead + kind + kTokenTail;
}

QVariantMap entry(const QString& key, const QVariant& value) {
    QVariantMap m;
    m.insert(key, value);
    return m;
}

qsizetype indexOfString(const QVariantList& list, const QString& s) {
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (list[i].typeId() == QMetaType::QString && list[i].toString() == s) return i;
    }
    return -1;
}

// The index of the "." directly before index, or -1.
qsizetype dotBefore(const QVariantList& list, qsizetype index) {
    if (index > 0 && list[index - 1].typeId() == QMetaType::QString &&
        list[index - 1].toString() == QStringLiteral("."))
        return index - 1;
    return -1;
}

// Hands out vacant frame numbers during one run without rescanning the list
// for every unnumbered file. While previewing the items do not change, so
// the number stays the same for all; when committing, each number given to an
// item of the list raises the highest for the next.
class VacantNumbers {
public:
    explicit VacantNumbers(const MyDocument& doc) : m_doc(doc) {}

    void assignTo(QXFileItem& target) {
        if (!m_scanned) scan();
        const auto next = static_cast<qint64>(static_cast<quint64>(m_highest) + 1);
        target.setFrameNumber(QVariant::fromValue<qlonglong>(next));
        if (m_items.contains(&target) && next > m_highest) m_highest = next;
    }

private:
    void scan() {
        m_scanned = true;
        for (const FileItemPtr& item : m_doc.fileArray()) {
            m_items.insert(item.get());
            m_highest = std::max(m_highest, FrameValue::toSigned(item->frameNumber()));
        }
    }

    const MyDocument& m_doc;
    bool m_scanned = false;
    qint64 m_highest = 0;
    QSet<const QXFileItem*> m_items;
};

} // namespace

QVariant MyDocument::vacantFrameNumber() const {
    qint64 highest = 0;
    for (const FileItemPtr& item : fileArray())
        highest = std::max(highest, FrameValue::toSigned(item->frameNumber()));
    return QVariant::fromValue<qlonglong>(static_cast<qint64>(static_cast<quint64>(highest) + 1));
}

QVariantList MyDocument::formatComponentsFromArray(const QVariantList& tokens) {
    QVariantList format;
    for (const QVariant& token : tokens) {
        if (token.typeId() != QMetaType::QString) continue;
        const QString s = token.toString();
        if (isKindToken(token)) {
            const QString kind = kindOfToken(s);
            format.append(entry(kind, kind));
            continue;
        }
        qsizetype start = 0;
        for (qsizetype i = 0; i < s.size(); ++i) {
            if (!QXFileItem::isSeparator(s[i])) continue;
            if (i > start) format.append(entry(kText, s.mid(start, i - start)));
            format.append(entry(kSeparator, QString(s[i])));
            start = i + 1;
        }
        if (start < s.size()) format.append(entry(kText, s.mid(start)));
    }
    return format;
}

QVariantList MyDocument::insertToken(const QVariantList& tokens, const QString& title) {
    const QString token = tokenForKind(title);
    QVariantList list = tokens;
    QString separator;
    if (!list.isEmpty())
        separator = (title == kFileExtension || title == kFrameNumber) ? QStringLiteral(".")
                                                                       : QStringLiteral("_");
    const qsizetype e = indexOfString(list, tokenForKind(kFileExtension));
    const qsizetype de = e >= 0 ? dotBefore(list, e) : -1;
    const qsizetype f = indexOfString(list, tokenForKind(kFrameNumber));
    const qsizetype df = f >= 0 ? dotBefore(list, f) : -1;

    // A new token goes in front of the frame number (and its dot), else in
    // front of the extension, else at the end.
    qsizetype position = -1;
    if (f >= 0 && (e < 0 || e > f))
        position = df >= 0 ? df : f;
    else if (e >= 0)
        position = de >= 0 ? de : e;

    if (position >= 0) {
        list.insert(position, token);
        if (!separator.isEmpty()) list.insert(position, separator);
    } else {
        if (!separator.isEmpty()) list.append(separator);
        list.append(token);
    }
    return list;
}

void MyDocument::insertToken(const QString& title) {
    setTokens(insertToken(settingsForm().tokens, title));
    generatePreviews();
}

bool MyDocument::processConform(const QVariantMap& s, const FileList& files) {
    const QVariantList format = s.value(QStringLiteral("formatArray")).toList();
    VacantNumbers vacant(*this);
    return runTaskContract("-[MyDocument processConform:files:]", s, files, [&](QXFileItem& t) {
        ComponentList result;
        for (const QVariant& e : format) {
            const QVariantMap m = e.toMap();
            if (m.isEmpty()) continue;
            const QString key = m.firstKey();
            if (key == kFrameNumber) {
                if (!t.hasFrameNumber()) vacant.assignTo(t);
                result.append(NameComponent::frameNumber(t.frameNumber()));
            } else if (key == kFileExtension) {
                result.append(NameComponent::extension(QXFileItem::pathExtension(t.fileName())));
            } else if (key == kSeparator) {
                // A name never begins with a separator, and two in a row
                // collapse to the later one.
                if (result.isEmpty()) continue;
                if (result.last().is(ComponentKind::Separator)) result.removeLast();
                result.append(NameComponent::separator(m.value(key).toString()));
            } else if (key == kFilename) {
                const ComponentList own = t.components();
                if (own.isEmpty())
                    throw QXException(QXException::rangeError(),
                                      QStringLiteral("index 0 beyond bounds for empty array"));
                if (!own.first().is(ComponentKind::Filename)) continue;
                for (const NameComponent& c : own) {
                    if (!c.is(ComponentKind::Filename) && !c.is(ComponentKind::Separator)) break;
                    result.append(c);
                }
            } else if (key == kCreatedDate) {
                const QDateTime created = QFileInfo(t.fullPath()).birthTime();
                if (created.isValid()) result.append({ComponentKind::Date, created});
            } else if (key == kTodaysDate) {
                result.append({ComponentKind::Date, QDateTime::currentDateTime()});
            } else if (key == kText) {
                result.append(NameComponent::filename(m.value(key).toString()));
            }
        }
        t.setComponents(result);
    });
}
