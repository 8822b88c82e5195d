#include "TaskTestSupport.h"

namespace {

class AffixTasks : public LoggedTest {};
const TaskMethod prefix = &MyDocument::processAddPrefix;
const TaskMethod suffix = &MyDocument::processAddSuffix;
const TaskMethod changeExt = &MyDocument::processChangeFileExtension;
const TaskMethod removeExt = &MyDocument::processRemoveFileExtension;
const TaskMethod insert = &MyDocument::processInsertCharactersAtPosition;
const TaskMethod replace = &MyDocument::processReplaceCharactersInRange;
const TaskMethod fromStart = &MyDocument::processRemoveCharactersFromStart;
const TaskMethod fromEnd = &MyDocument::processRemoveCharactersFromEnd;
const TaskMethod range = &MyDocument::processRemoveCharacterRange;

// Settings of the character tasks hold the fields' text.
QVariantMap at(const QString& text, const QString& position) {
    return {{u"text"_s, text}, {u"position"_s, position}};
}
QVariantMap span(const QString& start, const QString& end, const QString& text = {}) {
    return {{u"rangeStart"_s, start}, {u"rangeEnd"_s, end}, {u"text"_s, text}};
}
QVariantMap count(const QString& n) {
    return {{u"charCount"_s, n}};
}
QVariantMap suffixed(const QString& s, bool beforeFrame) {
    return {{u"suffix"_s, s}, {u"addBeforeFrame"_s, beforeFrame}};
}

TEST_F(AffixTasks, ComponentTasks) {
    // clang-format off
    expectExamples({
        {"prefix", prefix, {{u"prefix"_s, u"A_"_s}}, {u"0001.jpg"_s}, {u"A_0001.jpg"_s}},
        {"suffix after frame", suffix, suffixed(u"_b"_s, false), {u"MyImage.0001.jpg"_s}, {u"MyImage.0001._b.jpg"_s}},
        {"suffix before frame", suffix, suffixed(u"_x"_s, true), {u"MyImage.0001.jpg"_s}, {u"MyImage_x.0001.jpg"_s}},
        {"suffix no frame", suffix, suffixed(u"_b"_s, false), {u"MyImage.jpg"_s}, {u"MyImage_b.jpg"_s}},
        {"suffix last name token", suffix, suffixed(u"X"_s, true), {u"a_b.c.jpg"_s}, {u"a_b.cX.jpg"_s}},
        {"suffix after first", suffix, suffixed(u"S"_s, true), {u"0001.jpg"_s}, {u"0001S.jpg"_s}},
        {"ext", changeExt, {{u"fileExt"_s, u"tif"_s}}, {u"MyImage.jpg"_s, u"MyImage"_s}, {u"MyImage.tif"_s, u"MyImage.tif"_s}},
        {"ext dot kept", changeExt, {{u"fileExt"_s, u".png"_s}}, {u"MyImage.jpg"_s}, {u"MyImage..png"_s}},
        {"ext after separator", changeExt, {{u"fileExt"_s, u"tif"_s}}, {u"take_"_s}, {u"take_tif"_s}},
        {"remove ext", removeExt, {}, {u"MyImage.0001.jpg"_s, u".hidden"_s}, {u"MyImage.0001"_s, u".hidden"_s}},
    });
    // clang-format on
}

TEST_F(AffixTasks, CharacterPositionTasks) {
    const QString big = u"99999999999999999999"_s;
    // clang-format off
    expectExamples({
        {"insert", insert, at(u"X"_s, u"2"_s), {u"MyImage.jpg"_s}, {u"MyXImage.jpg"_s}},
        {"insert first", insert, at(u"X"_s, u"abc"_s), {u"My.jpg"_s}, {u"XMy.jpg"_s}},
        {"insert field text", insert, at(u"X"_s, u"  3abc"_s), {u"MyImage.jpg"_s}, {u"MyIXmage.jpg"_s}},
        {"insert past end", insert, at(u"X"_s, u"50"_s), {u"MyImage.jpg"_s, u"ab"_s}, {u"MyImageX.jpg"_s, u"abX"_s}},
        {"insert negative", insert, at(u"X"_s, u"-1"_s), {u"MyImage.jpg"_s}, {u"MyImageX.jpg"_s}},
        {"insert no text", insert, {{u"position"_s, u"1"_s}}, {u"ab.c"_s}, {u"ab.c"_s}},
        {"replace", replace, span(u"2"_s, u"3"_s, u"--"_s), {u"MyImage.jpg"_s}, {u"My--age.jpg"_s}},
        {"replace empty keeps", replace, span(u"0"_s, u"1"_s), {u"My.jpg"_s}, {u"My.jpg"_s}},
        {"replace start past end", replace, span(u"40"_s, u"0"_s, u"Z"_s), {u"abc.jpg"_s}, {u"Zbc.jpg"_s}},
        {"replace end before start", replace, span(u"4"_s, u"1"_s, u"_"_s), {u"abcdef.j"_s}, {u"abcd_cdef.j"_s}},
        {"replace end -1", replace, span(u"0"_s, u"-1"_s, u"Q"_s), {u"abc"_s}, {u"Qabc"_s}},
        {"replace tail off end", replace, span(u"1"_s, u"9"_s, u"Q"_s), {u"abc.d"_s}, {u"aQ.d"_s}},
        {"from start", fromStart, count(u"3"_s), {u"MyImage.0001.jpg"_s}, {u"mage.0001.jpg"_s}},
        {"from start never empties", fromStart, count(u"7"_s), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"from start negative", fromStart, count(u"-2"_s), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"from end over number", fromEnd, count(u"7"_s), {u"MyImage.0001.jpg"_s}, {u"MyIma.jpg"_s}},
        {"from end never empties", fromEnd, count(u"2"_s), {u"ab.c"_s}, {u"ab.c"_s}},
        {"range", range, span(u"0"_s, u"1"_s), {u"MyImage.jpg"_s}, {u"Image.jpg"_s}},
        {"range reaching last refused", range, span(u"5"_s, u"6"_s), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"range reversed refused", range, span(u"3"_s, u"2"_s), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"range negative start", range, span(u"-2"_s, u"1"_s), {u"MyImage.jpg"_s}, {u"Image.jpg"_s}},
        {"range both negative", range, span(u"-5"_s, u"-3"_s), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"range overflowing span", range, span(u"-"_s + big, big), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"range reparsed", range, span(u"0"_s, u"5"_s), {u"ab_cd.0001.exr"_s}, {u"0001.exr"_s}},
    });
    // clang-format on
    // The new name is parsed again: a frame number with its padding appears.
    TaskDoc t({u"MyImage.jpg"_s});
    ASSERT_TRUE(t.preview(insert, at(u"_042"_s, u"7"_s)));
    EXPECT_EQ(FrameValue::toUnsigned(t.files[0]->previewObject()->frameNumber()), 42u);
    EXPECT_EQ(t.files[0]->previewObject()->paddingLength(), 3u);
}

TEST_F(AffixTasks, RemoveExtensionLooksOnlyAtTheLastComponent) {
    // After one removal (as a commit leaves it) the list ends with the frame
    // number, which a second removal leaves alone.
    TaskDoc t({u"MyImage.0001.jpg"_s});
    ComponentList list = t.files[0]->components();
    list.resize(list.size() - 2);
    t.files[0]->setComponents(list);
    t.files[0]->synchronize();
    EXPECT_TRUE(t.preview(removeExt, {}));
    EXPECT_EQ(t.previews(), QStringList{u"MyImage.0001"_s});
}

TEST_F(AffixTasks, MissingTextSettingsFailAtOnceWithoutTouchingAnything) {
    ConsoleLines console;
    for (const auto& [task, key] : {std::pair{prefix, u"prefix"_s}, std::pair{suffix, u"suffix"_s},
                                    std::pair{changeExt, u"fileExt"_s}}) {
        for (const QVariantMap& s : {QVariantMap(), QVariantMap{{key, u""_s}}}) {
            TaskDoc t({u"a.jpg"_s});
            t.files[0]->previewObject()->setFileName(u"stale"_s);
            EXPECT_FALSE(t.preview(task, s));
            EXPECT_EQ(t.previews(), QStringList{u"stale"_s}) << key.toStdString();
            EXPECT_EQ(t.view.reloadsPosted, 0);
        }
    }
    EXPECT_TRUE(console.lines().isEmpty());
    TaskDoc t({u"a.jpg"_s}); // prefix never posts a reload, suffix does
    EXPECT_TRUE(t.preview(prefix, {{u"prefix"_s, u"p"_s}}));
    EXPECT_TRUE(t.preview(suffix, suffixed(u"s"_s, false)));
    EXPECT_EQ(t.view.reloadsPosted, 1);
}

TEST_F(AffixTasks, SuffixOnAnEmptyComponentListFailsAndIsLogged) {
    ConsoleLines console;
    TaskDoc t({u"a.jpg"_s, u"b.jpg"_s});
    t.files[0]->setComponents({});
    t.files[0]->synchronize();
    EXPECT_FALSE(t.preview(suffix, suffixed(u"_s"_s, false)));
    const QString line = u"Exception in -[MyDocument processAddSuffix:files:]. NSRangeException - "
                         u"index 1 beyond bounds for empty array."_s;
    EXPECT_EQ(console.lines(), QStringList{line});
    EXPECT_EQ(logCount(line), 1);
    EXPECT_EQ(t.files[1]->previewObject()->fileName(), u"b.jpg"_s); // the walk stopped
}

} // namespace
