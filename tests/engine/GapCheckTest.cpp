#include "TaskTestSupport.h"

namespace {

class GapCheck : public LoggedTest {};

QStringList frames(std::initializer_list<int> numbers) {
    QStringList out;
    for (int n : numbers)
        out.append(n < 0 ? u"plain.exr"_s : u"shot.%1.exr"_s.arg(n));
    return out;
}

TEST_F(GapCheck, ReportsMissingRunsInFrameOrder) {
    const struct {
        const char* label;
        QStringList names;
        QStringList gaps;
        QString message;
    } examples[] = {
        {"none", frames({1, 2, 3}), {}, u"No gaps found"_s},
        {"one frame", frames({1, 3}), {u"2"_s}, u"1 gap found"_s},
        {"two runs, any list order",
         frames({10, 1, 6, 5}),
         {u"2-4"_s, u"7-9"_s},
         u"2 gaps found"_s},
        {"runs not frames", frames({1, 4, 5, 9}), {u"2-3"_s, u"6-8"_s}, u"2 gaps found"_s},
        {"zero is no previous", frames({0, 5}), {}, u"No gaps found"_s},
        {"empty batch", {}, {}, u"No gaps found"_s},
        {"duplicates are no gap", frames({4, 4, 5}), {}, u"No gaps found"_s},
        {"unnumbered last", frames({1, 3, -1}), {u"2"_s}, u"1 gap found"_s},
    };
    for (const auto& ex : examples) {
        SCOPED_TRACE(ex.label);
        TaskDoc t(ex.names);
        const auto report = t.doc.checkFrameGaps();
        ASSERT_TRUE(report.has_value());
        const QString informative =
            ex.gaps.isEmpty() ? u"There are no frame number gaps in the file list."_s
                              : u"Frame number gaps were found at the following locations:\n"_s +
                                    ex.gaps.join(u'\n');
        EXPECT_EQ(report->gaps, ex.gaps);
        EXPECT_EQ(report->messageText, ex.message);
        EXPECT_EQ(report->informativeText, informative);
        const QList<AlertRequest> alerts = t.view.alertsSnapshot();
        ASSERT_EQ(alerts.size(), 1);
        EXPECT_EQ(alerts[0].messageText, ex.message);
        EXPECT_EQ(alerts[0].informativeText, informative);
        EXPECT_EQ(alerts[0].parent, AlertRequest::Parent::MainWindow);
        EXPECT_TRUE(alerts[0].block);
        EXPECT_EQ(t.view.reloadsPosted, 1);
    }
}

TEST_F(GapCheck, LogsTheWalkAndReadsTheItemsNotTheirPreviews) {
    const QStringList lines = {u"Checking for gaps..."_s, u"gap: 5 should be 2"_s,
                               u"Gap checking complete"_s};
    QList<qsizetype> before;
    for (const QString& l : lines)
        before.append(logCount(l));
    TaskDoc t(frames({1, 5}));
    t.files[1]->previewObject()->setFrameNumber(QVariant::fromValue<qulonglong>(2));
    const auto report = t.doc.checkFrameGaps();
    ASSERT_TRUE(report.has_value());
    EXPECT_EQ(report->gaps, QStringList{u"2-4"_s});
    for (qsizetype i = 0; i < lines.size(); ++i)
        EXPECT_EQ(logCount(lines[i]), before[i] + 1);
}

} // namespace
