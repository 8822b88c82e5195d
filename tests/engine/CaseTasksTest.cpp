#include "TaskTestSupport.h"

#include <string>
#include <unicode/uloc.h>

namespace {

class CaseTasks : public LoggedTest {};
const TaskMethod lower = &MyDocument::processLowercase;
const TaskMethod upper = &MyDocument::processUppercase;
const TaskMethod capitalize = &MyDocument::processCapitalizeWords;
const TaskMethod strip = &MyDocument::processStripNonAlphanumeric;
const TaskMethod lowerExt = &MyDocument::processLowercaseFileExtension;

// Under a Turkish default locale, which the mappings must ignore: it would
// give the dotted capital I and the dotless small i.
TEST_F(CaseTasks, EditOnlyTheirComponentKindWhateverTheDefaultLocale) {
    const TaskMethod spaces = &MyDocument::processConvertSpacesToUnderscores;
    const TaskMethod trim = &MyDocument::processRemoveTrailingSpaces;
    const std::string saved = uloc_getDefault();
    UErrorCode status = U_ZERO_ERROR;
    uloc_setDefault("tr_TR", &status);
    // clang-format off
    expectExamples({
        {"lower, final sigma", lower, {}, "MyImage.0001.JPG|\u039f\u0394\u039f\u03a3.t", "myimage.0001.JPG|\u03bf\u03b4\u03bf\u03c2.t"},
        {"upper: full, supplementary, no name", upper, {}, "straße_x.tif|\U00010428x.txt|0001.jpg|image.t", "STRASSE_X.tif|\U00010400X.txt|0001.jpg|IMAGE.t"},
        {"capitalize", capitalize, {}, "mY iMAGE.JPG|my-first_shot.jpg|shot2take.mov|a\tbC.mov", "My Image.JPG|My-First_Shot.jpg|Shot2take.mov|A\tBc.mov"},
        {"capitalize: upper not title, sigma", capitalize, {}, "\u01c6emal|\u0391\u03a3.t", "\u01c4emal|\u0391\u03c2.t"},
        {"spaces, not tab", spaces, {}, "My  Image.j p|My\tImage.jpg", "My__Image.j p|My\tImage.jpg"},
        {"trim", trim, {}, "  My Image  .jpg|My _ Image - 2.jpg|   .jpg", "My Image.jpg|My_Image-2.jpg|.jpg"},
        {"trim: tab Z NEL, not ZWSP", trim, {}, "\t\u3000\u2028x\u0085\u00a0.jpg|x\u200b.jpg", "x.jpg|x\u200b.jpg"},
        {"strip keeps L M N", strip, {}, "My*Image-x (b).jpg|e\u0301\u00bd\u0661\U0001D400!€.t", "MyImage-x(b).jpg|e\u0301\u00bd\u0661\U0001D400.t"},
        {"lower ext", lowerExt, {}, "MyImage.0001.JPG|a.TIF", "MyImage.0001.jpg|a.tif"},
        {"upper ext", &MyDocument::processUppercaseFileExtension, {}, "MyImage.jpg|MyImage", "MyImage.JPG|MyImage"},
    });
    // clang-format on
    uloc_setDefault(saved.c_str(), &status);
}

TEST_F(CaseTasks, StripKeepsWhatItWouldEmptyAndLogsIt) {
    const QString line = u"string length is 0"_s;
    const qsizetype before = logCount(line);
    // The token "!" and the empty first token of ".hidden" are kept, logged once each.
    expectExamples({{"take", strip, {}, "Take-!.jpg|.hidden", "Take-!.jpg|.hidden"}});
    EXPECT_EQ(logCount(line), before + 2);
    EXPECT_EQ(MyDocument::stripNonAlphanumeric(u"***"_s), u"***"_s);
    EXPECT_EQ(logCount(line), before + 3);
    // Unpaired surrogates go; a pair is one letter and stays whole.
    EXPECT_EQ(MyDocument::stripNonAlphanumeric(QChar(0xD800) + u"a\U0001D400"_s + QChar(0xDC00)),
              u"a\U0001D400"_s);
}

TEST_F(CaseTasks, LowercaseExtensionCommitWalksTheWholeList) {
    TaskDoc t(names("a.JPG|b.TIF"), true);
    // Previewing keeps to the batch it is handed; committing ignores it.
    EXPECT_TRUE(t.preview(lowerExt, {}, FileList{t.files[0]}));
    EXPECT_EQ(t.previews(), QStringList({u"a.jpg"_s, u"b.TIF"_s}));
    EXPECT_TRUE(t.doc.processLowercaseFileExtension({}, {t.files[0]}));
    EXPECT_EQ(t.tree->list(), QStringList({u"a.jpg"_s, u"b.tif"_s}));
    EXPECT_EQ(t.view.reloadsPosted, 2);
}

} // namespace
