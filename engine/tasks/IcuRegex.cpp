#include "IcuRegex.h"

#include "QXException.h"

#include <QHash>
#include <QMutex>
#include <limits>
#include <unicode/utypes.h>

namespace {

// Match steps before ICU gives up on one search (roughly milliseconds): the
// bound of a run without a time budget (a commit), so a pathological pattern
// fails the task there too instead of hanging.
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

// ICU gives a parse error's place as a line (from 1) and an offset in it;
// the position is counted from the start of the whole pattern.
int patternPosition(const QString& pattern, const UParseError& e) {
    if (e.offset < 0) return -1;
    if (e.line <= 1) return e.offset;
    qsizetype at = 0;
    for (int line = 1; line < e.line; ++line) {
        const qsizetype next = pattern.indexOf(u'\n', at);
        if (next < 0) return -1;
        at = next + 1;
    }
    return static_cast<int>(at) + e.offset;
}

URegularExpression* cloneCompiled(const QString& pattern, uint32_t flags) {
    PatternCache& c = cache();
    QMutexLocker lock(&c.mutex);
    const CacheKey key{pattern, flags};
    URegularExpression* original = c.patterns.value(key, nullptr);
    UErrorCode status = U_ZERO_ERROR;
    if (!original) {
        UParseError parseError{};
        parseError.offset = -1;
        original = uregex_open(uchars(pattern), icuLength(pattern), flags, &parseError, &status);
        if (U_FAILURE(status)) {
            if (original) uregex_close(original);
            throw IcuRegexError(status, pattern, patternPosition(pattern, parseError));
        }
        if (c.patterns.size() >= kCacheLimit) c.clearLocked();
        c.patterns.insert(key, original);
    }
    URegularExpression* clone = uregex_clone(original, &status);
    if (U_FAILURE(status)) {
        if (clone) uregex_close(clone);
        throw IcuRegexError(status, pattern);
    }
    return clone;
}

} // namespace

IcuRegexError::IcuRegexError(UErrorCode status, QString pattern, int position)
    : QXException(QXException::invalidArgument(),
                  QStringLiteral("ICU regular expression error #%1, %2.")
                      .arg(static_cast<int>(status))
                      .arg(QString::fromLatin1(u_errorName(status)))),
      m_status(status), m_pattern(std::move(pattern)), m_position(position) {}

bool IcuRegexError::timedOut() const {
    return m_status == U_REGEX_STOPPED_BY_CALLER || m_status == U_REGEX_TIME_OUT;
}

TaskFailure IcuRegexError::failure() const {
    const QString quoted = u'"' + m_pattern + u'"';
    if (timedOut())
        return {QStringLiteral("the pattern %1 took too long to match and was stopped").arg(quoted),
                QStringLiteral("find"), -1};
    QString message = QStringLiteral("the pattern %1 does not compile: %2")
                          .arg(quoted, QString::fromLatin1(u_errorName(m_status)));
    if (m_position >= 0) message += QStringLiteral(" at offset %1").arg(m_position);
    return {message, QStringLiteral("find"), m_position};
}

IcuRegex::IcuRegex(const QString& pattern, uint32_t flags)
    : m_pattern(pattern), m_run(TaskRun::current()) {
    m_re = cloneCompiled(pattern, flags);
    UErrorCode status = U_ZERO_ERROR;
    uregex_setTimeLimit(m_re, kTimeLimit, &status);
    // ICU calls back every few thousand steps of one match, so ordinary
    // matches over file names never get here and cost no clock reading.
    if (m_run) uregex_setMatchCallback(m_re, &IcuRegex::matchCallback, this, &status);
}

UBool IcuRegex::matchCallback(const void* context, int32_t) {
    auto* self = static_cast<IcuRegex*>(const_cast<void*>(context));
    const TaskRun::Nanoseconds now = self->m_run->now();
    // The first call of a subject only starts its clock: what went before is
    // a few thousand steps at most.
    const TaskRun::Nanoseconds elapsed =
        self->m_lastTick.count() < 0 ? TaskRun::Nanoseconds{0} : now - self->m_lastTick;
    self->m_lastTick = now;
    return self->m_run->spend(elapsed) ? 1 : 0;
}

void IcuRegex::setText(const QString& subject) {
    UErrorCode status = U_ZERO_ERROR;
    m_lastTick = TaskRun::Nanoseconds{-1};
    uregex_setText(m_re, uchars(subject), icuLength(subject), &status);
    if (U_FAILURE(status)) fail(status);
}

void IcuRegex::fail(UErrorCode status) const {
    throw IcuRegexError(status, m_pattern);
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
        setText(subject);
        UErrorCode status = U_ZERO_ERROR;
        QString out(capacity, Qt::Uninitialized);
        UChar* dest = reinterpret_cast<UChar*>(out.data());
        int32_t room = capacity;
        int64_t total = 0;
        UErrorCode findStatus = U_ZERO_ERROR;
        while (uregex_findNext(m_re, &findStatus)) {
            total += uregex_appendReplacement(m_re, uchars(replacementTemplate), templateLength,
                                              &dest, &room, &status);
            if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) fail(status);
        }
        if (U_FAILURE(findStatus)) fail(findStatus);
        total += uregex_appendTail(m_re, &dest, &room, &status);
        if (U_FAILURE(status) && status != U_BUFFER_OVERFLOW_ERROR) fail(status);
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
    setText(subject);
    UErrorCode status = U_ZERO_ERROR;
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
    if (U_FAILURE(status)) fail(status);
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
