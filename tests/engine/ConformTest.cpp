#include "QXDate.h"
#include "TaskTestSupport.h"

#include <QFileInfo>
#include <QRegularExpression>

namespace {

const QString F = u"@@ Filename @@"_s;
const QString FN = u"@@ Frame Number @@"_s;
const QString FE = u"@@ File Extension @@"_s;
const QString CD = u"@@ Created Date @@"_s;
const QString TD = u"@@ Today's Date @@"_s;

QVariantList tokens(const QStringList& list) {
    QVariantList out;
    for (const QString& s : list)
        out.append(s);
    return out;
}

QVariantMap one(const QString& key, const QString& value) {
    return {{key, value}};
}

QVariantMap conformSettings(const QStringList& tokenList) {
    return {{u"formatArray"_s, MyDocument::formatComponentsFromArray(tokens(tokenList))}};
}

class Conform : public LoggedTest {};

TEST_F(Conform, FormatArrayFromTokens) {
    const struct {
        const char* label;
        QVariantList in;
        QVariantList out;
    } cases[] = {
        {"kind tokens",
         tokens({F, u"."_s, FN, u"."_s, FE}),
         {one(u"Filename"_s, u"Filename"_s), one(u"Separator"_s, u"."_s),
          one(u"Frame Number"_s, u"Frame Number"_s), one(u"Separator"_s, u"."_s),
          one(u"File Extension"_s, u"File Extension"_s)}},
        {"free text split at separators",
         tokens({u"take-final"_s}),
         {one(u"Text"_s, u"take"_s), one(u"Separator"_s, u"-"_s), one(u"Text"_s, u"final"_s)}},
        {"space is text", tokens({u"a b"_s}), {one(u"Text"_s, u"a b"_s)}},
        {"separators only",
         tokens({u"._"_s}),
         {one(u"Separator"_s, u"."_s), one(u"Separator"_s, u"_"_s)}},
        {"empty string", tokens({u""_s}), {}},
        {"not a string", {QVariant(5), QVariant(u"x"_s)}, {one(u"Text"_s, u"x"_s)}},
        {"half a token is text", tokens({u"@@ Filename"_s}), {one(u"Text"_s, u"@@ Filename"_s)}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(MyDocument::formatComponentsFromArray(c.in), c.out);
    }
}

TEST_F(Conform, InsertTokenPlacesBeforeFrameNumberThenExtension) {
    const struct {
        const char* label;
        QStringList before;
        QString title;
        QStringList after;
    } cases[] = {
        {"empty field", {}, u"Frame Number"_s, {FN}},
        {"before the frame number's dot",
         {F, u"."_s, FN, u"."_s, FE},
         u"Created Date"_s,
         {F, u"_"_s, CD, u"."_s, FN, u"."_s, FE}},
        {"frame number gets a dot",
         {F, u"."_s, FE},
         u"Frame Number"_s,
         {F, u"."_s, FN, u"."_s, FE}},
        {"before the extension", {F, u"."_s, FE}, u"Today's Date"_s, {F, u"_"_s, TD, u"."_s, FE}},
        {"no dot before", {F, FN}, u"Filename"_s, {F, u"_"_s, F, FN}},
        {"extension first", {FE, u"x"_s, FN}, u"Filename"_s, {u"_"_s, F, FE, u"x"_s, FN}},
        {"neither: at the end", {F}, u"File Extension"_s, {F, u"."_s, FE}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(MyDocument::insertToken(tokens(c.before), c.title), tokens(c.after));
    }
}

TEST_F(Conform, InsertTokenUpdatesTheFormAndPreviews) {
    TaskDoc t({u"shot.0001.dpx"_s});
    t.doc.setTokens(tokens({F, u"."_s, FE}));
    t.doc.insertToken(u"Frame Number"_s);
    t.doc.waitForPreviews();
    EXPECT_EQ(t.doc.settingsForm().tokens, tokens({F, u"."_s, FN, u"."_s, FE}));
}

TEST_F(Conform, RebuildsNames) {
    const QStringList standard = {F, u"."_s, FN, u"."_s, FE};
    const struct {
        const char* label;
        QStringList format;
        QString before;
        QString after;
    } cases[] = {
        {"standard", standard, u"shot.0001.dpx"_s, u"shot.0001.dpx"_s},
        {"reordered", {FN, u"_"_s, F, u"."_s, FE}, u"shot.0001.dpx"_s, u"0001_shot.dpx"_s},
        {"no leading separator", {u"_"_s, F}, u"shot"_s, u"shot"_s},
        {"separators collapse", {F, u"._"_s, FN}, u"shot.0001.dpx"_s, u"shot_0001"_s},
        {"empty extension keeps its dot", {F, u"."_s, FE}, u"shot"_s, u"shot."_s},
        {"text", {u"take-final"_s, u"."_s, FE}, u"shot.0001.dpx"_s, u"take-final.dpx"_s},
        {"filename run stops at the number", {F}, u"a_b.0001.dpx"_s, u"a_b."_s},
        {"filename absent when first is no name", {F, u"x"_s}, u"0001.dpx"_s, u"x"_s},
        {"empty format", {}, u"shot.0001.dpx"_s, u""_s},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        bool ok = false;
        EXPECT_EQ(
            previewOf(&MyDocument::processConform, {c.before}, conformSettings(c.format), &ok),
            QStringList{c.after});
        EXPECT_TRUE(ok);
    }
}

TEST_F(Conform, UnknownKeysAndAbsentFormat) {
    QVariantMap s = {{u"formatArray"_s, QVariantList{one(u"Nonsense"_s, u"x"_s), QVariantMap(),
                                                     one(u"Text"_s, u"y"_s)}}};
    EXPECT_EQ(previewOf(&MyDocument::processConform, {u"a.1.exr"_s}, s), QStringList{u"y"_s});
    EXPECT_EQ(previewOf(&MyDocument::processConform, {u"a.1.exr"_s}, {}), QStringList{u""_s});
}

TEST_F(Conform, UnnumberedFilesShareOneVacantNumberInAPreview) {
    TaskDoc t({u"a.0041.dpx"_s, u"shot.dpx"_s, u"take.dpx"_s, u"b.3.dpx"_s});
    EXPECT_EQ(FrameValue::toSigned(t.doc.vacantFrameNumber()), 42);
    ASSERT_TRUE(
        t.preview(&MyDocument::processConform, conformSettings({F, u"."_s, FN, u"."_s, FE})));
    EXPECT_EQ(t.previews(),
              QStringList({u"a.0041.dpx"_s, u"shot.42.dpx"_s, u"take.42.dpx"_s, u"b.3.dpx"_s}));
    EXPECT_EQ(t.view.reloadsPosted, 1);
}

TEST_F(Conform, VacantFrameNumberReadsTheItems) {
    TaskDoc empty({});
    EXPECT_EQ(FrameValue::toSigned(empty.doc.vacantFrameNumber()), 1);
    TaskDoc t({u"a.7.exr"_s, u"plain.exr"_s});
    t.files[1]->previewObject()->setFrameNumber(QVariant::fromValue<qlonglong>(100));
    EXPECT_EQ(FrameValue::toSigned(t.doc.vacantFrameNumber()), 8);
}

TEST_F(Conform, CommitGivesEachUnnumberedFileTheNextNumber) {
    TempTree tree;
    tree.file(u"a.0041.dpx"_s);
    tree.file(u"shot.dpx"_s);
    tree.file(u"take.dpx"_s);
    RecordingView view;
    MyDocument doc(&view);
    doc.setFileArray({QXFileItem::fileItemWithFile(tree(u"a.0041.dpx"_s)),
                      QXFileItem::fileItemWithFile(tree(u"shot.dpx"_s)),
                      QXFileItem::fileItemWithFile(tree(u"take.dpx"_s))});
    const FileList files = doc.sortFilesByFrameOrder();
    EXPECT_TRUE(doc.processConform(conformSettings({F, u"."_s, FN, u"."_s, FE}), files));
    // The numbers go out one after another in frame order (the two unnumbered
    // files may come in either order there).
    QStringList got = fileNames(doc.fileArray());
    got.sort();
    const bool shotFirst = got.contains(u"shot.42.dpx"_s);
    const QStringList expected =
        shotFirst ? QStringList({u"a.0041.dpx"_s, u"shot.42.dpx"_s, u"take.43.dpx"_s})
                  : QStringList({u"a.0041.dpx"_s, u"shot.43.dpx"_s, u"take.42.dpx"_s});
    EXPECT_EQ(got, expected);
    EXPECT_EQ(tree.list(), expected);
}

TEST_F(Conform, DatesAreWrittenInTheDefaultForm) {
    TempTree tree;
    const QString path = tree.file(u"clip.mov"_s);
    RecordingView view;
    MyDocument doc(&view);
    const FileList files = {QXFileItem::fileItemWithFile(path)};
    doc.setFileArray(files);

    ASSERT_TRUE(doc.processConform(withPreview(conformSettings({TD})), files));
    const QRegularExpression form(u"^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d [+-]\\d{4}$"_s);
    const QString today = files[0]->previewObject()->fileName();
    EXPECT_TRUE(form.match(today).hasMatch()) << today.toStdString();

    ASSERT_TRUE(doc.processConform(withPreview(conformSettings({u"x"_s, CD})), files));
    const QDateTime birth = QFileInfo(path).birthTime();
    // Where the file system keeps no creation date the entry is skipped.
    const QString expected = birth.isValid() ? u"x"_s + QXDate::description(birth) : u"x"_s;
    EXPECT_EQ(files[0]->previewObject()->fileName(), expected);
}

TEST_F(Conform, FilenameOnAnEmptyComponentListFailsTheTask) {
    ConsoleLines console;
    TaskDoc t({u"a.1.exr"_s, u"b.2.exr"_s});
    t.files[0]->setComponents({});
    t.files[0]->synchronize();
    EXPECT_FALSE(t.preview(&MyDocument::processConform, conformSettings({F})));
    ASSERT_EQ(console.lines.size(), 1);
    EXPECT_TRUE(console.lines[0].startsWith(
        u"Exception in -[MyDocument processConform:files:]. NSRangeException - "_s));
    EXPECT_EQ(t.view.reloadsPosted, 1);
}

} // namespace
