#include "QXException.h"
#include "TaskTestSupport.h"
#include "tasks/IcuRegex.h"

#include <atomic>
#include <thread>
#include <vector>

namespace {

class FindReplace : public LoggedTest {};
const TaskMethod fr = &MyDocument::processFindAndReplace;

// Flags: c = match case, e = include the extension, r = regular expression.
QVariantMap find(const QString& f, const QString& r, const char* flags = "") {
    const std::string_view v(flags);
    return {{u"find"_s, f},
            {u"replace"_s, r},
            {u"matchCase"_s, v.find('c') != v.npos},
            {u"includeExtension"_s, v.find('e') != v.npos},
            {u"regex"_s, v.find('r') != v.npos}};
}

QString icuError(const char* name, UErrorCode code) {
    return u"ICU regular expression error #%1, %2."_s.arg(static_cast<int>(code))
        .arg(QLatin1String(name));
}

TEST_F(FindReplace, PlainAndRegularExpressions) {
    // clang-format off
    expectExamples({
        {"ignore case", fr, find(u"image"_s, u"Shot"_s), {u"MyImage.0001.jpg"_s}, {u"MyShot.0001.jpg"_s}},
        {"match case", fr, find(u"image"_s, u"Shot"_s, "c"), {u"MyImage.0001.jpg"_s}, {u"MyImage.0001.jpg"_s}},
        {"no overlap", fr, find(u"aa"_s, u"b"_s, "c"), {u"aaaaa.txt"_s}, {u"bba.txt"_s}},
        {"dot", fr, find(u"."_s, u"_"_s), {u"MyImage.0001.jpg"_s}, {u"MyImage_0001.jpg"_s}},
        {"dot with ext", fr, find(u"."_s, u"_"_s, "e"), {u"MyImage.0001.jpg"_s}, {u"MyImage_0001_jpg"_s}},
        {"ext included", fr, find(u"jpg"_s, u"tif"_s, "e"), {u"MyImage.jpg"_s}, {u"MyImage.tif"_s}},
        {"ext excluded", fr, find(u"jpg"_s, u"tif"_s), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"plain is literal", fr, find(u"a.c"_s, u"$0\\"_s), {u"abc_a.c.txt"_s}, {u"abc_$0\\.txt"_s}},
        {"whole name kept", fr, find(u"MyImage"_s, u""_s), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"empty find", fr, find(u""_s, u"x"_s), {u"ab.jpg"_s}, {u"ab.jpg"_s}},
        {"full case folding", fr, find(u"STRASSE"_s, u"road"_s), {u"Straße_1.txt"_s}, {u"road_1.txt"_s}},
        {"folding both ways", fr, find(u"straße"_s, u"R"_s), {u"STRASSE.txt"_s}, {u"R.txt"_s}},
        {"regex groups", fr, find(u"(\\w+)\\.(\\d+)"_s, u"$2_$1"_s, "r"), {u"MyImage.0001.jpg"_s}, {u"0001_MyImage.jpg"_s}},
        {"regex ignore case", fr, find(u"^my"_s, u"Your"_s, "r"), {u"MyImage.jpg"_s}, {u"YourImage.jpg"_s}},
        {"regex match case", fr, find(u"^my"_s, u"Your"_s, "rc"), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"regex escape", fr, find(u"I"_s, u"\\$1"_s, "rc"), {u"MyImage.jpg"_s}, {u"My$1mage.jpg"_s}},
        {"regex whole name kept", fr, find(u".*"_s, u""_s, "re"), {u"MyImage.jpg"_s}, {u"MyImage.jpg"_s}},
        {"reparsed", fr, find(u"_v"_s, u"."_s), {u"shot_v0012.exr"_s}, {u"shot.0012.exr"_s}},
    });
    // clang-format on
    TaskDoc t({u"shot_v0012.exr"_s});
    ASSERT_TRUE(t.preview(fr, find(u"_v"_s, u"."_s)));
    EXPECT_EQ(t.files[0]->previewObject()->paddingLength(), 4u);
    EXPECT_EQ(t.view.reloadsPosted, 0); // this task posts no reload
}

TEST_F(FindReplace, AnInvalidPatternFailsAtTheFirstItemAndIsLogged) {
    ConsoleLines console;
    TaskDoc t({u"a.jpg"_s, u"b.jpg"_s});
    t.files[1]->previewObject()->setFileName(u"stale"_s);
    EXPECT_FALSE(t.preview(fr, find(u"("_s, u"x"_s, "r")));
    const QString line = u"Exception in -[MyDocument processFindAndReplace:files:]. "
                         u"NSInvalidArgumentException - "_s +
                         icuError("U_REGEX_MISMATCHED_PAREN", U_REGEX_MISMATCHED_PAREN) + u'.';
    EXPECT_EQ(console.lines(), QStringList{line});
    EXPECT_EQ(logCount(line), 1);
    EXPECT_EQ(t.previews(), QStringList({u"a.jpg"_s, u"stale"_s})); // first reset, second not
}

TEST_F(FindReplace, MissingKeysAndEmptyPatternsFailTheTask) {
    ConsoleLines console;
    QVariantMap noFind = find(u"a"_s, u"b"_s), noReplace = noFind;
    noFind.remove(u"find"_s);
    noReplace.remove(u"replace"_s);
    // ICU refuses an empty pattern; the task fails as for any bad pattern.
    for (const QVariantMap& s : {noFind, noReplace, find(u""_s, u"x"_s, "r")}) {
        TaskDoc t({u"a.jpg"_s});
        EXPECT_FALSE(t.preview(fr, s));
    }
    const QStringList lines = console.lines();
    ASSERT_EQ(lines.size(), 3);
    EXPECT_TRUE(lines[0].contains(u"NSInvalidArgumentException"_s));
    EXPECT_TRUE(
        lines[2].endsWith(icuError("U_ILLEGAL_ARGUMENT_ERROR", U_ILLEGAL_ARGUMENT_ERROR) + u'.'));
}

TEST(IcuRegex, GrowsItsBufferAndServesManyThreads) {
    IcuRegex big(u"a"_s, 0);
    const QString z(300, u'Z');
    EXPECT_EQ(big.replaceAll(u"aXa"_s, z), z + u"X"_s + z);

    IcuRegex::clearCache();
    std::atomic<int> wrong{0};
    std::vector<std::thread> threads;
    for (int n = 0; n < 8; ++n) {
        threads.emplace_back([&wrong, n] {
            for (int i = 0; i < 200; ++i) {
                IcuRegex re(u"(\\d+)"_s, (i % 2) ? uint32_t{UREGEX_CASE_INSENSITIVE} : 0u);
                const QString number = QString::number(n * 1000 + i);
                if (re.replaceAll(u"f"_s + number, u"<$1>"_s) != u"f<"_s + number + u'>') ++wrong;
            }
        });
    }
    for (auto& t : threads)
        t.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(IcuRegex::cacheSize(), 2); // one entry per pattern and flags
}

} // namespace
