// seqmate-cli --jobs: how many moves run at once, for one run.
#include "CliResult.h"
#include "TempTree.h"

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {
TEST(JobsCli, BadCountsAreRefusedAndOneJobRenames) {
    TempTree t;
    t.file(u"d/a"_s, "A");
    t.file(u"d/b"_s, "B");
    t.file(u"e/c"_s, "C");
    const QStringList apply{u"-t"_s,      u"prefix"_s, u"-s"_s,   u"prefix=x_"_s,
                            u"--apply"_s, u"-y"_s,     t(u"d"_s), t(u"e"_s)};
    for (const QString& bad : {u"0"_s, u"-3"_s, u"abc"_s, u"2x"_s, u"65"_s}) {
        const CliResult r = runCli(apply + QStringList{u"--jobs"_s, bad});
        EXPECT_EQ(r.status, 2);
        EXPECT_EQ(
            r.err,
            u"seqmate-cli: --jobs: takes a whole number from 1 to 64, not \"%1\"\n"_s.arg(bad));
        EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
    }
    EXPECT_EQ(t.list(u"d"_s), (QStringList{u"a"_s, u"b"_s}));
    const CliResult one = runCli(apply + QStringList{u"--jobs"_s, u"1"_s});
    EXPECT_EQ(one.status, 0) << one.err.toStdString();
    EXPECT_EQ(t.list(u"d"_s), (QStringList{u"x_a"_s, u"x_b"_s}));
    EXPECT_EQ(t.read(u"e/x_c"_s), "C");
}
} // namespace
