#include "TaskTestSupport.h"

namespace {

class FrameTasks : public LoggedTest {};
const TaskMethod renumber = &MyDocument::processReorderFrames;
const TaskMethod reverse = &MyDocument::processReverseNumbers;
const TaskMethod pad = &MyDocument::processPadNumbers;
const TaskMethod closeGaps = &MyDocument::processCloseGaps;
const TaskMethod offsetBy = &MyDocument::processOffsetNumbers;
const TaskMethod removeFrame = &MyDocument::processRemoveFrameNumber;

// Numbers are stored as unsigned integers; an offset as the one of the same bits.
QVariantMap u64(const char* key, quint64 n) {
    return {{QString::fromLatin1(key), QVariant::fromValue<qulonglong>(n)}};
}

TEST_F(FrameTasks, Examples) {
    const quint64 minus2 = static_cast<quint64>(-2), minus5 = static_cast<quint64>(-5);
    // clang-format off
    expectExamples({
        {"renumber: table order decides", renumber, u64("startFrame", 1), "a.7.exr|a.7.exr|a.9.exr", "a.1.exr|a.2.exr|a.3.exr"},
        {"renumber keeps padding", renumber, u64("startFrame", 1), "a.0009.x|a.0007.x", "a.0001.x|a.0002.x"},
        {"renumber from 0 skips unnumbered", renumber, u64("startFrame", 0), "a.x|a.x", "a.x|a.1.x"},
        {"renumber gives numbers", renumber, u64("startFrame", 5), "take", "take.5"},
        {"renumber wraps", renumber, u64("startFrame", ~0ULL), "a.1.x|a.1.x", "a.18446744073709551615.x|a.0.x"},
        {"reverse odd", reverse, {}, "a.1.x|a.2.x|a.3.x|a.4.x|a.5.x", "a.5.x|a.4.x|a.3.x|a.2.x|a.1.x"},
        {"reverse even, unnumbered out", reverse, {}, "a.10.x|a.x|a.20.x|a.30.x|a.40.x", "a.40.x|a.x|a.30.x|a.20.x|a.10.x"},
        {"reverse moves numbers not padding", reverse, {}, "a.1.x|a.0002.x", "a.2.x|a.0001.x"},
        {"pad 0 means 4", pad, u64("padLength", 0), "a.1.x|a.12.x|a.x", "a.0001.x|a.0012.x|a.x"},
        {"pad absent means 4", pad, {}, "a.7.x", "a.0007.x"},
        {"pad never shortens", pad, u64("padLength", 2), "a.12345.x|a.000001.x", "a.12345.x|a.01.x"},
        {"close gaps", closeGaps, {}, "a.1.x|a.3.x|a.7.x", "a.1.x|a.2.x|a.3.x"},
        {"close gaps from 10", closeGaps, {}, "a.10.x|a.12.x", "a.10.x|a.11.x"},
        {"close gaps: 0 is no previous", closeGaps, {}, "a.0.x|a.5.x|a.6.x", "a.0.x|a.5.x|a.6.x"},
        {"close gaps: duplicates stay", closeGaps, {}, "a.2.x|a.2.x|a.9.x", "a.2.x|a.2.x|a.3.x"},
        {"close gaps: unnumbered resets", closeGaps, {}, "a.1.x|a.x|a.5.x|a.9.x", "a.1.x|a.x|a.5.x|a.6.x"},
        {"offset up", offsetBy, u64("offset", 10), "a.1.x|a.2.x|a.x", "a.11.x|a.12.x|a.x"},
        {"offset down keeps padding", offsetBy, u64("offset", minus2), "a.0003.x|a.0010.x", "a.0001.x|a.0008.x"},
        {"offset wraps below 0", offsetBy, u64("offset", minus5), "a.3.x", "a.18446744073709551614.x"},
        {"remove frame", removeFrame, {}, "shot.0001.dpx|shot_12|shot.dpx", "shot.dpx|shot|shot.dpx"},
        {"remove frame never empties", removeFrame, {}, "0001.dpx|0001", "0001.dpx|0001"},
    });
    // clang-format on
}

// Padding is set on unnumbered files too; removing a leading frame number
// takes the separator after it only when there is none before.
TEST_F(FrameTasks, PaddingOnUnnumberedAndSeparatorAfterALeadingFrame) {
    TaskDoc t({u"s.x"_s});
    ASSERT_TRUE(t.preview(pad, u64("padLength", 3)));
    EXPECT_EQ(t.files[0]->previewObject()->paddingLength(), 3u);
    t.setComponents(0, {NameComponent::frameNumber(QVariant::fromValue<qlonglong>(5)),
                        NameComponent::separator(u'_'), NameComponent::filename(u"take"_s)});
    EXPECT_TRUE(t.preview(removeFrame, {}));
    EXPECT_EQ(t.previews(), QStringList{u"take"_s});
}

TEST_F(FrameTasks, ReverseResetsEveryPreviewAndLooksOnlyAtItsBatch) {
    TaskDoc t(names("a.x|a.1.x|a.2.x|a.3.x|a.4.x"));
    for (const auto& f : t.files)
        f->previewObject()->setFileName(u"stale"_s);
    EXPECT_TRUE(t.preview(reverse, {}, t.files.mid(0, 3)));
    EXPECT_EQ(t.previews(), names("a.x|a.2.x|a.1.x|stale|stale"));
}

} // namespace
