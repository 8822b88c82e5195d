#include "TaskTestSupport.h"

#include <string>
#include <unicode/uloc.h>

namespace {

struct CaseExample {
    const char* label;
    TaskMethod task;
    QString before;
    QString after;
};

class CaseTasks : public LoggedTest {};

TEST_F(CaseTasks, RewriteOnlyTheirComponentKind) {
    const CaseExample examples[] = {
        {"lower", &MyDocument::processLowercase, u"MyImage.jpg"_s, u"myimage.jpg"_s},
        {"lower keeps ext", &MyDocument::processLowercase, u"MyImage.0001.JPG"_s,
         u"myimage.0001.JPG"_s},
        {"lower final sigma", &MyDocument::processLowercase, u"\u039f\u0394\u039f\u03a3.txt"_s,
         u"\u03bf\u03b4\u03bf\u03c2.txt"_s},
        {"upper", &MyDocument::processUppercase, u"MyImage.jpg"_s, u"MYIMAGE.jpg"_s},
        {"upper full mapping", &MyDocument::processUppercase, u"straße_x.tif"_s,
         u"STRASSE_X.tif"_s},
        {"upper supplementary", &MyDocument::processUppercase, u"𐐨x.txt"_s, u"𐐀X.txt"_s},
        {"capitalize", &MyDocument::processCapitalizeWords, u"my image.jpg"_s, u"My Image.jpg"_s},
        {"capitalize mixed", &MyDocument::processCapitalizeWords, u"mY iMAGE.JPG"_s,
         u"My Image.JPG"_s},
        {"capitalize tokens", &MyDocument::processCapitalizeWords, u"my_image.jpg"_s,
         u"My_Image.jpg"_s},
        {"capitalize dashes", &MyDocument::processCapitalizeWords, u"my-first-shot.jpg"_s,
         u"My-First-Shot.jpg"_s},
        {"capitalize digit", &MyDocument::processCapitalizeWords, u"shot2take.mov"_s,
         u"Shot2take.mov"_s},
        {"capitalize tab", &MyDocument::processCapitalizeWords, u"a\tbC.mov"_s, u"A\tBc.mov"_s},
        {"capitalize upper not title", &MyDocument::processCapitalizeWords, u"ǆemal.txt"_s,
         u"Ǆemal.txt"_s},
        {"capitalize sigma", &MyDocument::processCapitalizeWords, u"\u0391\u03a3.txt"_s,
         u"\u0391\u03c2.txt"_s},
        {"spaces", &MyDocument::processConvertSpacesToUnderscores, u"My Image.jpg"_s,
         u"My_Image.jpg"_s},
        {"spaces run", &MyDocument::processConvertSpacesToUnderscores, u"My  Image.jpg"_s,
         u"My__Image.jpg"_s},
        {"spaces not tab", &MyDocument::processConvertSpacesToUnderscores, u"My\tImage.jpg"_s,
         u"My\tImage.jpg"_s},
        {"spaces not ext", &MyDocument::processConvertSpacesToUnderscores, u"a b.j p"_s,
         u"a_b.j p"_s},
        {"trim", &MyDocument::processRemoveTrailingSpaces, u"MyImage .jpg"_s, u"MyImage.jpg"_s},
        {"trim both ends", &MyDocument::processRemoveTrailingSpaces, u"  My Image  .jpg"_s,
         u"My Image.jpg"_s},
        {"trim tabs", &MyDocument::processRemoveTrailingSpaces, u"\tMy\t.jpg"_s, u"My.jpg"_s},
        {"trim at separators", &MyDocument::processRemoveTrailingSpaces, u"My _ Image.jpg"_s,
         u"My_Image.jpg"_s},
        {"trim dash", &MyDocument::processRemoveTrailingSpaces, u"My - Image.jpg"_s,
         u"My-Image.jpg"_s},
        {"trim Z and NEL", &MyDocument::processRemoveTrailingSpaces,
         u"\u3000\u2028x\u0085\u00a0.jpg"_s, u"x.jpg"_s},
        {"trim keeps ZWSP", &MyDocument::processRemoveTrailingSpaces, u"x\u200b.jpg"_s,
         u"x\u200b.jpg"_s},
        {"strip", &MyDocument::processStripNonAlphanumeric, u"My*Image.jpg"_s, u"MyImage.jpg"_s},
        {"strip keeps separators", &MyDocument::processStripNonAlphanumeric, u"My-Image (b).jpg"_s,
         u"My-Image(b).jpg"_s},
        {"strip punctuation", &MyDocument::processStripNonAlphanumeric, u"a!,&+'b.jpg"_s,
         u"ab.jpg"_s},
        {"strip keeps L M N", &MyDocument::processStripNonAlphanumeric,
         u"e\u0301\u00bd\u0661\U0001D400€.txt"_s, u"e\u0301\u00bd\u0661\U0001D400.txt"_s},
        {"lower ext", &MyDocument::processLowercaseFileExtension, u"MyImage.0001.JPG"_s,
         u"MyImage.0001.jpg"_s},
        {"upper ext", &MyDocument::processUppercaseFileExtension, u"MyImage.jpg"_s,
         u"MyImage.JPG"_s},
        {"no extension", &MyDocument::processUppercaseFileExtension, u"MyImage"_s, u"MyImage"_s},
        {"no name token", &MyDocument::processUppercase, u"0001.jpg"_s, u"0001.jpg"_s},
        {"no name token strip", &MyDocument::processStripNonAlphanumeric, u"0001.jpg"_s,
         u"0001.jpg"_s},
    };
    for (const auto& ex : examples) {
        SCOPED_TRACE(ex.label);
        bool ok = false;
        EXPECT_EQ(previewOf(ex.task, {ex.before}, {}, &ok), QStringList{ex.after});
        EXPECT_TRUE(ok);
    }
}

TEST_F(CaseTasks, StripKeepsATokenItWouldEmptyAndLogsIt) {
    const QString line = QStringLiteral("string length is 0");
    qsizetype before = logCount(line);
    EXPECT_EQ(previewOf(&MyDocument::processStripNonAlphanumeric, {u"Take-!.jpg"_s}),
              QStringList{u"Take-!.jpg"_s});
    EXPECT_EQ(logCount(line), before + 1);

    // .hidden: only its empty first token is logged.
    before = logCount(line);
    EXPECT_EQ(previewOf(&MyDocument::processStripNonAlphanumeric, {u".hidden"_s}),
              QStringList{u".hidden"_s});
    EXPECT_EQ(logCount(line), before + 1);

    before = logCount(line);
    EXPECT_EQ(MyDocument::stripNonAlphanumeric(u"***"_s), u"***"_s);
    EXPECT_EQ(MyDocument::stripNonAlphanumeric(u"a*b"_s), u"ab"_s);
    EXPECT_EQ(logCount(line), before + 1);
}

TEST_F(CaseTasks, UnpairedSurrogatesAreStrippedNotSplit) {
    const QString lone = QString(QChar(0xD800)) + u"ab"_s + QChar(0xDC00);
    EXPECT_EQ(MyDocument::stripNonAlphanumeric(lone), u"ab"_s);
    // A letter outside the BMP stays whole.
    EXPECT_EQ(MyDocument::stripNonAlphanumeric(u"\U0001D400!"_s), u"\U0001D400"_s);
}

TEST_F(CaseTasks, CaseMappingIgnoresTheDefaultLocale) {
    const std::string saved = uloc_getDefault();
    UErrorCode status = U_ZERO_ERROR;
    uloc_setDefault("tr_TR", &status);
    const QStringList upper = previewOf(&MyDocument::processUppercase, {u"image.tif"_s});
    const QStringList lower = previewOf(&MyDocument::processLowercaseFileExtension, {u"a.TIF"_s});
    uloc_setDefault(saved.c_str(), &status);
    // A Turkish default would give the dotted capital I and the dotless small i.
    EXPECT_EQ(upper, QStringList{u"IMAGE.tif"_s});
    EXPECT_EQ(lower, QStringList{u"a.tif"_s});
}

TEST_F(CaseTasks, TrimmingASpacesOnlyTokenLeavesItEmpty) {
    EXPECT_EQ(previewOf(&MyDocument::processRemoveTrailingSpaces, {u"   .jpg"_s}),
              QStringList{u".jpg"_s});
}

TEST_F(CaseTasks, EveryItemOfTheHandedBatchIsEdited) {
    TaskDoc t({u"A.jpg"_s, u"B c.tif"_s, u"D"_s});
    EXPECT_TRUE(t.preview(&MyDocument::processLowercase, {}));
    EXPECT_EQ(t.previews(), QStringList({u"a.jpg"_s, u"b c.tif"_s, u"d"_s}));
    EXPECT_EQ(t.view.reloadsPosted, 1);
}

TEST_F(CaseTasks, LowercaseExtensionWalksTheWholeListNotTheBatch) {
    TaskDoc t({u"a.JPG"_s, u"b.TIF"_s, u"c.PNG"_s});
    // Handed only the first item, it still edits every preview of the list.
    EXPECT_TRUE(t.preview(&MyDocument::processLowercaseFileExtension, {}, {t.files.first()}));
    EXPECT_EQ(t.previews(), QStringList({u"a.jpg"_s, u"b.tif"_s, u"c.png"_s}));
    // Its upper-case twin keeps to the batch.
    TaskDoc u({u"a.jpg"_s, u"b.tif"_s});
    EXPECT_TRUE(u.preview(&MyDocument::processUppercaseFileExtension, {}, {u.files.first()}));
    EXPECT_EQ(u.previews(), QStringList({u"a.JPG"_s, u"b.tif"_s}));
}

TEST_F(CaseTasks, APreviewStartsFromTheItemNotFromTheLastPreview) {
    TaskDoc t({u"MyImage.jpg"_s});
    EXPECT_TRUE(t.preview(&MyDocument::processUppercase, {}));
    EXPECT_TRUE(t.preview(&MyDocument::processConvertSpacesToUnderscores, {}));
    EXPECT_EQ(t.previews(), QStringList{u"MyImage.jpg"_s});
}

} // namespace
