#include "TaskTestSupport.h"

#include <atomic>

namespace {

class TaskFailures : public LoggedTest {
protected:
    // A document of names previewed with the task and the form's entries given.
    std::optional<TaskFailure> previewFailure(int tag, const QHash<QString, QString>& fields,
                                              const QStringList& names,
                                              TaskRun::Nanoseconds budget = {},
                                              TaskRun::Clock clock = {}) {
        ConsoleLines quiet; // the exception lines are the log's business here
        TaskDoc t(names);
        t.doc.setSelectedTag(tag);
        for (auto it = fields.cbegin(); it != fields.cend(); ++it)
            t.doc.setFieldText(it.key(), it.value());
        t.doc.setCheckState(Outlet::findRegExCheck, 1);
        if (budget.count() > 0 || clock) t.doc.setPreviewMatchBudget(budget, clock);
        t.doc.generatePreviewsOnThread();
        return t.doc.lastPreviewFailure();
    }
};

TEST_F(TaskFailures, PreviewFailuresNameTheirCauseAndSetting) {
    const QString paren = u"does not compile: U_REGEX_MISMATCHED_PAREN at offset"_s;
    auto pattern = [&](const QString& p, int at) {
        return TaskFailure{u"the pattern \"%1\" %2 %3"_s.arg(p, paren).arg(at), u"find"_s, at};
    };
    auto missing = [](const QString& key) {
        return TaskFailure{u"the setting \"%1\" is missing or empty"_s.arg(key), key, -1};
    };
    const struct {
        int tag;
        QString outlet, text; // the one form entry given, if any
        std::optional<TaskFailure> expected;
    } cases[] = {
        {1, Outlet::findStringField, u"("_s, pattern(u"("_s, 1)},
        // ICU counts by line; the position is counted in the whole pattern.
        {1, Outlet::findStringField, u"ab\ncd)"_s, pattern(u"ab\ncd)"_s, 6)},
        {1, Outlet::findStringField, u"(a)"_s, std::nullopt},
        {12, {}, {}, missing(u"prefix"_s)},
        {12, Outlet::prefixField, u"P_"_s, std::nullopt},
    };
    // 120 names: two batches, on two threads, report one failure.
    QStringList names;
    for (int i = 0; i < 120; ++i)
        names.append(u"a.%1.jpg"_s.arg(i));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.tag);
        QHash<QString, QString> fields;
        if (!c.outlet.isEmpty()) fields.insert(c.outlet, c.text);
        EXPECT_EQ(previewFailure(c.tag, fields, names), c.expected);
    }
}

TEST_F(TaskFailures, ALaterPreviewClearsTheFailure) {
    ConsoleLines quiet;
    TaskDoc t({u"a.jpg"_s});
    t.doc.setSelectedTag(12);
    t.doc.generatePreviewsOnThread();
    ASSERT_TRUE(t.doc.lastPreviewFailure());
    t.doc.setFieldText(Outlet::prefixField, u"P_"_s);
    t.doc.generatePreviewsOnThread();
    EXPECT_FALSE(t.doc.lastPreviewFailure());
}

// A clock that moves one millisecond each time it is read: ICU reads it every
// few thousand steps of a slow match, so the time charged is a step count.
TaskRun::Clock steppingClock() {
    auto ticks = std::make_shared<std::atomic<qint64>>(0);
    return [ticks] { return TaskRun::Nanoseconds(std::chrono::milliseconds(++*ticks)); };
}

TEST_F(TaskFailures, SlowMatchesShareOneBudgetPerPreview) {
    const QHash<QString, QString> runaway = {{Outlet::findStringField, u"(a+)+$"_s}};
    const QString slowName = QString(14, u'a') + u"b.txt"_s; // a few callbacks each
    const auto budget = std::chrono::milliseconds(40);
    // Each name alone stays well within the budget; a hundred together do not.
    EXPECT_FALSE(previewFailure(1, runaway, {slowName, slowName}, budget, steppingClock()));
    const std::optional<TaskFailure> many =
        previewFailure(1, runaway, QStringList(100, slowName), budget, steppingClock());
    ASSERT_TRUE(many);
    EXPECT_EQ(many->message, u"the pattern \"(a+)+$\" took too long to match and was stopped"_s);
    EXPECT_EQ(many->settingKey, u"find"_s);

    // With no time at all, a fast pattern still runs (it never reaches the
    // clock) and a slow one stops at once.
    const auto none = TaskRun::Nanoseconds(1);
    EXPECT_FALSE(
        previewFailure(1, {{Outlet::findStringField, u"(a)"_s}}, QStringList(100, slowName), none));
    EXPECT_TRUE(previewFailure(1, runaway, {QString(24, u'a') + u"b"_s}, none));
}

} // namespace
