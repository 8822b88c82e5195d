// Mounts that refuse rename flags or hard links (SMB both, NFS the flag): a
// refusal costs one call per file system, and the fallback never overwrites,
// also with many threads moving at once.
#include "FileMover.h"
#include "TempTree.h"

#include <QDir>
#include <QFile>
#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <thread>
#include <vector>

using namespace Qt::Literals::StringLiterals;

namespace {
class FileMoverRefusalTest : public ::testing::Test {
protected:
    void TearDown() override { FileMover::simulateRefusalsForTesting(false, false); }
    TempTree tree;
};

TEST_F(FileMoverRefusalTest, EachRefusalIsTriedOncePerFileSystem) {
    const struct {
        bool flags, links;
        int refused; // calls refused over the whole run
    } cases[] = {{true, true, 2}, {true, false, 1}, {false, true, 0}};
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "flags " << c.flags << ", links " << c.links);
        TempTree t;
        for (int f = 0; f < 3; ++f)
            for (int i = 0; i < 4; ++i)
                t.file(u"d%1/f%2"_s.arg(f).arg(i), QByteArray::number(f * 10 + i));
        t.file(u"d0/taken"_s, "kept");
        t.dir(u"d1/sub"_s);
        FileMover::simulateRefusalsForTesting(c.flags, c.links);
        FileMover::Folder folder; // as the commit moves, through its held folder
        for (int f = 0; f < 3; ++f)
            for (int i = 0; i < 4; ++i) {
                const QString from = t(u"d%1/f%2"_s.arg(f).arg(i)),
                              to = t(u"d%1/g%2"_s.arg(f).arg(i));
                EXPECT_EQ(FileMover::move(from, to, QFile::encodeName(from), QFile::encodeName(to),
                                          nullptr, &folder),
                          QString());
            }
        EXPECT_EQ(FileMover::move(t(u"d0/g0"_s), t(u"d0/taken"_s)), u"File exists"_s);
        EXPECT_EQ(FileMover::move(t(u"d1/sub"_s), t(u"d1/g0"_s)), u"File exists"_s);
        EXPECT_EQ(FileMover::move(t(u"d1/sub"_s), t(u"d2/sub"_s)), QString());
        EXPECT_EQ(FileMover::refusedAttemptsForTesting(), c.refused);
        EXPECT_EQ(t.read(u"d0/taken"_s), "kept");
        EXPECT_EQ(t.read(u"d2/g3"_s), "23");
        EXPECT_EQ(t.list(u"d2"_s), (QStringList{u"g0"_s, u"g1"_s, u"g2"_s, u"g3"_s, u"sub"_s}));
    }
}

// Threads racing for one name: one wins, every other file keeps its own name.
TEST_F(FileMoverRefusalTest, ThreadsNeverOverwriteEachOther) {
    constexpr int kThreads = 8, kRounds = 20;
    FileMover::simulateRefusalsForTesting(true, true);
    for (int round = 0; round < kRounds; ++round) {
        for (int i = 0; i < kThreads; ++i)
            tree.file(u"src%1/f"_s.arg(i), QByteArray::number(i));
        tree.dir(u"dst"_s);
        std::latch start(kThreads);
        std::atomic<int> moved{0};
        std::vector<std::jthread> threads;
        for (int i = 0; i < kThreads; ++i)
            threads.emplace_back([&, i] {
                start.arrive_and_wait();
                if (FileMover::move(tree(u"src%1/f"_s.arg(i)), tree(u"dst/t"_s)).isEmpty()) ++moved;
            });
        threads.clear();
        ASSERT_EQ(moved.load(), 1) << "round " << round;
        int left = 0;
        for (int i = 0; i < kThreads; ++i)
            left += tree.exists(u"src%1/f"_s.arg(i)) ? 1 : 0;
        ASSERT_EQ(left, kThreads - 1);
        QDir(tree(u"dst"_s)).removeRecursively();
        for (int i = 0; i < kThreads; ++i)
            QDir(tree(u"src%1"_s.arg(i))).removeRecursively();
    }
}
} // namespace
