#include "TaskTestSupport.h"

namespace {

class FrameTasks : public LoggedTest {};
const TaskMethod renumber = &MyDocument::processReorderFrames;
const TaskMethod reverse = &MyDocument::processReverseNumbers;
const TaskMethod pad = &MyDocument::processPadNumbers;
const TaskMethod closeGaps = &MyDocument::processCloseGaps;
const TaskMethod offsetBy = &MyDocument::processOffsetNumbers;
const TaskMethod removeFrame = &MyDocument::processRemoveFrameNumber;

QVariantMap u64(const QString& key, quint64 n) {
    return {{key, QVariant::fromValue<qulonglong>(n)}};
}
QVariantMap start(quint64 n) {
    return u64(u"startFrame"_s, n);
}
QVariantMap padTo(quint64 n) {
    return u64(u"padLength"_s, n);
}
// Stored as the unsigned integer of the same bits, as the settings form does.
QVariantMap offset(qint64 n) {
    return u64(u"offset"_s, static_cast<quint64>(n));
}

// "a.1.x", "a.2.x", ... for the frame numbers given (-1: no number, "a.x").
QStringList frames(std::initializer_list<int> numbers, const QString& pattern = u"a.%1.x"_s) {
    QStringList out;
    for (int n : numbers)
        out.append(n < 0 ? u"a.x"_s : pattern.arg(n));
    return out;
}

TEST_F(FrameTasks, Examples) {
    const QString max = u"18446744073709551615"_s;
    // clang-format off
    expectExamples({
        {"renumber: table order decides", renumber, start(1), frames({7, 7, 9}, u"a.%1.exr"_s), {u"a.1.exr"_s, u"a.2.exr"_s, u"a.3.exr"_s}},
        {"renumber keeps padding", renumber, start(1), {u"a.0009.x"_s, u"a.0007.x"_s}, {u"a.0001.x"_s, u"a.0002.x"_s}},
        {"renumber from 0 skips unnumbered", renumber, start(0), frames({-1, -1}), {u"a.x"_s, u"a.1.x"_s}},
        {"renumber gives numbers", renumber, start(5), {u"take"_s}, {u"take.5"_s}},
        {"renumber wraps", renumber, start(~0ULL), frames({1, 1}), {u"a."_s + max + u".x"_s, u"a.0.x"_s}},
        {"reverse odd", reverse, {}, frames({1, 2, 3, 4, 5}), frames({5, 4, 3, 2, 1})},
        {"reverse even, unnumbered out", reverse, {}, frames({10, -1, 20, 30, 40}), frames({40, -1, 30, 20, 10})},
        {"reverse moves numbers not padding", reverse, {}, {u"a.1.x"_s, u"a.0002.x"_s}, {u"a.2.x"_s, u"a.0001.x"_s}},
        {"pad 0 means 4", pad, padTo(0), frames({1, 12, -1}), {u"a.0001.x"_s, u"a.0012.x"_s, u"a.x"_s}},
        {"pad absent means 4", pad, {}, frames({7}), {u"a.0007.x"_s}},
        {"pad never shortens", pad, padTo(2), {u"a.12345.x"_s, u"a.000001.x"_s}, {u"a.12345.x"_s, u"a.01.x"_s}},
        {"close gaps", closeGaps, {}, frames({1, 3, 7}), frames({1, 2, 3})},
        {"close gaps from 10", closeGaps, {}, frames({10, 12}), frames({10, 11})},
        {"close gaps: 0 is no previous", closeGaps, {}, frames({0, 5, 6}), frames({0, 5, 6})},
        {"close gaps: duplicates stay", closeGaps, {}, frames({2, 2, 9}), frames({2, 2, 3})},
        {"close gaps: unnumbered resets", closeGaps, {}, frames({1, -1, 5, 9}), frames({1, -1, 5, 6})},
        {"offset up", offsetBy, offset(10), frames({1, 2, -1}), frames({11, 12, -1})},
        {"offset down keeps padding", offsetBy, offset(-2), {u"a.0003.x"_s, u"a.0010.x"_s}, {u"a.0001.x"_s, u"a.0008.x"_s}},
        {"offset wraps below 0", offsetBy, offset(-5), frames({3}), {u"a.18446744073709551614.x"_s}},
        {"remove frame", removeFrame, {}, {u"shot.0001.dpx"_s, u"shot_12"_s, u"shot.dpx"_s}, {u"shot.dpx"_s, u"shot"_s, u"shot.dpx"_s}},
        {"remove frame never empties", removeFrame, {}, {u"0001.dpx"_s, u"0001"_s}, {u"0001.dpx"_s, u"0001"_s}},
    });
    // clang-format on
}

TEST_F(FrameTasks, PaddingIsSetOnUnnumberedFilesToo) {
    TaskDoc t({u"s.x"_s});
    ASSERT_TRUE(t.preview(pad, padTo(3)));
    EXPECT_EQ(t.files[0]->previewObject()->paddingLength(), 3u);
}

TEST_F(FrameTasks, ReverseResetsEveryPreviewAndLooksOnlyAtItsBatch) {
    TaskDoc t(frames({-1, 1, 2, 3, 4}));
    for (const auto& f : t.files)
        f->previewObject()->setFileName(u"stale"_s);
    EXPECT_TRUE(t.preview(reverse, {}, t.files.mid(0, 3)));
    EXPECT_EQ(t.previews(),
              QStringList({u"a.x"_s, u"a.2.x"_s, u"a.1.x"_s, u"stale"_s, u"stale"_s}));
}

TEST_F(FrameTasks, RemoveFrameNumberTakesTheSeparatorAfterOnlyWhenNoneBefore) {
    TaskDoc t({u"x"_s});
    t.files[0]->setComponents({NameComponent::frameNumber(QVariant::fromValue<qlonglong>(5)),
                               NameComponent::separator(u'_'), NameComponent::filename(u"take"_s)});
    t.files[0]->synchronize();
    EXPECT_TRUE(t.preview(removeFrame, {}));
    EXPECT_EQ(t.previews(), QStringList{u"take"_s});
}

TEST_F(FrameTasks, OnlyRenumberPostsNoReload) {
    for (const auto& [task, reloads] : {std::pair{renumber, 0},
                                        {reverse, 1},
                                        {pad, 1},
                                        {closeGaps, 1},
                                        {offsetBy, 1},
                                        {removeFrame, 1}}) {
        TaskDoc t(frames({1, 3}));
        EXPECT_TRUE(t.preview(task, {}));
        EXPECT_EQ(t.view.reloadsPosted, reloads);
    }
}

} // namespace
