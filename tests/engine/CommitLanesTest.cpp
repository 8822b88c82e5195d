// Lanes: which items may be renamed at once, and that a commit on many
// workers ends exactly as the one-file-after-another commit does.
#include "CommitLanes.h"
#include "CommitTestSupport.h"

#include <QDirIterator>

#include <atomic>
#include <random>
#include <thread>
#include <vector>

namespace {
struct LaneCase {
    const char* name;
    std::vector<const char*>
        items; // "folder|old name|new name", a trailing "/" on old: a folder item
    QList<int> lanes;
};

class CommitLanesTest : public CommitFixture {
protected:
    void TearDown() override {
        Preferences::setCommitJobsOverride(std::nullopt);
        CommitFixture::TearDown();
    }
};

TEST(CommitLanesTableTest, ItemsThatCanMeetShareALane) {
    const LaneCase cases[] = {
        {"folders", {"/a|x|y", "/b|x|y", "/a|z|w"}, {0, 1, 0}},
        {"folder item, inside and prefix sibling",
         {"/t|1|2", "/s|shots/|plates", "/s/shots|1|2", "/s/shots2|1|2", "/s/shots/in|1|2"},
         {0, 1, 1, 1, 1}},
        {"swaps and case only", {"/a|x|y", "/a|y|x", "/a|IMG|img", "/b|x|x"}, {0, 0, 0, 1}},
        {"a folder of the batch in the way", {"/a|x|sub", "/a/sub|1|2", "/c|1|2"}, {0, 0, 1}},
        {"conflicting files", {"/c|1|2", "/a/Conflicting files|y|z", "/a|x|y"}, {0, 1, 1}},
    };
    for (const LaneCase& c : cases) {
        QList<CommitLanes::Item> items;
        for (const char* spec : c.items) {
            const QStringList f = QString::fromLatin1(spec).split(u'|');
            const QString old = f[1].endsWith(u'/') ? f[1].chopped(1) : f[1];
            items.append({f[0], f[0] + u'/' + old, f[0] + u'/' + f[2], old != f[1]});
        }
        EXPECT_EQ(CommitLanes::assign(items), c.lanes) << c.name;
    }
}

// Random batches over a random tree (swaps, case-only changes, files outside
// the batch in the way, a folder item with a prefix sibling), committed with
// one job and with eight on identical copies.
TEST_F(CommitLanesTest, ManyJobsEndAsOneJobDoes) {
    const QStringList folders{u"a"_s, u"a/in"_s, u"ab"_s, u"b"_s, u"c"_s};
    const QStringList pool{u"n0"_s, u"n1"_s, u"n2"_s, u"n3"_s, u"N0"_s, u"n5"_s, QString()};
    for (unsigned seed = 1; seed <= 16; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        QList<std::pair<QString, QString>> spec; // relative path ("/" ends a folder), new name
        QStringList foreign;
        for (const QString& dir : folders) {
            QStringList names = pool;
            std::shuffle(names.begin(), names.end(), rng);
            for (qsizetype i = 0, n = 1 + qsizetype(rng() % 4); i < n; ++i)
                spec.append({dir + u"/n"_s + QString::number(i), names[i]});
            if (rng() % 2) foreign.append(dir + u"/n5"_s);
        }
        if (rng() % 2) spec.append({u"a/"_s, rng() % 2 ? u"z"_s : u"b"_s});
        std::shuffle(spec.begin(), spec.end(), rng);
        Preferences::setConflictAction(int(rng() % 2));

        const auto outcome = [&](const QString& root, int jobs) {
            for (const QString& f : foreign)
                tree.file(root + u'/' + f, f.toUtf8());
            FileList files;
            for (const auto& [path, name] : spec) {
                FileItemPtr item = QXFileItem::fileItemWithFile(
                    path.endsWith(u'/') ? tree.dir(root + u'/' + path.chopped(1))
                                        : tree.file(root + u'/' + path, path.toUtf8()));
                item->setIsDir(path.endsWith(u'/'));
                propose(item, name);
                files.append(item);
            }
            MyDocument d;
            d.setFileArray(files);
            Preferences::setCommitJobsOverride(jobs);
            const qsizetype logged = logMessages().size();
            d.copyFiles();
            const auto plain = [&](QString s) {
                return s.replace(tree(root), u"ROOT"_s)
                    .replace(QRegularExpression(stamp()), u"STAMP"_s)
                    .replace(QRegularExpression(u"[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}"_s),
                             u"UUID"_s);
            };
            QStringList out;
            for (const QString& name : d.lastFailedNames())
                out.append(plain(name));
            out.sort();
            for (const FileItemPtr& item : files)
                out.append(plain(item->fullPath()));
            QStringList disk;
            for (QDirIterator it(tree(root), QDir::Files, QDirIterator::Subdirectories);
                 it.hasNext();) {
                const QString path = it.next();
                disk.append(plain(path) + u" holds "_s + readText(path));
            }
            disk.sort();
            out += disk;
            QStringList log = logMessages().mid(logged);
            log.sort();
            for (const QString& line : log)
                out.append(plain(line));
            return out;
        };
        EXPECT_EQ(outcome(u"one"_s + QString::number(seed), 1),
                  outcome(u"mny"_s + QString::number(seed), 8));
    }
}

// The mover's seam shows how many moves are in flight at once: more than one
// with several jobs (each waits a moment for company), one with one job.
TEST_F(CommitLanesTest, LanesOverlapTheirMovesAndCancelStopsEveryLane) {
    for (const int jobs : {1, 8}) {
        SCOPED_TRACE(jobs);
        Preferences::setCommitJobsOverride(jobs);
        QStringList names;
        for (int i = 0; i < 40; ++i)
            names.append(u"j%1/d%2/f%3"_s.arg(jobs).arg(i % 8).arg(i));
        const FileList files = batch(names);
        for (const FileItemPtr& item : files)
            propose(item, u"x_"_s + item->fileName());
        std::atomic<int> inFlight{0}, most{0}, afterCancel{0}, moves{0};
        FileMover::setFaultHook([&](const FileMover::FaultPoint& p) {
            if (p.phase == FileMover::Phase::After) return --inFlight, 0;
            if (doc.processingCancelled()) ++afterCancel;
            if (++moves == 24) doc.cancelProgress();
            most = std::max(most.load(), ++inFlight);
            for (int spin = 0; jobs > 1 && inFlight < 2 && spin < 2000; ++spin)
                std::this_thread::sleep_for(std::chrono::microseconds(500));
            return 0;
        });
        view.progressSteps = 0;
        doc.startProgress();
        doc.copyFiles();
        FileMover::setFaultHook({});
        EXPECT_EQ(most.load() > 1, jobs > 1);
        // Every lane stops before its next file: only moves already under way end.
        EXPECT_LT(afterCancel.load(), jobs);
        const auto renamed = std::count_if(files.cbegin(), files.cend(), [](const auto& f) {
            return f->fileName().startsWith(u"x_"_s);
        });
        EXPECT_EQ(view.progressSteps, renamed);
        EXPECT_GE(renamed, 24 - jobs);
        EXPECT_LT(renamed, 40);
        EXPECT_FALSE(doc.lastCommitSummary().reachedEnd);
    }
}

// A folder that vanished fails its own lane's items; the other lanes finish.
TEST_F(CommitLanesTest, VanishedFolderFailsItsOwnItemsOnly) {
    Preferences::setCommitJobsOverride(4);
    const FileList files = batch({u"a/1"_s, u"b/1"_s, u"a/2"_s, u"c/1"_s});
    for (const FileItemPtr& item : files)
        propose(item, u"x"_s + item->fileName());
    QDir(tree(u"b"_s)).removeRecursively();
    EXPECT_FALSE(doc.copyFiles());
    EXPECT_EQ(doc.lastFailedNames(), QStringList{u"1"_s});
    EXPECT_EQ(tree.list(u"a"_s), (QStringList{u"x1"_s, u"x2"_s}));
    EXPECT_EQ(tree.list(u"c"_s), QStringList{u"x1"_s});
}
} // namespace
