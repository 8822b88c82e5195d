#include "TaskTestSupport.h"

namespace {

class AffixTasks : public LoggedTest {};
const TaskMethod prefix = &MyDocument::processAddPrefix;
const TaskMethod suffix = &MyDocument::processAddSuffix;
const TaskMethod changeExt = &MyDocument::processChangeFileExtension;
const TaskMethod insert = &MyDocument::processInsertCharactersAtPosition;
const TaskMethod replace = &MyDocument::processReplaceCharactersInRange;
const TaskMethod fromStart = &MyDocument::processRemoveCharactersFromStart;
const TaskMethod range = &MyDocument::processRemoveCharacterRange;

// Settings of the character tasks hold the fields' text.
const auto at = [](QString text, QString pos) {
    return QVariantMap{{u"text"_s, text}, {u"position"_s, pos}};
};
const auto count = [](QString n) { return QVariantMap{{u"charCount"_s, n}}; };
const auto span = [](QString start, QString end, QString text = {}) {
    return QVariantMap{{u"rangeStart"_s, start}, {u"rangeEnd"_s, end}, {u"text"_s, text}};
};
const auto suffixed = [](QString s, bool beforeFrame) {
    return QVariantMap{{u"suffix"_s, s}, {u"addBeforeFrame"_s, beforeFrame}};
};

TEST_F(AffixTasks, ComponentTasks) {
    // clang-format off
    expectExamples({
        {"prefix", prefix, {{u"prefix"_s, u"A_"_s}}, "0001.jpg", "A_0001.jpg"},
        {"suffix after frame, no frame", suffix, suffixed(u"_b"_s, false), "MyImage.0001.jpg|MyImage.jpg", "MyImage.0001._b.jpg|MyImage_b.jpg"},
        {"suffix before frame", suffix, suffixed(u"_x"_s, true), "MyImage.0001.jpg", "MyImage_x.0001.jpg"},
        {"suffix: last name token, else after the first", suffix, suffixed(u"X"_s, true), "a_b.c.jpg|0001.jpg", "a_b.cX.jpg|0001X.jpg"},
        {"ext, after separator", changeExt, {{u"fileExt"_s, u"tif"_s}}, "MyImage.jpg|MyImage|take_", "MyImage.tif|MyImage.tif|take_tif"},
        {"ext dot kept", changeExt, {{u"fileExt"_s, u".png"_s}}, "MyImage.jpg", "MyImage..png"},
        {"remove ext", &MyDocument::processRemoveFileExtension, {}, "MyImage.0001.jpg|.hidden", "MyImage.0001|.hidden"},
    });
    // clang-format on
}

TEST_F(AffixTasks, CharacterPositionTasks) {
    const QString big = u"99999999999999999999"_s;
    const TaskMethod fromEnd = &MyDocument::processRemoveCharactersFromEnd;
    // clang-format off
    expectExamples({
        {"insert", insert, at(u"X"_s, u"2"_s), "MyImage.jpg", "MyXImage.jpg"},
        {"insert field text", insert, at(u"X"_s, u"  3abc"_s), "MyImage.jpg", "MyIXmage.jpg"},
        {"insert past end", insert, at(u"X"_s, u"50"_s), "MyImage.jpg|ab", "MyImageX.jpg|abX"},
        {"insert negative", insert, at(u"X"_s, u"-1"_s), "MyImage.jpg", "MyImageX.jpg"},
        {"insert no text", insert, {{u"position"_s, u"1"_s}}, "ab.c", "ab.c"},
        {"replace", replace, span(u"2"_s, u"3"_s, u"--"_s), "MyImage.jpg", "My--age.jpg"},
        {"replace empty keeps", replace, span(u"0"_s, u"1"_s), "My.jpg", "My.jpg"},
        {"replace start past end", replace, span(u"40"_s, u"0"_s, u"Z"_s), "abc.jpg", "Zbc.jpg"},
        {"replace end before start", replace, span(u"4"_s, u"1"_s, u"_"_s), "abcdef.j", "abcd_cdef.j"},
        {"replace end -1", replace, span(u"0"_s, u"-1"_s, u"Q"_s), "abc", "Qabc"},
        {"replace tail off end", replace, span(u"1"_s, u"9"_s, u"Q"_s), "abc.d", "aQ.d"},
        {"from start", fromStart, count(u"3"_s), "MyImage.0001.jpg", "mage.0001.jpg"},
        {"from start never empties", fromStart, count(u"7"_s), "MyImage.jpg", "MyImage.jpg"},
        {"from start negative", fromStart, count(u"-2"_s), "MyImage.jpg", "MyImage.jpg"},
        {"from end over number", fromEnd, count(u"7"_s), "MyImage.0001.jpg", "MyIma.jpg"},
        {"from end never empties", fromEnd, count(u"2"_s), "ab.c", "ab.c"},
        {"range", range, span(u"0"_s, u"1"_s), "MyImage.jpg", "Image.jpg"},
        {"range reaching last refused", range, span(u"5"_s, u"6"_s), "MyImage.jpg", "MyImage.jpg"},
        {"range reversed refused", range, span(u"3"_s, u"2"_s), "MyImage.jpg", "MyImage.jpg"},
        {"range negative start", range, span(u"-2"_s, u"1"_s), "MyImage.jpg", "Image.jpg"},
        {"range both negative", range, span(u"-5"_s, u"-3"_s), "MyImage.jpg", "MyImage.jpg"},
        {"range overflowing span", range, span(u"-"_s + big, big), "MyImage.jpg", "MyImage.jpg"},
        {"range reparsed", range, span(u"0"_s, u"5"_s), "ab_cd.0001.exr", "0001.exr"},
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
    const ComponentList list = t.files[0]->components();
    t.setComponents(0, list.first(list.size() - 2));
    EXPECT_TRUE(t.preview(&MyDocument::processRemoveFileExtension, {}));
    EXPECT_EQ(t.previews(), QStringList{u"MyImage.0001"_s});
}

TEST_F(AffixTasks, MissingTextSettingsFailAtOnceWithoutTouchingAnything) {
    ConsoleLines console;
    for (const auto& [task, key] : {std::pair{prefix, u"prefix"_s}, std::pair{suffix, u"suffix"_s},
                                    std::pair{changeExt, u"fileExt"_s}})
        for (const QVariantMap& s : {QVariantMap(), QVariantMap{{key, u""_s}}}) {
            TaskDoc t({u"a.jpg"_s});
            t.files[0]->previewObject()->setFileName(u"stale"_s);
            EXPECT_FALSE(t.preview(task, s));
            EXPECT_EQ(t.previews(), QStringList{u"stale"_s}) << key.toStdString();
            EXPECT_EQ(t.view.reloadsPosted, 0);
        }
    EXPECT_TRUE(console.lines().isEmpty());
    TaskDoc t({u"a.jpg"_s}); // prefix never posts a reload, suffix does
    EXPECT_TRUE(t.preview(prefix, {{u"prefix"_s, u"p"_s}}) &&
                t.preview(suffix, suffixed(u"s"_s, false)));
    EXPECT_EQ(t.view.reloadsPosted, 1);
}

TEST_F(AffixTasks, SuffixOnAnEmptyComponentListFailsAndIsLogged) {
    ConsoleLines console;
    TaskDoc t({u"a.jpg"_s, u"b.jpg"_s});
    t.setComponents(0, {});
    EXPECT_FALSE(t.preview(suffix, suffixed(u"_s"_s, false)));
    const QString line = u"Exception in -[MyDocument processAddSuffix:files:]. NSRangeException - "
                         u"index 1 beyond bounds for empty array."_s;
    EXPECT_EQ(console.lines(), QStringList{line});
    EXPECT_EQ(logCount(line), 1);
    EXPECT_EQ(t.files[1]->previewObject()->fileName(), u"b.jpg"_s); // the walk stopped
}

} // namespace
