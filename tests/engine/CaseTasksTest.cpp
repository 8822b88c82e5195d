#include "TaskTestSupport.h"
#include "TempTree.h"

#include <string>
#include <unicode/uloc.h>

namespace {

class CaseTasks : public LoggedTest {};
const TaskMethod lower = &MyDocument::processLowercase;
const TaskMethod upper = &MyDocument::processUppercase;
const TaskMethod capitalize = &MyDocument::processCapitalizeWords;
const TaskMethod spaces = &MyDocument::processConvertSpacesToUnderscores;
const TaskMethod trim = &MyDocument::processRemoveTrailingSpaces;
const TaskMethod strip = &MyDocument::processStripNonAlphanumeric;
const TaskMethod lowerExt = &MyDocument::processLowercaseFileExtension;
const TaskMethod upperExt = &MyDocument::processUppercaseFileExtension;

TEST_F(CaseTasks, EditOnlyTheirComponentKind) {
    // clang-format off
    expectExamples({
        {"lower", lower, {}, {u"MyImage.0001.JPG"_s}, {u"myimage.0001.JPG"_s}},
        {"lower final sigma", lower, {}, {u"\u039f\u0394\u039f\u03a3.t"_s}, {u"\u03bf\u03b4\u03bf\u03c2.t"_s}},
        {"upper full mapping", upper, {}, {u"straße_x.tif"_s}, {u"STRASSE_X.tif"_s}},
        {"upper supplementary", upper, {}, {u"\U00010428x.txt"_s}, {u"\U00010400X.txt"_s}},
        {"upper no name token", upper, {}, {u"0001.jpg"_s}, {u"0001.jpg"_s}},
        {"capitalize", capitalize, {}, {u"mY iMAGE.JPG"_s}, {u"My Image.JPG"_s}},
        {"capitalize tokens", capitalize, {}, {u"my-first_shot.jpg"_s}, {u"My-First_Shot.jpg"_s}},
        {"capitalize digit", capitalize, {}, {u"shot2take.mov"_s}, {u"Shot2take.mov"_s}},
        {"capitalize tab", capitalize, {}, {u"a\tbC.mov"_s}, {u"A\tBc.mov"_s}},
        {"capitalize upper not title", capitalize, {}, {u"\u01c6emal"_s}, {u"\u01c4emal"_s}},
        {"capitalize sigma context", capitalize, {}, {u"\u0391\u03a3.t"_s}, {u"\u0391\u03c2.t"_s}},
        {"spaces", spaces, {}, {u"My  Image.j p"_s}, {u"My__Image.j p"_s}},
        {"spaces not tab", spaces, {}, {u"My\tImage.jpg"_s}, {u"My\tImage.jpg"_s}},
        {"trim", trim, {}, {u"  My Image  .jpg"_s}, {u"My Image.jpg"_s}},
        {"trim at separators", trim, {}, {u"My _ Image - 2.jpg"_s}, {u"My_Image-2.jpg"_s}},
        {"trim tab Z NEL", trim, {}, {u"\t\u3000\u2028x\u0085\u00a0.jpg"_s}, {u"x.jpg"_s}},
        {"trim keeps ZWSP", trim, {}, {u"x\u200b.jpg"_s}, {u"x\u200b.jpg"_s}},
        {"trim to empty", trim, {}, {u"   .jpg"_s}, {u".jpg"_s}},
        {"strip", strip, {}, {u"My*Image-x (b).jpg"_s}, {u"MyImage-x(b).jpg"_s}},
        {"strip keeps L M N", strip, {}, {u"e\u0301\u00bd\u0661\U0001D400!€.t"_s}, {u"e\u0301\u00bd\u0661\U0001D400.t"_s}},
        {"lower ext", lowerExt, {}, {u"MyImage.0001.JPG"_s}, {u"MyImage.0001.jpg"_s}},
        {"upper ext", upperExt, {}, {u"MyImage.jpg"_s, u"MyImage"_s}, {u"MyImage.JPG"_s, u"MyImage"_s}},
    });
    // clang-format on
}

TEST_F(CaseTasks, StripKeepsWhatItWouldEmptyAndLogsIt) {
    const QString line = u"string length is 0"_s;
    const qsizetype before = logCount(line);
    // The token "!" and the empty first token of ".hidden" are kept, logged once each.
    expectExamples(
        {{"take", strip, {}, {u"Take-!.jpg"_s, u".hidden"_s}, {u"Take-!.jpg"_s, u".hidden"_s}}});
    EXPECT_EQ(logCount(line), before + 2);
    EXPECT_EQ(MyDocument::stripNonAlphanumeric(u"***"_s), u"***"_s);
    EXPECT_EQ(logCount(line), before + 3);
    // Unpaired surrogates go; a pair is one letter and stays whole.
    EXPECT_EQ(MyDocument::stripNonAlphanumeric(QChar(0xD800) + u"a\U0001D400"_s + QChar(0xDC00)),
              u"a\U0001D400"_s);
}

TEST_F(CaseTasks, CaseMappingIgnoresTheDefaultLocale) {
    const std::string saved = uloc_getDefault();
    UErrorCode status = U_ZERO_ERROR;
    uloc_setDefault("tr_TR", &status);
    TaskDoc t({u"image.TIF"_s});
    const bool upperOk = t.preview(upper, {});
    const QStringList upperNames = t.previews();
    const bool lowerOk = t.preview(lowerExt, {});
    const QStringList lowerNames = t.previews();
    uloc_setDefault(saved.c_str(), &status);
    EXPECT_TRUE(upperOk && lowerOk);
    // A Turkish mapping would give the dotted capital I and the dotless small i.
    EXPECT_EQ(upperNames, QStringList{u"IMAGE.TIF"_s});
    EXPECT_EQ(lowerNames, QStringList{u"image.tif"_s});
}

TEST_F(CaseTasks, LowercaseExtensionCommitWalksTheWholeList) {
    TempTree tree;
    RecordingView view;
    MyDocument doc(&view);
    const FileList files = {QXFileItem::fileItemWithFile(tree.file(u"a.JPG"_s)),
                            QXFileItem::fileItemWithFile(tree.file(u"b.TIF"_s))};
    doc.setFileArray(files);
    // Previewing keeps to the batch it is handed; committing ignores it.
    EXPECT_TRUE(doc.processLowercaseFileExtension({{u"preview"_s, true}}, {files[0]}));
    EXPECT_EQ(files[1]->previewObject()->fileName(), u"b.TIF"_s);
    EXPECT_TRUE(doc.processLowercaseFileExtension({}, {files[0]}));
    EXPECT_EQ(tree.list(), QStringList({u"a.jpg"_s, u"b.tif"_s}));
    EXPECT_EQ(view.reloadsPosted, 2);
}

} // namespace
