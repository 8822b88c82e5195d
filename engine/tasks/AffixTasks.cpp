// Affix, extension and character-range tasks. The component tasks insert or
// remove whole components; the character-position tasks edit the base name as
// text (frame number and separators included) and have it parsed again.
#include "MyDocument.h"
#include "QXException.h"
#include "TaskRun.h"

namespace {

// A text setting the task cannot work without: missing and empty alike. The
// task returns false without a message; the reason is kept for the front end.
QString requiredText(const QVariantMap& s, const QString& key) {
    QString text = s.value(key).toString();
    if (text.isEmpty()) TaskRun::reportMissingSetting(key);
    return text;
}

// The numeric settings of the character tasks hold the field's text.
qint64 integerSetting(const QVariantMap& s, const QString& key) {
    return leadingInteger(s.value(key).toString());
}

// "L > x" where x is read as unsigned: a negative setting never passes.
bool longerThan(qsizetype length, qint64 x) {
    return static_cast<quint64>(length) > static_cast<quint64>(x);
}

// Splits the item's name into base name and extension, lets edit rewrite the
// base name and has the item parse the rebuilt name.
template <typename Edit> void editBaseName(QXFileItem& target, Edit edit) {
    const QString name = target.fileName();
    const QString extension = QXFileItem::pathExtension(name);
    const QString base = QXFileItem::deletingPathExtension(name);
    QString rebuilt = edit(base);
    if (!extension.isEmpty()) rebuilt += u'.' + extension;
    target.generateComponentsFromFile(rebuilt);
}

void insertAt(ComponentList& list, qsizetype index, const NameComponent& c) {
    if (index < 0 || index > list.size()) {
        throw QXException(QXException::rangeError(),
                          list.isEmpty()
                              ? QStringLiteral("index %1 beyond bounds for empty array").arg(index)
                              : QStringLiteral("index %1 beyond bounds [0 .. %2]")
                                    .arg(index)
                                    .arg(list.size() - 1));
    }
    list.insert(index, c);
}

} // namespace

bool MyDocument::processAddPrefix(const QVariantMap& s, const FileList& files) {
    const QString prefix = requiredText(s, QStringLiteral("prefix"));
    if (prefix.isEmpty()) return false;
    return runTaskContract(
        "-[MyDocument processAddPrefix:files:]", s, files,
        [&prefix](QXFileItem& t) {
            // A new list of the exact size: prepending to the parsed one
            // would reallocate it with room to spare, kept by every item.
            const ComponentList old = t.components();
            ComponentList list;
            list.reserve(old.size() + 1);
            list.append(NameComponent::filename(prefix));
            list.append(old);
            t.setComponents(list);
        },
        false, EditScope::Item);
}

bool MyDocument::processAddSuffix(const QVariantMap& s, const FileList& files) {
    const QString suffix = requiredText(s, QStringLiteral("suffix"));
    if (suffix.isEmpty()) return false;
    const bool beforeFrame = s.value(QStringLiteral("addBeforeFrame")).toBool();
    return runTaskContract(
        "-[MyDocument processAddSuffix:files:]", s, files,
        [&suffix, beforeFrame](QXFileItem& t) {
            ComponentList list = t.components();
            const NameComponent text = NameComponent::filename(suffix);
            for (qsizetype i = list.size() - 1; i >= 0; --i) {
                if (!beforeFrame && list[i].is(ComponentKind::FrameNumber)) {
                    list.insert(i + 1, text);
                    list.insert(i + 1, NameComponent::separator(u'.'));
                    t.setComponents(list);
                    return;
                }
                if (list[i].is(ComponentKind::Filename)) {
                    list.insert(i + 1, text);
                    t.setComponents(list);
                    return;
                }
            }
            // After the first component, whatever it is; an
            // empty list has no index 1 and fails the task.
            insertAt(list, 1, text);
            t.setComponents(list);
        },
        true, EditScope::Item);
}

bool MyDocument::processChangeFileExtension(const QVariantMap& s, const FileList& files) {
    const QString extension = requiredText(s, QStringLiteral("fileExt"));
    if (extension.isEmpty()) return false;
    return runTaskContract(
        "-[MyDocument processChangeFileExtension:files:]", s, files,
        [&extension](QXFileItem& t) {
            ComponentList list = t.components();
            if (!list.isEmpty() && list.last().is(ComponentKind::FileExtension)) list.removeLast();
            if (list.isEmpty() || !list.last().is(ComponentKind::Separator))
                list.append(NameComponent::separator(u'.'));
            list.append(NameComponent::extension(extension));
            t.setComponents(list);
        },
        true, EditScope::Item);
}

bool MyDocument::processRemoveFileExtension(const QVariantMap& s, const FileList& files) {
    return runTaskContract(
        "-[MyDocument processRemoveFileExtension:files:]", s, files,
        [](QXFileItem& t) {
            ComponentList list = t.components();
            // Only the last component counts: an extension
            // that is not last stays.
            if (!list.isEmpty() && list.last().is(ComponentKind::FileExtension)) {
                list.removeLast();
                if (!list.isEmpty() && list.last().is(ComponentKind::Separator)) list.removeLast();
            }
            t.setComponents(list);
        },
        true, EditScope::Item);
}

bool MyDocument::processInsertCharactersAtPosition(const QVariantMap& s, const FileList& files) {
    const QString text = s.value(QStringLiteral("text")).toString();
    const qint64 position = integerSetting(s, QStringLiteral("position"));
    return runTaskContract(
        "-[MyDocument processInsertCharactersAtPosition:files:]", s, files,
        [&](QXFileItem& t) {
            editBaseName(t, [&](const QString& base) -> QString {
                // Past the end (or negative): the text goes last.
                if (!longerThan(base.size(), position)) return base + text;
                return base.left(position) + text + base.mid(position);
            });
        },
        true, EditScope::Item);
}

bool MyDocument::processReplaceCharactersInRange(const QVariantMap& s, const FileList& files) {
    const QString text = s.value(QStringLiteral("text")).toString();
    const qint64 start = integerSetting(s, QStringLiteral("rangeStart"));
    const qint64 end = integerSetting(s, QStringLiteral("rangeEnd"));
    // The end is inclusive; one past it is taken in unsigned arithmetic, so a
    // range ending at -1 keeps the whole name as its tail.
    const quint64 afterEnd = static_cast<quint64>(end) + 1;
    return runTaskContract(
        "-[MyDocument processReplaceCharactersInRange:files:]", s, files,
        [&](QXFileItem& t) {
            editBaseName(t, [&](const QString& base) -> QString {
                // Head and tail are cut independently: a range
                // with its end before its start repeats the
                // characters in between.
                QString result;
                if (longerThan(base.size(), start) && start > 0) result += base.left(start);
                result += text;
                if (static_cast<quint64>(base.size()) > afterEnd)
                    result += base.mid(static_cast<qsizetype>(afterEnd));
                return result.isEmpty() ? base : result;
            });
        },
        true, EditScope::Item);
}

bool MyDocument::processRemoveCharactersFromStart(const QVariantMap& s, const FileList& files) {
    const qint64 count = integerSetting(s, QStringLiteral("charCount"));
    return runTaskContract(
        "-[MyDocument processRemoveCharactersFromStart:files:]", s, files,
        [&](QXFileItem& t) {
            editBaseName(t, [&](const QString& base) -> QString {
                // Never empties the name.
                return longerThan(base.size(), count) ? base.mid(count) : base;
            });
        },
        true, EditScope::Item);
}

bool MyDocument::processRemoveCharactersFromEnd(const QVariantMap& s, const FileList& files) {
    const qint64 count = integerSetting(s, QStringLiteral("charCount"));
    return runTaskContract(
        "-[MyDocument processRemoveCharactersFromEnd:files:]", s, files,
        [&](QXFileItem& t) {
            editBaseName(t, [&](const QString& base) -> QString {
                if (!longerThan(base.size(), count)) return base;
                return base.left(base.size() - count);
            });
        },
        true, EditScope::Item);
}

bool MyDocument::processRemoveCharacterRange(const QVariantMap& s, const FileList& files) {
    const qint64 start = integerSetting(s, QStringLiteral("rangeStart"));
    const qint64 end = integerSetting(s, QStringLiteral("rangeEnd"));
    return runTaskContract(
        "-[MyDocument processRemoveCharacterRange:files:]", s, files,
        [&](QXFileItem& t) {
            editBaseName(t, [&](const QString& base) -> QString {
                const qint64 length = base.size();
                qint64 span = 0;
                // A range reaching the last character is refused, deliberately;
                // so is one whose span cannot even be computed.
                if (__builtin_sub_overflow(end, start, &span)) return base;
                if (span < 0 || span >= length || start >= length || end >= length - 1) return base;
                QString result;
                if (start > 0) result += base.left(start);
                result += base.mid(std::max<qint64>(end + 1, 0));
                return result;
            });
        },
        true, EditScope::Item);
}
