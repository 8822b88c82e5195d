#include "QXDate.h"
#include "TaskTestSupport.h"
#include "TempTree.h"

#include <QFileInfo>

namespace {

class Conform : public LoggedTest {};
const TaskMethod conform = &MyDocument::processConform;
const QString F = u"@@ Filename @@"_s, FN = u"@@ Frame Number @@"_s, FE = u"@@ File Extension @@"_s,
              CD = u"@@ Created Date @@"_s;

QVariantList tokens(const QStringList& list) {
    QVariantList out;
    for (const QString& s : list)
        out.append(s);
    return out;
}

// Format entries from "Key=value" strings.
QVariantList entries(const QStringList& list) {
    QVariantList out;
    for (const QString& s : list)
        out.append(QVariantMap{{s.section(u'=', 0, 0), s.section(u'=', 1)}});
    return out;
}

QVariantMap format(const QStringList& tokenList) {
    return {{u"formatArray"_s, MyDocument::formatComponentsFromArray(tokens(tokenList))}};
}

TEST_F(Conform, FormatArrayFromTokens) {
    const QVariantList in = {F, u"take-final"_s, u"a b"_s, u""_s, 5, u"._"_s, u"@@ Frame"_s};
    EXPECT_EQ(MyDocument::formatComponentsFromArray(in),
              entries({u"Filename=Filename"_s, u"Text=take"_s, u"Separator=-"_s, u"Text=final"_s,
                       u"Text=a b"_s, u"Separator=."_s, u"Separator=_"_s, u"Text=@@ Frame"_s}));
}

TEST_F(Conform, InsertTokenGoesBeforeTheFrameNumberElseTheExtension) {
    const QString TD = u"@@ Today's Date @@"_s;
    const struct {
        QStringList before;
        QString title;
        QStringList after;
    } cases[] = {
        {{}, u"Frame Number"_s, {FN}},
        {{F, u"."_s, FN, u"."_s, FE}, u"Created Date"_s, {F, u"_"_s, CD, u"."_s, FN, u"."_s, FE}},
        {{F, u"."_s, FE}, u"Frame Number"_s, {F, u"."_s, FN, u"."_s, FE}},
        {{F, u"."_s, FE}, u"Today's Date"_s, {F, u"_"_s, TD, u"."_s, FE}},
        {{FE, u"x"_s, FN}, u"Filename"_s, {u"_"_s, F, FE, u"x"_s, FN}},
        {{F}, u"File Extension"_s, {F, u"."_s, FE}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(MyDocument::insertToken(tokens(c.before), c.title), tokens(c.after))
            << c.title.toStdString();

    TaskDoc t({u"shot.0001.dpx"_s});
    t.doc.setTokens(tokens({F, u"."_s, FE}));
    t.doc.insertToken(u"Frame Number"_s);
    t.doc.waitForPreviews();
    EXPECT_EQ(t.doc.settingsForm().tokens, tokens({F, u"."_s, FN, u"."_s, FE}));
}

TEST_F(Conform, RebuildsNames) {
    const QStringList standard = {F, u"."_s, FN, u"."_s, FE};
    const QVariantMap odd = {{u"formatArray"_s, entries({u"Nonsense=x"_s, u"Text=y"_s})}};
    // clang-format off
    expectExamples({
        {"standard", conform, format(standard), {u"shot.0001.dpx"_s}, {u"shot.0001.dpx"_s}},
        {"reordered", conform, format({FN, u"_"_s, F, u"."_s, FE}), {u"shot.0001.dpx"_s}, {u"0001_shot.dpx"_s}},
        {"no leading separator", conform, format({u"_"_s, F}), {u"shot"_s}, {u"shot"_s}},
        {"separators collapse", conform, format({F, u"._"_s, FN}), {u"shot.0001.dpx"_s}, {u"shot_0001"_s}},
        {"empty extension keeps its dot", conform, format({F, u"."_s, FE}), {u"shot"_s}, {u"shot."_s}},
        {"text", conform, format({u"take-final."_s, FE}), {u"shot.0001.dpx"_s}, {u"take-final.dpx"_s}},
        {"name run stops at the number", conform, format({F}), {u"a_b.0001.dpx"_s}, {u"a_b."_s}},
        {"no name when first is none", conform, format({F, u"x"_s}), {u"0001.dpx"_s}, {u"x"_s}},
        {"unknown keys skipped", conform, odd, {u"a.1.exr"_s}, {u"y"_s}},
        {"absent format", conform, {}, {u"a.1.exr"_s}, {u""_s}},
        {"preview shares one vacant number", conform, format(standard),
         {u"a.0041.dpx"_s, u"shot.dpx"_s, u"take.dpx"_s, u"b.3.dpx"_s},
         {u"a.0041.dpx"_s, u"shot.42.dpx"_s, u"take.42.dpx"_s, u"b.3.dpx"_s}},
    });
    // clang-format on
    TaskDoc t({u"a.7.x"_s, u"b.x"_s});
    t.files[1]->previewObject()->setFrameNumber(QVariant::fromValue<qlonglong>(100)); // not read
    EXPECT_EQ(FrameValue::toSigned(t.doc.vacantFrameNumber()), 8);
    EXPECT_EQ(FrameValue::toSigned(TaskDoc(QStringList{}).doc.vacantFrameNumber()), 1);
}

TEST_F(Conform, CommitGivesEachUnnumberedFileTheNextNumber) {
    TempTree tree;
    RecordingView view;
    MyDocument doc(&view);
    for (const QString& n : {u"a.0041.dpx"_s, u"shot.dpx"_s, u"take.dpx"_s})
        doc.setFileArray(doc.fileArray() << QXFileItem::fileItemWithFile(tree.file(n)));
    EXPECT_TRUE(
        doc.processConform(format({F, u"."_s, FN, u"."_s, FE}), doc.sortFilesByFrameOrder()));
    // The two unnumbered files may come in either order in frame order.
    const QStringList got = tree.list();
    const bool shotFirst = got.contains(u"shot.42.dpx"_s);
    EXPECT_EQ(got, QStringList({u"a.0041.dpx"_s, shotFirst ? u"shot.42.dpx"_s : u"shot.43.dpx"_s,
                                shotFirst ? u"take.43.dpx"_s : u"take.42.dpx"_s}));
}

TEST_F(Conform, DatesAreWrittenInTheDefaultForm) {
    TempTree tree;
    const QString path = tree.file(u"clip.mov"_s);
    TaskDoc t{QStringList{}};
    t.files = {QXFileItem::fileItemWithFile(path)};
    t.doc.setFileArray(t.files);
    const QDateTime before = QDateTime::currentDateTime();
    ASSERT_TRUE(t.preview(conform, format({u"@@ Today's Date @@"_s})));
    const QString today = t.previews()[0];
    EXPECT_TRUE(today == QXDate::description(before) ||
                today == QXDate::description(QDateTime::currentDateTime()))
        << today.toStdString();
    ASSERT_TRUE(t.preview(conform, format({u"x"_s, CD})));
    const QDateTime birth = QFileInfo(path).birthTime();
    // Where the file system keeps no creation date the entry is skipped.
    EXPECT_EQ(t.previews()[0], birth.isValid() ? u"x"_s + QXDate::description(birth) : u"x"_s);
}

TEST_F(Conform, FilenameOnAnEmptyComponentListFailsTheTask) {
    ConsoleLines console;
    TaskDoc t({u"a.1.exr"_s});
    t.files[0]->setComponents({});
    t.files[0]->synchronize();
    EXPECT_FALSE(t.preview(conform, format({F})));
    const QStringList lines = console.lines();
    ASSERT_EQ(lines.size(), 1);
    EXPECT_TRUE(lines[0].startsWith(
        u"Exception in -[MyDocument processConform:files:]. NSRangeException - "_s));
    EXPECT_EQ(t.view.reloadsPosted, 1);
}

} // namespace
