#include "TaskTestSupport.h"

namespace {

struct FrameExample {
    const char* label;
    QVariantMap settings;
    QStringList before; // in the order handed to the task
    QStringList after;
};

void runExamples(TaskMethod task, std::initializer_list<FrameExample> examples) {
    for (const auto& ex : examples) {
        SCOPED_TRACE(ex.label);
        bool ok = false;
        EXPECT_EQ(previewOf(task, ex.before, ex.settings, &ok), ex.after);
        EXPECT_TRUE(ok);
    }
}

QVariantMap startFrame(quint64 n) {
    return {{u"startFrame"_s, QVariant::fromValue<qulonglong>(n)}};
}
QVariantMap padLength(quint64 n) {
    return {{u"padLength"_s, QVariant::fromValue<qulonglong>(n)}};
}
// Stored as the unsigned integer of the same bits, as the settings form does.
QVariantMap offset(qint64 n) {
    return {{u"offset"_s, QVariant::fromValue<qulonglong>(static_cast<quint64>(n))}};
}

class FrameTasks : public LoggedTest {};

TEST_F(FrameTasks, Renumber) {
    runExamples(&MyDocument::processReorderFrames,
                {
                    {"table order decides",
                     startFrame(1),
                     {u"a.0007.exr"_s, u"b.0007.exr"_s, u"c.0009.exr"_s},
                     {u"a.0001.exr"_s, u"b.0002.exr"_s, u"c.0003.exr"_s}},
                    {"not frame order",
                     startFrame(10),
                     {u"a.9.exr"_s, u"b.7.exr"_s},
                     {u"a.10.exr"_s, u"b.11.exr"_s}},
                    {"start 0 skips an unnumbered first",
                     startFrame(0),
                     {u"x.exr"_s, u"y.exr"_s},
                     {u"x.exr"_s, u"y.1.exr"_s}},
                    {"unnumbered get a number", startFrame(5), {u"take"_s}, {u"take.5"_s}},
                    {"counter wraps",
                     startFrame(~0ULL),
                     {u"a.1.exr"_s, u"b.1.exr"_s},
                     {u"a.18446744073709551615.exr"_s, u"b.0.exr"_s}},
                    {"absent start is 0", {}, {u"a.0003.exr"_s}, {u"a.0000.exr"_s}},
                });
}

TEST_F(FrameTasks, RenumberTakesNoReloadTheOthersDo) {
    const struct {
        TaskMethod task;
        int reloads;
    } cases[] = {
        {&MyDocument::processReorderFrames, 0}, {&MyDocument::processReverseNumbers, 1},
        {&MyDocument::processPadNumbers, 1},    {&MyDocument::processCloseGaps, 1},
        {&MyDocument::processOffsetNumbers, 1}, {&MyDocument::processRemoveFrameNumber, 1},
    };
    for (const auto& c : cases) {
        TaskDoc t({u"a.1.exr"_s, u"b.3.exr"_s});
        EXPECT_TRUE(t.preview(c.task, {}));
        EXPECT_EQ(t.view.reloadsPosted, c.reloads);
    }
}

TEST_F(FrameTasks, Reverse) {
    runExamples(&MyDocument::processReverseNumbers,
                {
                    {"odd",
                     {},
                     {u"s.1.exr"_s, u"s.2.exr"_s, u"s.3.exr"_s, u"t.4.exr"_s, u"t.5.exr"_s},
                     {u"s.5.exr"_s, u"s.4.exr"_s, u"s.3.exr"_s, u"t.2.exr"_s, u"t.1.exr"_s}},
                    {"even",
                     {},
                     {u"a.10.exr"_s, u"b.20.exr"_s, u"c.30.exr"_s, u"d.40.exr"_s},
                     {u"a.40.exr"_s, u"b.30.exr"_s, u"c.20.exr"_s, u"d.10.exr"_s}},
                    {"padding stays with the file",
                     {},
                     {u"a.1.exr"_s, u"b.0002.exr"_s},
                     {u"a.2.exr"_s, u"b.0001.exr"_s}},
                    {"unnumbered take no part",
                     {},
                     {u"plain.exr"_s, u"s.1.exr"_s, u"other"_s, u"s.2.exr"_s},
                     {u"plain.exr"_s, u"s.2.exr"_s, u"other"_s, u"s.1.exr"_s}},
                    {"single", {}, {u"s.7.exr"_s}, {u"s.7.exr"_s}},
                });
}

TEST_F(FrameTasks, ReverseResetsEveryPreview) {
    TaskDoc t({u"plain.exr"_s, u"s.1.exr"_s, u"s.2.exr"_s});
    for (const auto& f : t.files)
        f->previewObject()->setFileName(u"stale"_s);
    EXPECT_TRUE(t.preview(&MyDocument::processReverseNumbers, {}));
    EXPECT_EQ(t.previews(), QStringList({u"plain.exr"_s, u"s.2.exr"_s, u"s.1.exr"_s}));
}

TEST_F(FrameTasks, Pad) {
    runExamples(&MyDocument::processPadNumbers,
                {
                    {"0 means 4",
                     padLength(0),
                     {u"s.1.exr"_s, u"s.12.exr"_s},
                     {u"s.0001.exr"_s, u"s.0012.exr"_s}},
                    {"absent means 4", {}, {u"s.7.exr"_s}, {u"s.0007.exr"_s}},
                    {"never shortens",
                     padLength(2),
                     {u"s.12345.exr"_s, u"s.000001.exr"_s},
                     {u"s.12345.exr"_s, u"s.01.exr"_s}},
                    {"unnumbered unchanged", padLength(6), {u"s.exr"_s}, {u"s.exr"_s}},
                });
    // The padding is set on unnumbered files too: a later number uses it.
    TaskDoc t({u"s.exr"_s});
    ASSERT_TRUE(t.preview(&MyDocument::processPadNumbers, padLength(3)));
    EXPECT_EQ(t.files.first()->previewObject()->paddingLength(), 3u);
}

TEST_F(FrameTasks, CloseGaps) {
    runExamples(
        &MyDocument::processCloseGaps,
        {
            {"first keeps its number",
             {},
             {u"a.1.exr"_s, u"a.3.exr"_s, u"a.7.exr"_s},
             {u"a.1.exr"_s, u"a.2.exr"_s, u"a.3.exr"_s}},
            {"from ten", {}, {u"a.10.exr"_s, u"a.12.exr"_s}, {u"a.10.exr"_s, u"a.11.exr"_s}},
            {"zero is no previous",
             {},
             {u"a.0.exr"_s, u"a.5.exr"_s, u"a.6.exr"_s},
             {u"a.0.exr"_s, u"a.5.exr"_s, u"a.6.exr"_s}},
            {"duplicates stay",
             {},
             {u"a.2.exr"_s, u"b.2.exr"_s, u"c.9.exr"_s},
             {u"a.2.exr"_s, u"b.2.exr"_s, u"c.3.exr"_s}},
            {"unnumbered resets",
             {},
             {u"a.1.exr"_s, u"plain.exr"_s, u"a.5.exr"_s, u"a.9.exr"_s},
             {u"a.1.exr"_s, u"plain.exr"_s, u"a.5.exr"_s, u"a.6.exr"_s}},
            {"padding kept",
             {},
             {u"a.0001.exr"_s, u"a.0005.exr"_s},
             {u"a.0001.exr"_s, u"a.0002.exr"_s}},
        });
}

TEST_F(FrameTasks, Offset) {
    runExamples(
        &MyDocument::processOffsetNumbers,
        {
            {"up", offset(10), {u"a.1.exr"_s, u"a.2.exr"_s}, {u"a.11.exr"_s, u"a.12.exr"_s}},
            {"down",
             offset(-2),
             {u"a.0003.exr"_s, u"a.0010.exr"_s},
             {u"a.0001.exr"_s, u"a.0008.exr"_s}},
            {"below zero wraps", offset(-5), {u"a.3.exr"_s}, {u"a.18446744073709551614.exr"_s}},
            {"unnumbered skipped",
             offset(4),
             {u"a.exr"_s, u"b.1.exr"_s},
             {u"a.exr"_s, u"b.5.exr"_s}},
            {"zero", offset(0), {u"a.0042.exr"_s}, {u"a.0042.exr"_s}},
        });
}

TEST_F(FrameTasks, RemoveFrameNumber) {
    runExamples(&MyDocument::processRemoveFrameNumber,
                {
                    {"with separator before", {}, {u"shot.0001.dpx"_s}, {u"shot.dpx"_s}},
                    {"only extension would remain", {}, {u"0001.dpx"_s}, {u"0001.dpx"_s}},
                    {"nothing would remain", {}, {u"0001"_s}, {u"0001"_s}},
                    {"no extension", {}, {u"shot_12"_s}, {u"shot"_s}},
                    {"no frame number", {}, {u"shot.dpx"_s}, {u"shot.dpx"_s}},
                });
}

TEST_F(FrameTasks, RemoveFrameNumberTakesTheSeparatorAfterWhenNoneBefore) {
    TaskDoc t({u"x"_s});
    t.files.first()->setComponents({NameComponent::frameNumber(QVariant::fromValue<qlonglong>(5)),
                                    NameComponent::separator(u'_'),
                                    NameComponent::filename(u"take"_s)});
    t.files.first()->synchronize();
    ASSERT_EQ(t.files.first()->fileName(), u"5_take"_s);
    EXPECT_TRUE(t.preview(&MyDocument::processRemoveFrameNumber, {}));
    EXPECT_EQ(t.previews(), QStringList{u"take"_s});
}

TEST_F(FrameTasks, PreviewBatchesWorkOnlyOnWhatTheyAreHanded) {
    // Reversal looks only within the handed batch while previewing.
    TaskDoc t({u"a.1.exr"_s, u"a.2.exr"_s, u"a.3.exr"_s, u"a.4.exr"_s});
    const FileList first = t.files.mid(0, 2);
    EXPECT_TRUE(t.preview(&MyDocument::processReverseNumbers, {}, first));
    EXPECT_EQ(t.previews().mid(0, 2), QStringList({u"a.2.exr"_s, u"a.1.exr"_s}));
}

} // namespace
