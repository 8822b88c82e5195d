#include "QXDate.h"
#include "TaskTestSupport.h"

#include <QFileInfo>

namespace {

class Conform : public LoggedTest {};
const TaskMethod conform = &MyDocument::processConform;

// Tokens from "{Filename}|.|{Frame Number}": braces stand for "@@ " and " @@".
QVariantList toks(const char* list) {
    QVariantList out;
    for (QString s : *list ? names(list) : QStringList())
        out.append(s.replace(u'{', u"@@ "_s).replace(u'}', u" @@"_s));
    return out;
}

// Format entries from "Key=value" strings.
QVariantList entries(const QStringList& list) {
    QVariantList out;
    for (const QString& s : list)
        out.append(QVariantMap{{s.section(u'=', 0, 0), s.section(u'=', 1)}});
    return out;
}

QVariantMap format(const char* tokens) {
    return {{u"formatArray"_s, MyDocument::formatComponentsFromArray(toks(tokens))}};
}

TEST_F(Conform, FormatArrayFromTokens) {
    const QVariantList in = {u"@@ Filename @@"_s, u"take-final"_s, u"a b"_s, u""_s, 5, u"._"_s,
                             u"@@ Frame"_s};
    EXPECT_EQ(MyDocument::formatComponentsFromArray(in),
              entries({u"Filename=Filename"_s, u"Text=take"_s, u"Separator=-"_s, u"Text=final"_s,
                       u"Text=a b"_s, u"Separator=."_s, u"Separator=_"_s, u"Text=@@ Frame"_s}));
}

TEST_F(Conform, InsertTokenGoesBeforeTheFrameNumberElseTheExtension) {
    const struct {
        const char *before, *title, *after;
    } cases[] = {
        // clang-format off
        {"", "Frame Number", "{Frame Number}"},
        {"{Filename}|.|{Frame Number}|.|{File Extension}", "Created Date", "{Filename}|_|{Created Date}|.|{Frame Number}|.|{File Extension}"},
        {"{Filename}|.|{File Extension}", "Frame Number", "{Filename}|.|{Frame Number}|.|{File Extension}"},
        {"{File Extension}|x|{Frame Number}", "Filename", "_|{Filename}|{File Extension}|x|{Frame Number}"},
        {"{Filename}", "File Extension", "{Filename}|.|{File Extension}"},
        // clang-format on
    };
    for (const auto& c : cases)
        EXPECT_EQ(MyDocument::insertToken(toks(c.before), QString::fromUtf8(c.title)),
                  toks(c.after))
            << c.title;
}

TEST_F(Conform, RebuildsNames) {
    const QVariantMap odd = {{u"formatArray"_s, entries({u"Nonsense=x"_s, u"Text=y"_s})}};
    // clang-format off
    expectExamples({
        {"standard", conform, format("{Filename}|.|{Frame Number}|.|{File Extension}"), "shot.0001.dpx", "shot.0001.dpx"},
        {"reordered", conform, format("{Frame Number}|_|{Filename}|.|{File Extension}"), "shot.0001.dpx", "0001_shot.dpx"},
        {"no leading separator", conform, format("_|{Filename}"), "shot", "shot"},
        {"separators collapse", conform, format("{Filename}|._|{Frame Number}"), "shot.0001.dpx", "shot_0001"},
        {"empty extension keeps its dot", conform, format("{Filename}|.|{File Extension}"), "shot", "shot."},
        {"text", conform, format("take-final.|{File Extension}"), "shot.0001.dpx", "take-final.dpx"},
        {"name run stops at the number", conform, format("{Filename}"), "a_b.0001.dpx", "a_b."},
        {"no name when first is none", conform, format("{Filename}|x"), "0001.dpx", "x"},
        {"unknown keys skipped", conform, odd, "a.1.exr", "y"},
        {"absent format", conform, {}, "a.1.exr", ""},
        {"preview shares one vacant number", conform, format("{Filename}|.|{Frame Number}|.|{File Extension}"), "a.0041.dpx|shot.dpx|take.dpx|b.3.dpx", "a.0041.dpx|shot.42.dpx|take.42.dpx|b.3.dpx"},
    });
    // clang-format on
    TaskDoc t({u"a.7.x"_s, u"b.x"_s});
    t.files[1]->previewObject()->setFrameNumber(QVariant::fromValue<qlonglong>(100)); // not read
    EXPECT_EQ(FrameValue::toSigned(t.doc.vacantFrameNumber()), 8);
    EXPECT_EQ(FrameValue::toSigned(TaskDoc(QStringList{}).doc.vacantFrameNumber()), 1);
}

TEST_F(Conform, CommitGivesEachUnnumberedFileTheNextNumber) {
    TaskDoc d(names("a.0041.dpx|shot.dpx|take.dpx"), true);
    EXPECT_TRUE(d.doc.processConform(format("{Filename}|.|{Frame Number}|.|{File Extension}"),
                                     d.doc.sortFilesByFrameOrder()));
    // The two unnumbered files may come in either order in frame order.
    const QStringList got = d.tree->list();
    EXPECT_EQ(got, names(got.contains(u"shot.42.dpx"_s) ? "a.0041.dpx|shot.42.dpx|take.43.dpx"
                                                        : "a.0041.dpx|shot.43.dpx|take.42.dpx"));
}

TEST_F(Conform, DatesAreWrittenInTheDefaultForm) {
    TaskDoc d({u"clip.mov"_s}, true);
    const QDateTime before = QDateTime::currentDateTime();
    ASSERT_TRUE(d.preview(conform, format("{Today's Date}")));
    const QString today = d.previews()[0];
    EXPECT_TRUE(today == QXDate::description(before) ||
                today == QXDate::description(QDateTime::currentDateTime()))
        << today.toStdString();
    ASSERT_TRUE(d.preview(conform, format("x|{Created Date}")));
    const QDateTime birth = QFileInfo(d.files[0]->fullPath()).birthTime();
    // Where the file system keeps no creation date the entry is skipped.
    EXPECT_EQ(d.previews()[0], birth.isValid() ? u"x"_s + QXDate::description(birth) : u"x"_s);
}

} // namespace
