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
        MyDocument doc;
        FileList files;
        for (const QString& n : names)
            files.append(QXFileItem::fileItemWithFile(u"/tmp/x/"_s + n));
        doc.setFileArray(files);
        doc.setSelectedTag(tag);
        for (auto it = fields.cbegin(); it != fields.cend(); ++it)
            doc.setFieldText(it.key(), it.value());
        doc.setCheckState(Outlet::findRegExCheck, 1);
        if (budget.count() > 0 || clock) doc.setPreviewMatchBudget(budget, clock);
        doc.generatePreviewsOnThread();
        return doc.lastPreviewFailure();
    }
};

TEST_F(TaskFailures, PreviewFailuresNameTheirCauseAndSetting) {
    const struct {
        const char* label;
        int tag;
        QHash<QString, QString> fields;
        std::optional<TaskFailure> expected;
    } cases[] = {
        {"bad pattern",
         1,
         {{Outlet::findStringField, u"("_s}},
         TaskFailure{u"the pattern \"(\" does not compile: U_REGEX_MISMATCHED_PAREN at offset 1"_s,
                     u"find"_s, 1}},
        // ICU counts by line; the position is counted in the whole pattern.
        {"second line",
         1,
         {{Outlet::findStringField, u"ab\ncd)"_s}},
         TaskFailure{u"the pattern \"ab\ncd)\" does not compile: U_REGEX_MISMATCHED_PAREN at "
                     u"offset 6"_s,
                     u"find"_s, 6}},
        {"good pattern", 1, {{Outlet::findStringField, u"(a)"_s}}, std::nullopt},
        {"no prefix",
         12,
         {},
         TaskFailure{u"the setting \"prefix\" is missing or empty"_s, u"prefix"_s, -1}},
        {"no suffix",
         13,
         {{Outlet::suffixField, u""_s}},
         TaskFailure{u"the setting \"suffix\" is missing or empty"_s, u"suffix"_s, -1}},
        {"no extension",
         10,
         {},
         TaskFailure{u"the setting \"fileExt\" is missing or empty"_s, u"fileExt"_s, -1}},
        {"prefix given", 12, {{Outlet::prefixField, u"P_"_s}}, std::nullopt},
    };
    // 120 names: two batches, on two threads, report one failure.
    QStringList names;
    for (int i = 0; i < 120; ++i)
        names.append(u"a.%1.jpg"_s.arg(i));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(previewFailure(c.tag, c.fields, names), c.expected);
    }
}

TEST_F(TaskFailures, ALaterPreviewClearsTheFailure) {
    ConsoleLines quiet;
    MyDocument doc;
    doc.setFileArray({QXFileItem::fileItemWithFile(u"/tmp/x/a.jpg"_s)});
    doc.setSelectedTag(12);
    doc.generatePreviewsOnThread();
    ASSERT_TRUE(doc.lastPreviewFailure());
    doc.setFieldText(Outlet::prefixField, u"P_"_s);
    doc.generatePreviewsOnThread();
    EXPECT_FALSE(doc.lastPreviewFailure());
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
