#include "CliResult.h"
#include "TempTree.h"

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// What the program prints for a folder of frames 1, 2, 3, 5 and 9: each row the arguments
// before the folder and texts its output holds.
TEST(Cli, PrintsItemsPreviewsAndReports) {
    TempTree t;
    for (int f : {1, 2, 3, 5, 9})
        t.file(u"plates/Shot.%1.EXR"_s.arg(f, 4, 10, QLatin1Char('0')));
    t.file(u"plates/.hidden"_s);
    const struct {
        QStringList args;
        QStringList shown;
    } cases[] = {
        {{}, {u"Frame Number 1 (padding 4)"_s, u"File Extension \"EXR\""_s, u"5 item(s)"_s}},
        {words(u"-t lower-ext"_s),
         {u"Shot.0001.EXR -> Shot.0001.exr"_s, u"5 file(s), 5 to rename, 0 conflict(s)"_s}},
        {words(u"-t pad -s padLength=6"_s), {u"Shot.0009.EXR -> Shot.000009.EXR"_s}},
        {words(u"-t find-replace -s find=(\\w+)\\.(\\d+) -s replace=$2_$1 -s regex=yes"_s),
         {u"Shot.0001.EXR -> 0001_Shot.EXR"_s}},
        {{u"-t"_s, u"conform"_s, u"--format"_s,
          u"@@ Filename @@_v2.@@ Frame Number @@.@@ File Extension @@"_s},
         {u"Shot.0003.EXR -> Shot_v2.0003.EXR"_s}},
        {words(u"-t check-gaps"_s),
         {u"2 gaps found"_s,
          u"Frame number gaps were found at the following locations:\n4\n6-8"_s}},
    };
    for (const auto& c : cases) {
        const CliResult r = runCli(c.args + QStringList{t(u"plates"_s)});
        EXPECT_EQ(r.status, 0) << r.err.toStdString();
        for (const QString& text : c.shown)
            EXPECT_TRUE(r.out.contains(text)) << text.toStdString() << " in\n"
                                              << r.out.toStdString();
        EXPECT_FALSE(r.out.contains(u".hidden"_s));
    }
}

TEST(Cli, BatchFilesSaveAndReopen) {
    TempTree t;
    t.file(u"plates/Shot.0002.EXR"_s);
    const QString batch = t(u"b.sqb"_s);
    const CliResult save =
        runCli(words(u"-t offset -s offset=-1 --save"_s) << batch << t(u"plates/Shot.0002.EXR"_s));
    ASSERT_EQ(save.status, 0) << save.err.toStdString();
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
        words(u"-t sparkle DIR"_s),
        words(u"-t 27 DIR"_s),
        words(u"-t pad -s padLength DIR"_s),
        words(u"-t pad -s find=x DIR"_s),
        words(u"-t find-replace -s regex=maybe DIR"_s),
        words(u"-b DIR/missing.sqb"_s),
        words(u"--no-such-option"_s),
        words(u"-t check-gaps --apply DIR"_s),
        words(u"-t lower --apply -y --conflict-action 3 DIR"_s),
        words(u"-t lower --apply DIR"_s), // no terminal to confirm on, no -y
        words(u"--undo DIR/A"_s),         // no rename journal
        words(u"-t lower --apply -y --jobs 0 DIR"_s),
        words(u"-t lower --apply -y --jobs -3 DIR"_s),
        words(u"-t lower --apply -y --jobs 2x DIR"_s),
    };
    for (QStringList args : bad) {
        args.replaceInStrings(u"DIR"_s, t.path());
        const CliResult r = runCli(args);
        EXPECT_EQ(r.status, 2) << args.join(u' ').toStdString();
        EXPECT_EQ(r.err.trimmed().count(u'\n'), 0) << r.err.toStdString();
        EXPECT_TRUE(r.err.startsWith(u"seqmate-cli: "_s)) << r.err.toStdString();
    }
    EXPECT_EQ(t.list(), QStringList{u"A"_s});
}
} // namespace
