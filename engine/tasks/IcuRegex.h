#pragma once

#include <QString>
#include <memory>
#include <unicode/uregex.h>

// A compiled ICU regular expression for one thread's use. Patterns are
// compiled once per (pattern text, flags) and kept in a process-wide cache;
// each IcuRegex owns a clone of the cached pattern, because a
// URegularExpression carries its match state and must not be shared.
class IcuRegex {
public:
    // Throws QXException ("ICU regular expression error #%d, %s.") when the
    // pattern does not compile.
    IcuRegex(const QString& pattern, uint32_t flags);
    ~IcuRegex();
    IcuRegex(const IcuRegex&) = delete;
    IcuRegex& operator=(const IcuRegex&) = delete;

    // Every match in subject, left to right and non-overlapping, replaced by
    // the template expanded with ICU's rules ("$n" for group n, "\" escapes).
    QString replaceAll(const QString& subject, const QString& replacementTemplate);
    // Every match replaced by the literal text.
    QString replaceAllLiteral(const QString& subject, const QString& replacement);

    // Drops the cached patterns (they stay alive while clones use them).
    static void clearCache();
    static qsizetype cacheSize();

private:
    URegularExpression* m_re = nullptr;
};

// Raises the framework exception for a failed ICU call.
[[noreturn]] void throwIcuRegexError(UErrorCode status);
