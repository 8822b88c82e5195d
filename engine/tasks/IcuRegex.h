#pragma once

#include "QXException.h"
#include "TaskRun.h"

#include <QString>
#include <memory>
#include <unicode/uregex.h>

// A failed ICU call: logged as the framework logs it ("ICU regular expression
// error #%d, %s."), and told to the user as a TaskFailure on the "find" setting.
class IcuRegexError : public QXException {
public:
    // position: where in the pattern it went wrong, -1 when ICU does not say.
    IcuRegexError(UErrorCode status, QString pattern, int position = -1);
    UErrorCode status() const { return m_status; }
    bool timedOut() const;
    TaskFailure failure() const;

private:
    UErrorCode m_status;
    QString m_pattern;
    int m_position;
};

// A compiled ICU regular expression for one thread's use. Patterns are
// compiled once per (pattern text, flags) and kept in a process-wide cache;
// each IcuRegex owns a clone of the cached pattern, because a
// URegularExpression carries its match state and must not be shared.
// Made on a thread that works for a TaskRun, its slow matches draw on that
// run's time budget and stop when it is spent.
class IcuRegex {
public:
    // Throws IcuRegexError when the pattern does not compile.
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
    static UBool matchCallback(const void* context, int32_t steps);
    void setText(const QString& subject);
    [[noreturn]] void fail(UErrorCode status) const;

    URegularExpression* m_re = nullptr;
    QString m_pattern;
    TaskRun* m_run = nullptr;
    TaskRun::Nanoseconds m_lastTick{-1}; // -1: no callback yet in this subject
};
