#include "TaskTestSupport.h"

namespace {

struct GapExample {
    const char* label;
    QStringList names; // in list order; the check sorts by frame
    QStringList gaps;
    QString message;
};

class GapCheck : public LoggedTest {};

QString framesName(int n) {
    return u"shot."_s + QString::number(n) + u".exr"_s;
}

QStringList framesNamed(std::initializer_list<int> frames) {
    QStringList out;
    for (int f : frames)
        out.append(framesName(f));
    return out;
}

TEST_F(GapCheck, ReportsMissingRuns) {
    const GapExample examples[] = {
        {"none", framesNamed({1, 2, 3}), {}, u"No gaps found"_s},
        {"one frame", framesNamed({1, 3}), {u"2"_s}, u"1 gap found"_s},
        {"two runs", framesNamed({1, 5, 6, 10}), {u"2-4"_s, u"7-9"_s}, u"2 gaps found"_s},
        {"runs not frames", framesNamed({1, 4, 5, 9}), {u"2-3"_s, u"6-8"_s}, u"2 gaps found"_s},
        {"zero is no previous", framesNamed({0, 5}), {}, u"No gaps found"_s},
        {"empty batch", {}, {}, u"No gaps found"_s},
        {"duplicates are no gap", framesNamed({4, 4, 5}), {}, u"No gaps found"_s},
        {"list order does not matter",
         framesNamed({10, 1, 6, 5}),
         {u"2-4"_s, u"7-9"_s},
         u"2 gaps found"_s},
        {"unnumbered resets",
         {u"a.1.exr"_s, u"b.0003.exr"_s, u"plain.exr"_s},
         {u"2"_s},
         u"1 gap found"_s},
    };
    for (const auto& ex : examples) {
        SCOPED_TRACE(ex.label);
        TaskDoc t(ex.names);
        const auto report = t.doc.checkFrameGaps();
        ASSERT_TRUE(report.has_value());
        EXPECT_EQ(report->gaps, ex.gaps);
        EXPECT_EQ(report->messageText, ex.message);
        const QString informative =
            ex.gaps.isEmpty() ? u"There are no frame number gaps in the file list."_s
                              : u"Frame number gaps were found at the following locations:\n"_s +
                                    ex.gaps.join(u'\n');
        EXPECT_EQ(report->informativeText, informative);
        const QList<AlertRequest> alerts = t.view.alertsSnapshot();
        ASSERT_EQ(alerts.size(), 1);
        EXPECT_EQ(alerts[0].messageText, ex.message);
        EXPECT_EQ(alerts[0].informativeText, informative);
        EXPECT_EQ(alerts[0].parent, AlertRequest::Parent::MainWindow);
        EXPECT_TRUE(alerts[0].block);
        EXPECT_EQ(t.view.reloadsPosted, 1);
        EXPECT_EQ(t.view.reloadsWaited, 0);
    }
}

TEST_F(GapCheck, LogsTheWalk) {
    const qsizetype start = logCount(u"Checking for gaps..."_s);
    const qsizetype end = logCount(u"Gap checking complete"_s);
    const qsizetype gap = logCount(u"gap: 5 should be 2"_s);
    TaskDoc t(framesNamed({1, 5}));
    ASSERT_TRUE(t.doc.checkFrameGaps().has_value());
    EXPECT_EQ(logCount(u"Checking for gaps..."_s), start + 1);
    EXPECT_EQ(logCount(u"gap: 5 should be 2"_s), gap + 1);
    EXPECT_EQ(logCount(u"Gap checking complete"_s), end + 1);
}

TEST_F(GapCheck, ReadsTheItemsNotTheirPreviews) {
    TaskDoc t(framesNamed({1, 2}));
    t.files[1]->previewObject()->setFrameNumber(QVariant::fromValue<qulonglong>(9));
    const auto report = t.doc.checkFrameGaps();
    ASSERT_TRUE(report.has_value());
    EXPECT_TRUE(report->gaps.isEmpty());
}

} // namespace
