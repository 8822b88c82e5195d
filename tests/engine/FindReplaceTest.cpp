#include "TaskTestSupport.h"
#include "tasks/IcuRegex.h"

namespace {

class FindReplace : public LoggedTest {};
const TaskMethod fr = &MyDocument::processFindAndReplace;

// Flags: c = match case, e = include the extension, r = regular expression.
QVariantMap find(const QString& f, const QString& r, std::string_view flags = "") {
    return {{u"find"_s, f},
            {u"replace"_s, r},
            {u"matchCase"_s, flags.find('c') != flags.npos},
            {u"includeExtension"_s, flags.find('e') != flags.npos},
            {u"regex"_s, flags.find('r') != flags.npos}};
}

QString icuError(const char* name, UErrorCode code) {
    return u"ICU regular expression error #%1, %2."_s.arg(int(code)).arg(QLatin1String(name));
}

TEST_F(FindReplace, PlainAndRegularExpressions) {
    // clang-format off
    expectExamples({
        {"ignore case", fr, find(u"image"_s, u"Shot"_s), "MyImage.0001.jpg", "MyShot.0001.jpg"},
        {"match case", fr, find(u"image"_s, u"Shot"_s, "c"), "MyImage.0001.jpg", "MyImage.0001.jpg"},
        {"no overlap", fr, find(u"aa"_s, u"b"_s, "c"), "aaaaa.txt", "bba.txt"},
        {"dot", fr, find(u"."_s, u"_"_s), "MyImage.0001.jpg", "MyImage_0001.jpg"},
        {"dot with ext", fr, find(u"."_s, u"_"_s, "e"), "MyImage.0001.jpg", "MyImage_0001_jpg"},
        {"ext included", fr, find(u"jpg"_s, u"tif"_s, "e"), "MyImage.jpg", "MyImage.tif"},
        {"ext excluded", fr, find(u"jpg"_s, u"tif"_s), "MyImage.jpg", "MyImage.jpg"},
        {"plain is literal", fr, find(u"a.c"_s, u"$0\\"_s), "abc_a.c.txt", "abc_$0\\.txt"},
        {"whole name kept", fr, find(u"MyImage"_s, u""_s), "MyImage.jpg", "MyImage.jpg"},
        {"empty find", fr, find(u""_s, u"x"_s), "ab.jpg", "ab.jpg"},
        {"full case folding", fr, find(u"STRASSE"_s, u"road"_s), "Straße_1.txt", "road_1.txt"},
        {"folding both ways", fr, find(u"straße"_s, u"R"_s), "STRASSE.txt", "R.txt"},
        {"regex groups", fr, find(u"(\\w+)\\.(\\d+)"_s, u"$2_$1"_s, "r"), "MyImage.0001.jpg", "0001_MyImage.jpg"},
        {"regex ignore case", fr, find(u"^my"_s, u"Your"_s, "r"), "MyImage.jpg", "YourImage.jpg"},
        {"regex match case", fr, find(u"^my"_s, u"Your"_s, "rc"), "MyImage.jpg", "MyImage.jpg"},
        {"regex escape", fr, find(u"I"_s, u"\\$1"_s, "rc"), "MyImage.jpg", "My$1mage.jpg"},
        {"regex whole name kept", fr, find(u".*"_s, u""_s, "re"), "MyImage.jpg", "MyImage.jpg"},
    });
    // clang-format on
    // A name that outgrows the first guess at its length.
    EXPECT_EQ(IcuRegex(u"a"_s, 0).replaceAll(QString(20, u'a'), u"$0$0$0"_s), QString(60, u'a'));
    // The new name is parsed again; this task posts no reload.
    TaskDoc t({u"shot_v0012.exr"_s});
    ASSERT_TRUE(t.preview(fr, find(u"_v"_s, u"."_s)));
    EXPECT_EQ(t.previews(), QStringList{u"shot.0012.exr"_s});
    EXPECT_EQ(t.files[0]->previewObject()->paddingLength(), 4u);
    EXPECT_EQ(t.view.reloadsPosted, 0);
}

TEST_F(FindReplace, BadSettingsFailTheTaskAndAreLogged) {
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

    // Missing keys fail too; ICU refuses an empty pattern as it does any bad one.
    QVariantMap noFind = find(u"a"_s, u"b"_s), noReplace = noFind;
    noFind.remove(u"find"_s);
    noReplace.remove(u"replace"_s);
    for (const QVariantMap& s : {noFind, noReplace, find(u""_s, u"x"_s, "r")})
        EXPECT_FALSE(TaskDoc({u"a.jpg"_s}).preview(fr, s));
    const QStringList lines = console.lines();
    ASSERT_EQ(lines.size(), 4);
    EXPECT_TRUE(lines[1].contains(u"NSInvalidArgumentException"_s));
    EXPECT_TRUE(
        lines[3].endsWith(icuError("U_ILLEGAL_ARGUMENT_ERROR", U_ILLEGAL_ARGUMENT_ERROR) + u'.'));
}

} // namespace
