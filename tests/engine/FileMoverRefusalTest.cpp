// Mounts refusing rename flags or hard links (SMB both, NFS the flag).
#include "FileMover.h"
#include "TempTree.h"

#include <QFile>
#include <atomic>
#include <gtest/gtest.h>
#include <latch>
#include <thread>
#include <tuple>
#include <vector>

using namespace Qt::Literals::StringLiterals;

TEST(FileMoverRefusals, EachIsTriedOncePerFileSystem) {
    for (const auto& [flags, links, refused] :
         {std::tuple{true, true, 2}, {true, false, 1}, {false, true, 0}, {false, false, 0}}) {
        TempTree t;
        t.file(u"d/taken"_s, "kept");
        FileMover::simulateRefusalsForTesting(flags, links);
        FileMover::Folder folder; // held, as the commit moves
        for (const QString& from : {t.file(u"d/a"_s), t.file(u"d/b"_s), t.file(u"d/c"_s)}) {
            const QByteArray native = QFile::encodeName(from);
            EXPECT_EQ(FileMover::move(from, from + u'2', native, native + '2', nullptr, &folder),
                      u""_s);
        }
        EXPECT_EQ(FileMover::move(t(u"d/a2"_s), t(u"d/taken"_s)), u"File exists"_s);
        EXPECT_EQ(FileMover::move(t(u"d"_s), t(u"e"_s)), u""_s); // a folder
        EXPECT_EQ(FileMover::refusedAttemptsForTesting(), refused) << flags << links;
        EXPECT_EQ(t.list(u"e"_s), (QStringList{u"a2"_s, u"b2"_s, u"c2"_s, u"taken"_s}));
    }
}

TEST(FileMoverRefusals, ThreadsRacingForANameNeverOverwrite) {
    FileMover::simulateRefusalsForTesting(true, true);
    for (int round = 0; round < 50; ++round) {
        TempTree t;
        std::latch start(8);
        std::atomic<int> moved{0};
        std::vector<std::jthread> threads;
        for (int i = 0; i < 8; ++i)
            threads.emplace_back([&, from = t.file(u"s%1/f"_s.arg(i))] {
                start.arrive_and_wait();
                moved += FileMover::move(from, t(u"to"_s)).isEmpty() ? 1 : 0;
            });
        threads.clear(); // joins
        EXPECT_EQ(moved.load(), 1) << "round " << round;
    }
    FileMover::simulateRefusalsForTesting(false, false);
}
