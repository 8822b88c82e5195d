#include "IcuRegex.h"

#include "QXException.h"

#include <QHash>
#include <QMutex>
#include <limits>
#include <unicode/utypes.h>

namespace {

// Match steps before ICU gives up on one search (roughly milliseconds): a
// pathological pattern then fails the task instead of hanging the preview.
constexpr int32_t kTimeLimit = 5000;
// The cache is cleared when it reaches this size; patterns are small and
// typed by hand, so this only bounds a long session of edits.
constexpr qsizetype kCacheLimit = 256;

struct CacheKey {
    QString pattern;
    uint32_t flags;
    bool operator==(const CacheKey& o) const { return flags == o.flags && pattern == o.pattern; }
};

size_t qHash(const CacheKey& key, size_t seed = 0) noexcept {
    return qHashMulti(seed, key.pattern, key.flags);
}

// The compiled originals; clones are taken under the mutex, so the originals
// are never used by two threads at once. ICU reference-counts the compiled
// pattern, so clones outlive an original that the cache drops.
struct PatternCache {
    QMutex mutex;
    QHash<CacheKey, URegularExpression*> patterns;

    void clearLocked() {
        for (URegularExpression* re : std::as_const(patterns))
            uregex_close(re);
        patterns.clear();
    }
};

PatternCache& cache() {
    static PatternCache* c = new PatternCache; // process-wide, never freed
    return *c;
}

const UChar* uchars(const QString& s) {
    return reinterpret_cast<const UChar*>(s.constData());
}

int32_t icuLength(const QString& s) {
    if (s.size() > std::numeric_limits<int32_t>::max())
        throw QXException(QXException::rangeError(), QStringLiteral("string too long for ICU"));
    return static_cast<int32_t>(s.size());
}

URegularExpression* cloneCompiled(const QString& pattern, uint32_t flags) {
    PatternCache& c = cache();
    QMutexLocker lock(&c.mutex);
    const CacheKey key{pattern, flags};
    URegularExpression* original = c.patterns.value(key, nullptr);
    UErrorCode status = U_ZERO_ERROR;
    if (!original) {
        UParseError parseError{};
        original = uregex_open(uchars(pattern), icuLength(pattern), flags, &parseError, &status);
        if (U_FAILURE(status)) {
            if (original) uregex_close(original);
            throwIcuRegexError(status);
        }
        if (c.patterns.size() >= kCacheLimit) c.clearLocked();
        c.patterns.insert(key, original);
    }
    URegularExpression* clone = uregex_clone(original, &status);
    if (U_FAILURE(status)) {
        if (clone) uregex_close(clone);
        throwIcuRegexError(status);
    }
    return clone;
}

} // namespace

void throwIcuRegexError(UErrorCode status) {
    throw QXException(QXException::invalidArgument(),
                      QStringLiteral("ICU regular expression error #%1, %2.")
                          .arg(static_cast<int>(status))
                          .arg(QString::fromLatin1(u_errorName(status))));
}

IcuRegex::IcuRegex(const QString& pattern, uint32_t flags) {
    m_re = cloneCompiled(pattern, flags);
    UErrorCode status = U_ZERO_ERROR;
    uregex_setTimeLimit(m_re, kTimeLimit, &status);
}

IcuRegex::~IcuRegex() {
    if (m_re) uregex_close(m_re);
}

QString IcuRegex::replaceAll(const QString& subject, const QString& replacementTemplate) {
    const int32_t subjectLength = icuLength(subject);
    const int32_t templateLength = icuLength(replacementTemplate);
    // One pass into a guessed buffer; ICU keeps counting past its end, so a
    // second pass with the exact size is enough when the guess was short.
    int32_t capacity = subjectLength + 2 * templateLength + 16;
    for (int pass = 0; pass < 2; ++pass) {
        UErrorCode status = U_ZERO_ERROR;
        uregex_setText(m_re, uchars(subject), subjectLength, &status);
        if (U_FAILURE(status)) throwIcuRegexError(status);

        QString out(capacity, Qt::Uninitialized);
        UChar* dest = reinterpret_cast<UChar*>(out.data());
        int32_t room = capacity;
        int64_t total = 0;
        UErrorCode findStatus = U_ZERO_ERROR;
        while (uregex_findNext(m_re, &findStatus)) {
            total += uregex_appendReplacement(m_re, uchars(replacementTemplate), templateLength,
                                              &dest, &room, &status);
            if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) throwIcuRegexError(status);
        }
        if (U_FAILURE(findStatus)) throwIcuRegexError(findStatus);
        total += uregex_appendTail(m_re, &dest, &room, &status);
        if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) throwIcuRegexError(status);
        if (total > std::numeric_limits<int32_t>::max() - 1)
            throw QXException(QXException::rangeError(), QStringLiteral("replacement too long"));
        if (total <= capacity) {
            out.truncate(static_cast<qsizetype>(total));
            return out;
        }
        capacity = static_cast<int32_t>(total);
    }
    throw QXException(QXException::genericError(), QStringLiteral("replacement did not fit"));
}

QString IcuRegex::replaceAllLiteral(const QString& subject, const QString& replacement) {
    UErrorCode status = U_ZERO_ERROR;
    uregex_setText(m_re, uchars(subject), icuLength(subject), &status);
    if (U_FAILURE(status)) throwIcuRegexError(status);
    QString out;
    int32_t copied = 0;
    while (uregex_findNext(m_re, &status)) {
        const int32_t start = uregex_start(m_re, 0, &status);
        const int32_t end = uregex_end(m_re, 0, &status);
        if (U_FAILURE(status)) break;
        out += QStringView(subject).mid(copied, start - copied);
        out += replacement;
        copied = end;
    }
    if (U_FAILURE(status)) throwIcuRegexError(status);
    out += QStringView(subject).mid(copied);
    return out;
}

void IcuRegex::clearCache() {
    PatternCache& c = cache();
    QMutexLocker lock(&c.mutex);
    c.clearLocked();
}

qsizetype IcuRegex::cacheSize() {
    PatternCache& c = cache();
    QMutexLocker lock(&c.mutex);
    return c.patterns.size();
}
