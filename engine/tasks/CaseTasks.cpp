// The case and character tasks: they rewrite the text of "Filename" (or
// "File Extension") components in place and never add or remove components,
// so separators and frame numbers survive every one of them.
#include "MyDocument.h"
#include "QXException.h"
#include "QXLog.h"

#include <limits>
#include <unicode/uchar.h>
#include <unicode/ustring.h>
#include <unicode/utf16.h>

namespace {

using TextOp = QString (*)(const QString&);

// Full Unicode case mapping with the root locale, so the result never
// depends on the user's language (no Turkish dotless i, for one).
QString mapCase(const QString& text, bool upper) {
    if (text.isEmpty()) return text;
    if (text.size() > std::numeric_limits<int32_t>::max() / 4)
        throw QXException(QXException::rangeError(), QStringLiteral("string too long"));
    const auto* src = reinterpret_cast<const UChar*>(text.constData());
    const auto srcLength = static_cast<int32_t>(text.size());
    // Full mappings can grow a string (ß to SS); ICU reports the size needed.
    int32_t capacity = srcLength + srcLength / 2 + 8;
    for (int pass = 0; pass < 2; ++pass) {
        QString out(capacity, Qt::Uninitialized);
        auto* dest = reinterpret_cast<UChar*>(out.data());
        UErrorCode status = U_ZERO_ERROR;
        const int32_t n = upper ? u_strToUpper(dest, capacity, src, srcLength, "", &status)
                                : u_strToLower(dest, capacity, src, srcLength, "", &status);
        if (status == U_BUFFER_OVERFLOW_ERROR) {
            capacity = n;
            continue;
        }
        if (U_FAILURE(status))
            throw QXException(QXException::genericError(),
                              QStringLiteral("case mapping failed: %1")
                                  .arg(QString::fromLatin1(u_errorName(status))));
        out.truncate(n);
        return out;
    }
    throw QXException(QXException::genericError(), QStringLiteral("case mapping did not fit"));
}

QString toUpper(const QString& text) {
    return mapCase(text, true);
}
QString toLower(const QString& text) {
    return mapCase(text, false);
}

// White space and line breaks: general category Z, U+0009 to U+000D and
// U+0085. Every member is in the BMP, so one UTF-16 unit is enough to test.
bool isWhiteOrNewline(QChar c) {
    const char16_t u = c.unicode();
    if ((u >= 0x09 && u <= 0x0D) || u == 0x85) return true;
    return (U_GET_GC_MASK(static_cast<UChar32>(u)) & U_GC_Z_MASK) != 0;
}

// A word is a run between white space or line breaks; its first character
// takes its upper-case mapping and the rest their lower-case mapping.
QString capitalizeWords(const QString& text) {
    QString out;
    out.reserve(text.size());
    qsizetype i = 0;
    while (i < text.size()) {
        if (isWhiteOrNewline(text[i])) {
            out += text[i++];
            continue;
        }
        qsizetype end = i;
        while (end < text.size() && !isWhiteOrNewline(text[end]))
            ++end;
        const QString word = text.mid(i, end - i);
        const qsizetype firstLength =
            (word.size() > 1 && word[0].isHighSurrogate() && word[1].isLowSurrogate()) ? 2 : 1;
        const QString first = word.left(firstLength);
        // Lower-case the whole word so that context rules (the final sigma)
        // see the first letter, then drop the first letter's own mapping.
        const QString lowerWord = toLower(word);
        const QString lowerFirst = toLower(first);
        out += toUpper(first);
        if (lowerWord.startsWith(lowerFirst))
            out += QStringView(lowerWord).mid(lowerFirst.size());
        else
            out += toLower(word.mid(firstLength));
        i = end;
    }
    return out;
}

QString spacesToUnderscores(const QString& text) {
    QString out = text;
    return out.replace(u' ', u'_');
}

QString trimWhiteSpace(const QString& text) {
    qsizetype start = 0;
    qsizetype end = text.size();
    while (start < end && isWhiteOrNewline(text[start]))
        ++start;
    while (end > start && isWhiteOrNewline(text[end - 1]))
        --end;
    return text.mid(start, end - start);
}

bool isAlphanumeric(UChar32 c) {
    return (U_GET_GC_MASK(c) & (U_GC_L_MASK | U_GC_M_MASK | U_GC_N_MASK)) != 0;
}

// Applies op to the text of every component of the kind, in place.
void editComponents(QXFileItem& target, ComponentKind kind, TextOp op) {
    ComponentList list = target.components();
    for (NameComponent& c : list) {
        if (c.kind == kind) c.value = op(c.text());
    }
    target.setComponents(list);
}

} // namespace

QString MyDocument::stripNonAlphanumeric(const QString& text) {
    QString out;
    out.reserve(text.size());
    const auto* s = reinterpret_cast<const UChar*>(text.constData());
    const qsizetype length = text.size();
    qsizetype i = 0;
    while (i < length) {
        const qsizetype start = i;
        UChar32 c = s[i++];
        if (U16_IS_LEAD(c) && i < length && U16_IS_TRAIL(s[i]))
            c = U16_GET_SUPPLEMENTARY(c, s[i++]);
        if (isAlphanumeric(c)) out += QStringView(text).mid(start, i - start);
    }
    if (!out.isEmpty()) return out;
    // Never blank a token: the commit step must not meet an empty name.
    QXLog::appendLog(QStringLiteral("string length is 0"));
    return text;
}

bool MyDocument::processLowercase(const QVariantMap& s, const FileList& files) {
    return runTaskContract(
        "-[MyDocument processLowercase:files:]", s, files,
        [](QXFileItem& t) { editComponents(t, ComponentKind::Filename, toLower); }, true,
        EditScope::Item);
}

bool MyDocument::processUppercase(const QVariantMap& s, const FileList& files) {
    return runTaskContract(
        "-[MyDocument processUppercase:files:]", s, files,
        [](QXFileItem& t) { editComponents(t, ComponentKind::Filename, toUpper); }, true,
        EditScope::Item);
}

bool MyDocument::processCapitalizeWords(const QVariantMap& s, const FileList& files) {
    return runTaskContract(
        "-[MyDocument processCapitalizeWords:files:]", s, files,
        [](QXFileItem& t) { editComponents(t, ComponentKind::Filename, capitalizeWords); }, true,
        EditScope::Item);
}

bool MyDocument::processConvertSpacesToUnderscores(const QVariantMap& s, const FileList& files) {
    return runTaskContract(
        "-[MyDocument processConvertSpacesToUnderscores:files:]", s, files,
        [](QXFileItem& t) { editComponents(t, ComponentKind::Filename, spacesToUnderscores); },
        true, EditScope::Item);
}

bool MyDocument::processStripNonAlphanumeric(const QVariantMap& s, const FileList& files) {
    return runTaskContract(
        "-[MyDocument processStripNonAlphanumeric:files:]", s, files,
        [](QXFileItem& t) {
            editComponents(t, ComponentKind::Filename, &MyDocument::stripNonAlphanumeric);
        },
        true, EditScope::Item);
}

bool MyDocument::processRemoveTrailingSpaces(const QVariantMap& s, const FileList& files) {
    return runTaskContract(
        "-[MyDocument processRemoveTrailingSpaces:files:]", s, files,
        [](QXFileItem& t) { editComponents(t, ComponentKind::Filename, trimWhiteSpace); }, true,
        EditScope::Item);
}

bool MyDocument::processLowercaseFileExtension(const QVariantMap& s, const FileList& files) {
    // A commit walks the document's whole list, whatever it is handed. While
    // previewing each batch edits only its own items: every batch walking the
    // whole list would give the same previews at a cost quadratic in the list
    // (hours of work for 100,000 files).
    const FileList walked = isPreview(s) ? files : fileArray();
    return runTaskContract(
        "-[MyDocument processLowercaseFileExtension:files:]", s, walked,
        [](QXFileItem& t) { editComponents(t, ComponentKind::FileExtension, toLower); }, true,
        EditScope::Item);
}

bool MyDocument::processUppercaseFileExtension(const QVariantMap& s, const FileList& files) {
    return runTaskContract(
        "-[MyDocument processUppercaseFileExtension:files:]", s, files,
        [](QXFileItem& t) { editComponents(t, ComponentKind::FileExtension, toUpper); }, true,
        EditScope::Item);
}
