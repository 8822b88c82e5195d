#include "TaskTestSupport.h"

namespace {

struct AffixExample {
    const char* label;
    TaskMethod task;
    QVariantMap settings;
    QString before;
    QString after;
};

QVariantMap kv(std::initializer_list<std::pair<const char*, QVariant>> pairs) {
    QVariantMap m;
    for (const auto& [k, v] : pairs)
        m.insert(QString::fromLatin1(k), v);
    return m;
}

class AffixTasks : public LoggedTest {};

TEST_F(AffixTasks, ComponentTasks) {
    const AffixExample examples[] = {
        {"prefix", &MyDocument::processAddPrefix, kv({{"prefix", u"New_"_s}}),
         u"MyImage.0001.jpg"_s, u"New_MyImage.0001.jpg"_s},
        {"prefix before number", &MyDocument::processAddPrefix, kv({{"prefix", u"A_"_s}}),
         u"0001.jpg"_s, u"A_0001.jpg"_s},
        {"suffix after frame", &MyDocument::processAddSuffix,
         kv({{"suffix", u"_b"_s}, {"addBeforeFrame", false}}), u"MyImage.0001.jpg"_s,
         u"MyImage.0001._b.jpg"_s},
        {"suffix before frame", &MyDocument::processAddSuffix,
         kv({{"suffix", u"_x"_s}, {"addBeforeFrame", true}}), u"MyImage.0001.jpg"_s,
         u"MyImage_x.0001.jpg"_s},
        {"suffix no frame", &MyDocument::processAddSuffix, kv({{"suffix", u"_b"_s}}),
         u"MyImage.jpg"_s, u"MyImage_b.jpg"_s},
        {"suffix last name token", &MyDocument::processAddSuffix,
         kv({{"suffix", u"X"_s}, {"addBeforeFrame", true}}), u"a_b.c.jpg"_s, u"a_b.cX.jpg"_s},
        // Neither a name token nor (before-frame mode) a frame number: after
        // the first component, whatever it is.
        {"suffix fallback", &MyDocument::processAddSuffix,
         kv({{"suffix", u"S"_s}, {"addBeforeFrame", true}}), u"0001.jpg"_s, u"0001S.jpg"_s},
        {"ext change", &MyDocument::processChangeFileExtension, kv({{"fileExt", u"tif"_s}}),
         u"MyImage.jpg"_s, u"MyImage.tif"_s},
        {"ext add", &MyDocument::processChangeFileExtension, kv({{"fileExt", u"tif"_s}}),
         u"MyImage"_s, u"MyImage.tif"_s},
        {"ext dot kept", &MyDocument::processChangeFileExtension, kv({{"fileExt", u".png"_s}}),
         u"MyImage.jpg"_s, u"MyImage..png"_s},
        {"ext after separator", &MyDocument::processChangeFileExtension,
         kv({{"fileExt", u"tif"_s}}), u"take_"_s, u"take_tif"_s},
        {"ext remove",
         &MyDocument::processRemoveFileExtension,
         {},
         u"MyImage.0001.jpg"_s,
         u"MyImage.0001"_s},
        {"ext remove dotfile",
         &MyDocument::processRemoveFileExtension,
         {},
         u".hidden"_s,
         u".hidden"_s},
    };
    for (const auto& ex : examples) {
        SCOPED_TRACE(ex.label);
        bool ok = false;
        EXPECT_EQ(previewOf(ex.task, {ex.before}, ex.settings, &ok), QStringList{ex.after});
        EXPECT_TRUE(ok);
    }
}

TEST_F(AffixTasks, CharacterPositionTasks) {
    const TaskMethod insert = &MyDocument::processInsertCharactersAtPosition;
    const TaskMethod replace = &MyDocument::processReplaceCharactersInRange;
    const TaskMethod fromStart = &MyDocument::processRemoveCharactersFromStart;
    const TaskMethod fromEnd = &MyDocument::processRemoveCharactersFromEnd;
    const TaskMethod range = &MyDocument::processRemoveCharacterRange;
    const AffixExample examples[] = {
        {"insert", insert, kv({{"text", u"X"_s}, {"position", u"2"_s}}), u"MyImage.jpg"_s,
         u"MyXImage.jpg"_s},
        {"insert first", insert, kv({{"text", u"X"_s}, {"position", u"0"_s}}), u"My.jpg"_s,
         u"XMy.jpg"_s},
        {"insert past end", insert, kv({{"text", u"X"_s}, {"position", u"50"_s}}), u"MyImage.jpg"_s,
         u"MyImageX.jpg"_s},
        {"insert negative", insert, kv({{"text", u"X"_s}, {"position", u"-1"_s}}), u"MyImage.jpg"_s,
         u"MyImageX.jpg"_s},
        {"insert field text", insert, kv({{"text", u"X"_s}, {"position", u"  3abc"_s}}),
         u"MyImage.jpg"_s, u"MyIXmage.jpg"_s},
        {"insert no digits", insert, kv({{"text", u"X"_s}, {"position", u"abc"_s}}), u"ab.c"_s,
         u"Xab.c"_s},
        {"insert at end of base", insert, kv({{"text", u"X"_s}, {"position", u"2"_s}}), u"ab"_s,
         u"abX"_s},
        {"insert makes number", insert, kv({{"text", u".0002"_s}, {"position", u"9"_s}}),
         u"MyImage.jpg"_s, u"MyImage.0002.jpg"_s},
        {"insert no text", insert, kv({{"position", u"1"_s}}), u"ab.c"_s, u"ab.c"_s},
        {"replace", replace, kv({{"text", u"--"_s}, {"rangeStart", u"2"_s}, {"rangeEnd", u"3"_s}}),
         u"MyImage.jpg"_s, u"My--age.jpg"_s},
        {"replace to empty keeps", replace,
         kv({{"text", u""_s}, {"rangeStart", u"0"_s}, {"rangeEnd", u"1"_s}}), u"My.jpg"_s,
         u"My.jpg"_s},
        {"replace start past end", replace,
         kv({{"text", u"Z"_s}, {"rangeStart", u"40"_s}, {"rangeEnd", u"0"_s}}), u"abc.jpg"_s,
         u"Zbc.jpg"_s},
        {"replace end before start", replace,
         kv({{"text", u"_"_s}, {"rangeStart", u"4"_s}, {"rangeEnd", u"1"_s}}), u"abcdef.j"_s,
         u"abcd_cdef.j"_s},
        {"replace end -1", replace,
         kv({{"text", u"Q"_s}, {"rangeStart", u"0"_s}, {"rangeEnd", u"-1"_s}}), u"abc"_s,
         u"Qabc"_s},
        {"replace tail off end", replace,
         kv({{"text", u"Q"_s}, {"rangeStart", u"1"_s}, {"rangeEnd", u"9"_s}}), u"abc.d"_s,
         u"aQ.d"_s},
        {"from start", fromStart, kv({{"charCount", u"3"_s}}), u"MyImage.0001.jpg"_s,
         u"mage.0001.jpg"_s},
        {"from start too many", fromStart, kv({{"charCount", u"20"_s}}), u"MyImage.jpg"_s,
         u"MyImage.jpg"_s},
        {"from start whole", fromStart, kv({{"charCount", u"7"_s}}), u"MyImage.jpg"_s,
         u"MyImage.jpg"_s},
        {"from start negative", fromStart, kv({{"charCount", u"-2"_s}}), u"MyImage.jpg"_s,
         u"MyImage.jpg"_s},
        {"from end", fromEnd, kv({{"charCount", u"7"_s}}), u"MyImage.0001.jpg"_s, u"MyIma.jpg"_s},
        {"from end count", fromEnd, kv({{"charCount", u"1"_s}}), u"ab.c"_s, u"a.c"_s},
        {"from end too many", fromEnd, kv({{"charCount", u"2"_s}}), u"ab.c"_s, u"ab.c"_s},
        {"range", range, kv({{"rangeStart", u"0"_s}, {"rangeEnd", u"1"_s}}), u"MyImage.jpg"_s,
         u"Image.jpg"_s},
        {"range middle", range, kv({{"rangeStart", u"2"_s}, {"rangeEnd", u"3"_s}}),
         u"MyImage.jpg"_s, u"Myage.jpg"_s},
        {"range reaching last refused", range, kv({{"rangeStart", u"5"_s}, {"rangeEnd", u"6"_s}}),
         u"MyImage.jpg"_s, u"MyImage.jpg"_s},
        {"range reversed refused", range, kv({{"rangeStart", u"3"_s}, {"rangeEnd", u"2"_s}}),
         u"MyImage.jpg"_s, u"MyImage.jpg"_s},
        {"range negative start", range, kv({{"rangeStart", u"-2"_s}, {"rangeEnd", u"1"_s}}),
         u"MyImage.jpg"_s, u"Image.jpg"_s},
        {"range both negative", range, kv({{"rangeStart", u"-5"_s}, {"rangeEnd", u"-3"_s}}),
         u"MyImage.jpg"_s, u"MyImage.jpg"_s},
        {"range extreme", range,
         kv({{"rangeStart", u"-99999999999999999999"_s}, {"rangeEnd", u"99999999999999999999"_s}}),
         u"MyImage.jpg"_s, u"MyImage.jpg"_s},
        {"range leaves number", range, kv({{"rangeStart", u"0"_s}, {"rangeEnd", u"5"_s}}),
         u"ab_cd.0001.exr"_s, u"0001.exr"_s},
    };
    for (const auto& ex : examples) {
        SCOPED_TRACE(ex.label);
        bool ok = false;
        EXPECT_EQ(previewOf(ex.task, {ex.before}, ex.settings, &ok), QStringList{ex.after});
        EXPECT_TRUE(ok);
    }
}

TEST_F(AffixTasks, RemoveExtensionTwiceLeavesTheFrameNumber) {
    TaskDoc t({u"MyImage.0001.jpg"_s});
    // The first removal's result, as a commit leaves the item: its component
    // list ends with the frame number (a new parse would call 0001 the extension).
    ComponentList list = t.files.first()->components();
    list.removeLast();
    list.removeLast();
    t.files.first()->setComponents(list);
    t.files.first()->synchronize();
    ASSERT_EQ(t.files.first()->fileName(), u"MyImage.0001"_s);
    EXPECT_TRUE(t.preview(&MyDocument::processRemoveFileExtension, {}));
    EXPECT_EQ(t.previews(), QStringList{u"MyImage.0001"_s});
}

TEST_F(AffixTasks, ReparsedNamesGetTheirComponentsAndPadding) {
    TaskDoc t({u"MyImage.jpg"_s});
    ASSERT_TRUE(t.preview(&MyDocument::processInsertCharactersAtPosition,
                          kv({{"text", u"_042"_s}, {"position", u"7"_s}})));
    const FileItemPtr p = t.files.first()->previewObject();
    EXPECT_EQ(p->fileName(), u"MyImage_042.jpg"_s);
    EXPECT_EQ(FrameValue::toUnsigned(p->frameNumber()), 42u);
    EXPECT_EQ(p->paddingLength(), 3u);
    // The item itself keeps its components.
    EXPECT_FALSE(t.files.first()->hasFrameNumber());
}

TEST_F(AffixTasks, MissingTextSettingsFailAtOnceWithoutTouchingAnything) {
    ConsoleLines console;
    const struct {
        TaskMethod task;
        const char* key;
    } cases[] = {
        {&MyDocument::processAddPrefix, "prefix"},
        {&MyDocument::processAddSuffix, "suffix"},
        {&MyDocument::processChangeFileExtension, "fileExt"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key);
        for (const QVariantMap& s : {QVariantMap(), kv({{c.key, u""_s}})}) {
            TaskDoc t({u"a.jpg"_s});
            t.files.first()->previewObject()->setFileName(u"stale"_s);
            EXPECT_FALSE(t.preview(c.task, s));
            EXPECT_EQ(t.previews(), QStringList{u"stale"_s}); // no preview reset either
            EXPECT_EQ(t.view.reloadsPosted, 0);
        }
    }
    EXPECT_TRUE(console.lines.isEmpty());
}

TEST_F(AffixTasks, PrefixPostsNoReloadTheOthersDo) {
    TaskDoc t({u"a.jpg"_s});
    EXPECT_TRUE(t.preview(&MyDocument::processAddPrefix, kv({{"prefix", u"p"_s}})));
    EXPECT_EQ(t.view.reloadsPosted, 0);
    EXPECT_TRUE(t.preview(&MyDocument::processAddSuffix, kv({{"suffix", u"s"_s}})));
    EXPECT_EQ(t.view.reloadsPosted, 1);
}

TEST_F(AffixTasks, SuffixOnAnEmptyComponentListFailsAndIsLogged) {
    ConsoleLines console;
    TaskDoc t({u"a.jpg"_s, u"b.jpg"_s});
    // An item whose name parsed to nothing (an empty name).
    t.files.first()->setComponents({});
    t.files.first()->synchronize();
    EXPECT_FALSE(t.preview(&MyDocument::processAddSuffix, kv({{"suffix", u"_s"_s}})));
    ASSERT_EQ(console.lines.size(), 1);
    EXPECT_TRUE(console.lines.first().startsWith(
        u"Exception in -[MyDocument processAddSuffix:files:]. NSRangeException - "_s))
        << console.lines.first().toStdString();
    EXPECT_EQ(logCount(console.lines.first()), 1);
    // The failure stops the walk: the second item's preview was not made.
    EXPECT_EQ(t.files[1]->previewObject()->fileName(), u"b.jpg"_s);
    EXPECT_EQ(t.view.reloadsPosted, 1);
}

} // namespace
