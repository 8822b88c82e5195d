#include "TaskTestSupport.h"

namespace {

class GapCheck : public LoggedTest {};

TEST_F(GapCheck, ReportsMissingRunsInFrameOrder) {
    const struct {
        const char *label, *names, *gaps, *message;
    } examples[] = {
        // clang-format off
        {"none", "s.1.exr|s.2.exr|s.3.exr", "", "No gaps found"},
        {"one frame", "s.1.exr|s.3.exr", "2", "1 gap found"},
        {"two runs, any list order", "s.10.exr|s.1.exr|s.6.exr|s.5.exr", "2-4|7-9", "2 gaps found"},
        {"runs not frames", "s.1.exr|s.4.exr|s.5.exr|s.9.exr", "2-3|6-8", "2 gaps found"},
        {"zero is no previous", "s.0.exr|s.5.exr", "", "No gaps found"},
        {"empty batch", "", "", "No gaps found"},
        {"duplicates are no gap", "s.4.exr|s.4.exr|s.5.exr", "", "No gaps found"},
        {"unnumbered last", "s.1.exr|s.3.exr|plain.exr", "2", "1 gap found"},
        // clang-format on
    };
    for (const auto& ex : examples) {
        SCOPED_TRACE(ex.label);
        TaskDoc t(*ex.names ? names(ex.names) : QStringList());
        const QStringList gaps = *ex.gaps ? names(ex.gaps) : QStringList();
        const QString message = QString::fromUtf8(ex.message);
        const auto report = t.doc.checkFrameGaps();
        ASSERT_TRUE(report.has_value());
        const QString informative =
            gaps.isEmpty() ? u"There are no frame number gaps in the file list."_s
                           : u"Frame number gaps were found at the following locations:\n"_s +
                                 gaps.join(u'\n');
        EXPECT_EQ(report->gaps, gaps);
        const QList<AlertRequest> alerts = t.view.alertsSnapshot();
        ASSERT_EQ(alerts.size(), 1);
        EXPECT_EQ(alerts[0].messageText, message);
        EXPECT_EQ(alerts[0].informativeText, informative);
        EXPECT_EQ(alerts[0].parent, AlertRequest::Parent::MainWindow);
        EXPECT_TRUE(alerts[0].block);
        EXPECT_EQ(t.view.reloadsPosted, 1);
    }
}

TEST_F(GapCheck, ReadsTheItemsNotTheirPreviewsAndLogsEachGap) {
    const qsizetype before = logCount(u"gap: 5 should be 2"_s);
    TaskDoc t(names("s.1.exr|s.5.exr"));
    t.files[1]->previewObject()->setFrameNumber(QVariant::fromValue<qulonglong>(2));
    const auto report = t.doc.checkFrameGaps();
    ASSERT_TRUE(report.has_value());
    EXPECT_EQ(report->gaps, QStringList{u"2-4"_s});
    EXPECT_EQ(logCount(u"gap: 5 should be 2"_s), before + 1);
}

} // namespace
