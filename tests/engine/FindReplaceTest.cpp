#include "QXException.h"
#include "TaskTestSupport.h"
#include "tasks/IcuRegex.h"

#include <atomic>
#include <thread>
#include <vector>

namespace {

QVariantMap findSettings(const QString& find, const QString& replace, bool matchCase = false,
                         bool includeExtension = false, bool regex = false) {
    return {{u"find"_s, find},
            {u"replace"_s, replace},
            {u"matchCase"_s, matchCase},
            {u"includeExtension"_s, includeExtension},
            {u"regex"_s, regex}};
}

struct FindExample {
    const char* label;
    QVariantMap settings;
    QString before;
    QString after;
};

class FindReplace : public LoggedTest {};

TEST_F(FindReplace, PlainAndRegularExpressionExamples) {
    const FindExample examples[] = {
        {"ignore case", findSettings(u"image"_s, u"Shot"_s), u"MyImage.0001.jpg"_s,
         u"MyShot.0001.jpg"_s},
        {"match case", findSettings(u"image"_s, u"Shot"_s, true), u"MyImage.0001.jpg"_s,
         u"MyImage.0001.jpg"_s},
        {"every occurrence", findSettings(u"a"_s, u"o"_s, true), u"banana.txt"_s, u"bonono.txt"_s},
        {"no overlap", findSettings(u"aa"_s, u"b"_s, true), u"aaaaa.txt"_s, u"bba.txt"_s},
        {"dot without ext", findSettings(u"."_s, u"_"_s), u"MyImage.0001.jpg"_s,
         u"MyImage_0001.jpg"_s},
        {"dot with ext", findSettings(u"."_s, u"_"_s, false, true), u"MyImage.0001.jpg"_s,
         u"MyImage_0001_jpg"_s},
        {"ext included", findSettings(u"jpg"_s, u"tif"_s, false, true), u"MyImage.jpg"_s,
         u"MyImage.tif"_s},
        {"ext excluded", findSettings(u"jpg"_s, u"tif"_s), u"MyImage.jpg"_s, u"MyImage.jpg"_s},
        {"plain is literal", findSettings(u"a.c"_s, u"$0\\"_s), u"abc_a.c.txt"_s,
         u"abc_$0\\.txt"_s},
        {"whole name kept", findSettings(u"MyImage"_s, u""_s), u"MyImage.jpg"_s, u"MyImage.jpg"_s},
        {"empty find", findSettings(u""_s, u"x"_s), u"ab.jpg"_s, u"ab.jpg"_s},
        {"full case folding", findSettings(u"STRASSE"_s, u"road"_s), u"Straße_1.txt"_s,
         u"road_1.txt"_s},
        {"folding both ways", findSettings(u"straße"_s, u"R"_s), u"STRASSE.txt"_s, u"R.txt"_s},
        {"regex groups", findSettings(u"(\\w+)\\.(\\d+)"_s, u"$2_$1"_s, false, false, true),
         u"MyImage.0001.jpg"_s, u"0001_MyImage.jpg"_s},
        {"regex ignore case", findSettings(u"^my"_s, u"Your"_s, false, false, true),
         u"MyImage.jpg"_s, u"YourImage.jpg"_s},
        {"regex match case", findSettings(u"^my"_s, u"Your"_s, true, false, true), u"MyImage.jpg"_s,
         u"MyImage.jpg"_s},
        {"regex escape", findSettings(u"I"_s, u"\\$1"_s, true, false, true), u"MyImage.jpg"_s,
         u"My$1mage.jpg"_s},
        {"regex whole name kept", findSettings(u".*"_s, u""_s, false, true, true), u"MyImage.jpg"_s,
         u"MyImage.jpg"_s},
        {"regex ext", findSettings(u"\\.jpg$"_s, u".tif"_s, false, true, true), u"a.jpg"_s,
         u"a.tif"_s},
        {"reparsed", findSettings(u"_v"_s, u"."_s), u"shot_v0012.exr"_s, u"shot.0012.exr"_s},
    };
    for (const auto& ex : examples) {
        SCOPED_TRACE(ex.label);
        bool ok = false;
        EXPECT_EQ(previewOf(&MyDocument::processFindAndReplace, {ex.before}, ex.settings, &ok),
                  QStringList{ex.after});
        EXPECT_TRUE(ok);
    }
}

TEST_F(FindReplace, ReplacementReparsesTheName) {
    TaskDoc t({u"shot_v0012.exr"_s});
    ASSERT_TRUE(t.preview(&MyDocument::processFindAndReplace, findSettings(u"_v"_s, u"."_s)));
    const FileItemPtr p = t.files.first()->previewObject();
    EXPECT_EQ(FrameValue::toUnsigned(p->frameNumber()), 12u);
    EXPECT_EQ(p->paddingLength(), 4u);
    EXPECT_EQ(t.view.reloadsPosted, 0); // this task posts no reload
}

TEST_F(FindReplace, AnInvalidPatternFailsAtTheFirstItemAndIsLogged) {
    ConsoleLines console;
    TaskDoc t({u"a.jpg"_s, u"b.jpg"_s});
    t.files[1]->previewObject()->setFileName(u"stale"_s);
    EXPECT_FALSE(t.preview(&MyDocument::processFindAndReplace,
                           findSettings(u"("_s, u"x"_s, false, false, true)));
    const QString expected =
        QStringLiteral("Exception in -[MyDocument processFindAndReplace:files:]. "
                       "NSInvalidArgumentException - ICU regular expression "
                       "error #%1, U_REGEX_MISMATCHED_PAREN..")
            .arg(static_cast<int>(U_REGEX_MISMATCHED_PAREN));
    EXPECT_EQ(console.lines, QStringList{expected});
    EXPECT_EQ(logCount(expected), 1);
    // The first preview was reset, the second left as it was.
    EXPECT_EQ(t.previews(), QStringList({u"a.jpg"_s, u"stale"_s}));
}

TEST_F(FindReplace, MissingFindOrReplaceFailsTheTask) {
    ConsoleLines console;
    for (const char* key : {"find", "replace"}) {
        SCOPED_TRACE(key);
        QVariantMap s = findSettings(u"a"_s, u"b"_s);
        s.remove(QString::fromLatin1(key));
        bool ok = true;
        previewOf(&MyDocument::processFindAndReplace, {u"a.jpg"_s}, s, &ok);
        EXPECT_FALSE(ok);
    }
    ASSERT_EQ(console.lines.size(), 2);
    EXPECT_TRUE(console.lines[0].startsWith(
        u"Exception in -[MyDocument processFindAndReplace:files:]. NSInvalidArgumentException - "_s));
}

TEST_F(FindReplace, EmptyPatternIsWhatIcuMakesOfIt) {
    // ICU refuses an empty pattern; the task fails like for any bad pattern.
    ConsoleLines console;
    bool ok = true;
    previewOf(&MyDocument::processFindAndReplace, {u"a.jpg"_s},
              findSettings(u""_s, u"x"_s, false, false, true), &ok);
    EXPECT_FALSE(ok);
    ASSERT_EQ(console.lines.size(), 1);
    EXPECT_TRUE(console.lines[0].contains(u"ICU regular expression error #"_s));
}

TEST(IcuRegex, ReplacementLongerThanAnyGuess) {
    IcuRegex re(u"a"_s, 0);
    const QString big(300, u'Z');
    EXPECT_EQ(re.replaceAll(u"aXa"_s, big), big + u"X"_s + big);
    EXPECT_EQ(re.replaceAll(u"bbb"_s, big), u"bbb"_s);
    EXPECT_EQ(re.replaceAll(u""_s, big), u""_s);
}

TEST(IcuRegex, CachedPatternsServeManyThreadsAtOnce) {
    IcuRegex::clearCache();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int n = 0; n < 8; ++n) {
        threads.emplace_back([&wrong, n] {
            for (int i = 0; i < 200; ++i) {
                IcuRegex re(u"(\\d+)"_s, (i % 2) ? uint32_t{UREGEX_CASE_INSENSITIVE} : 0u);
                const QString subject = u"f"_s + QString::number(n * 1000 + i);
                if (re.replaceAll(subject, u"<$1>"_s) !=
                    u"f<"_s + QString::number(n * 1000 + i) + u">"_s)
                    ++wrong;
            }
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(IcuRegex::cacheSize(), 2); // one entry per pattern and flags
}

TEST(IcuRegex, CompileErrorNamesTheIcuError) {
    try {
        IcuRegex re(u"[a"_s, 0);
        FAIL() << "compiled";
    } catch (const QXException& e) {
        EXPECT_EQ(e.reason(),
                  u"ICU regular expression error #%1, U_REGEX_MISSING_CLOSE_BRACKET."_s.arg(
                      static_cast<int>(U_REGEX_MISSING_CLOSE_BRACKET)));
    }
}

} // namespace
