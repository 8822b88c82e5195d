#include "CliResult.h"
#include "TempTree.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

TempTree& frames(TempTree& t) {
    for (int f : {1, 2, 3, 5, 9})
        t.file(u"plates/Shot.%1.EXR"_s.arg(f, 4, 10, QLatin1Char('0')));
    return t;
}

TEST(Cli, WithoutATaskPrintsItemsAndComponents) {
    TempTree t;
    frames(t);
    t.file(u"plates/.hidden"_s);
    const CliResult r = runCli({t(u"plates"_s)});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains(u"Frame Number 1 (padding 4)"_s));
    EXPECT_TRUE(r.out.contains(u"File Extension \"EXR\""_s));
    EXPECT_TRUE(r.out.contains(u"5 item(s)"_s));
    EXPECT_FALSE(r.out.contains(u".hidden"_s));
}

TEST(Cli, PreviewTableAndJson) {
    TempTree t;
    frames(t);
    const CliResult table = runCli({u"-t"_s, u"lower-ext"_s, t(u"plates"_s)});
    ASSERT_EQ(table.status, 0) << table.err.toStdString();
    EXPECT_TRUE(table.out.contains(u"Shot.0001.EXR -> Shot.0001.exr"_s));
    EXPECT_TRUE(table.out.contains(u"5 file(s), 5 to rename, 0 conflict(s)"_s));

    const CliResult json = runCli({u"--task"_s, u"9"_s, u"--json"_s, t(u"plates/Shot.0001.EXR"_s),
                                   t(u"plates/Shot.0002.EXR"_s)});
    ASSERT_EQ(json.status, 0) << json.err.toStdString();
    const QJsonArray rows = QJsonDocument::fromJson(json.out.toUtf8()).array();
    ASSERT_EQ(rows.size(), 2);
    const QJsonObject first = rows[0].toObject();
    EXPECT_EQ(first.value(u"path"_s).toString(), t(u"plates/Shot.0001.EXR"_s));
    EXPECT_EQ(first.value(u"old"_s).toString(), u"Shot.0001.EXR"_s);
    EXPECT_EQ(first.value(u"new"_s).toString(), u"Shot.EXR"_s);
    EXPECT_TRUE(first.value(u"conflict"_s).toBool()); // both become Shot.EXR
}

TEST(Cli, SettingsByKeyAndFormat) {
    TempTree t;
    frames(t);
    const CliResult pad =
        runCli({u"-t"_s, u"pad"_s, u"-s"_s, u"padLength=6"_s, t(u"plates/Shot.0009.EXR"_s)});
    EXPECT_TRUE(pad.out.contains(u"-> Shot.000009.EXR"_s)) << pad.out.toStdString();

    const CliResult regex =
        runCli({u"-t"_s, u"find-replace"_s, u"-s"_s, u"find=(\\w+)\\.(\\d+)"_s, u"-s"_s,
                u"replace=$2_$1"_s, u"-s"_s, u"regex=yes"_s, t(u"plates/Shot.0001.EXR"_s)});
    EXPECT_TRUE(regex.out.contains(u"-> 0001_Shot.EXR"_s)) << regex.out.toStdString();

    const CliResult conform =
        runCli({u"-t"_s, u"conform"_s, u"--format"_s,
                u"@@ Filename @@_v2.@@ Frame Number @@.@@ File Extension @@"_s,
                t(u"plates/Shot.0003.EXR"_s)});
    EXPECT_TRUE(conform.out.contains(u"-> Shot_v2.0003.EXR"_s)) << conform.out.toStdString();
}

TEST(Cli, BatchFilesSaveAndReopen) {
    TempTree t;
    frames(t);
    const QString batch = t(u"b.sqb"_s);
    const CliResult save = runCli({u"-t"_s, u"offset"_s, u"-s"_s, u"offset=-1"_s, u"--save"_s,
                                   batch, t(u"plates/Shot.0002.EXR"_s)});
    ASSERT_EQ(save.status, 0) << save.err.toStdString();
    EXPECT_TRUE(t.read(u"b.sqb"_s).contains("<integer>18446744073709551615</integer>"));
    const CliResult reopen = runCli({u"-b"_s, batch});
    ASSERT_EQ(reopen.status, 0) << reopen.err.toStdString();
    EXPECT_TRUE(reopen.out.contains(u"Shot.0002.EXR -> Shot.0001.EXR"_s))
        << reopen.out.toStdString();
}

// Bad arguments, and an apply that cannot go ahead, say so in one line with status 2.
TEST(Cli, UsageErrorsExitWithTwoAndOneLine) {
    TempTree t;
    t.file(u"A"_s);
    const QStringList bad[] = {
        {u"-t"_s, u"sparkle"_s, t.path()},
        {u"-t"_s, u"27"_s, t.path()},
        {u"-t"_s, u"pad"_s, u"-s"_s, u"padLength"_s, t.path()},
        {u"-t"_s, u"pad"_s, u"-s"_s, u"find=x"_s, t.path()},
        {u"-t"_s, u"find-replace"_s, u"-s"_s, u"regex=maybe"_s, t.path()},
        {u"-b"_s, t(u"missing.sqb"_s)},
        {u"--no-such-option"_s},
        {u"-t"_s, u"check-gaps"_s, u"--apply"_s, t.path()},
        {u"-t"_s, u"lower"_s, u"--apply"_s, u"-y"_s, u"--conflict-action"_s, u"3"_s, t.path()},
        {u"-t"_s, u"lower"_s, u"--apply"_s, t.path()}, // no terminal to confirm on, no -y
        {u"--undo"_s, t(u"A"_s)},                      // no rename journal
    };
    for (const QStringList& args : bad) {
        const CliResult r = runCli(args);
        EXPECT_EQ(r.status, 2) << args.join(u' ').toStdString();
        EXPECT_EQ(r.err.trimmed().count(u'\n'), 0) << r.err.toStdString();
        EXPECT_TRUE(r.err.startsWith(u"seqmate-cli: "_s)) << r.err.toStdString();
    }
    EXPECT_EQ(t.list(), QStringList{u"A"_s});
}
} // namespace
