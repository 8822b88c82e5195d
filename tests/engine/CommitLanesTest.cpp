// Lanes: which items may be renamed at once, and that a commit on many
// workers ends as the one-file-after-another commit does.
#include "CommitLanes.h"
#include "CommitTestSupport.h"

#include <QDirIterator>

#include <random>
#include <thread>

namespace {
using CommitLanesTest = CommitFixture;

TEST(CommitLanesTableTest, ItemsThatCanMeetShareALane) {
    // Items "folder|old|new" ("/" after old: a folder item).
    const std::pair<const char*, QList<int>> cases[] = {
        {"/a|x|y,/b|x|y,/a|z|w", {0, 1, 0}},
        {"/t|1|2,/s|shots/|plates,/s/shots|1|2,/s/shots2|1|2,/s/shots/in|1|2", {0, 1, 1, 1, 1}},
        {"/a|x|y,/a|y|x,/a|IMG|img,/b|x|x", {0, 0, 0, 1}},
        {"/a|x|sub,/a/sub|1|2,/c|1|2", {0, 0, 1}}, // a folder of the batch in the way
        {"/c|1|2,/a/Conflicting files|y|z,/a|x|y", {0, 1, 1}},
    };
    for (const auto& [layout, lanes] : cases) {
        QList<CommitLanes::Item> items;
        for (const QString& item : QString::fromLatin1(layout).split(u',')) {
            const QStringList f = item.split(u'|');
            const QString old = f[1].endsWith(u'/') ? f[1].chopped(1) : f[1];
            items.append({f[0], f[0] + u'/' + old, f[0] + u'/' + f[2], old != f[1]});
        }
        EXPECT_EQ(CommitLanes::assign(items), lanes) << layout;
    }
}

// Random batches over a random tree (swaps, case-only changes, blank names,
// files outside the batch in the way, a folder item with a prefix sibling, a
// vanished folder), committed with one job and with eight on identical
// copies: the same files where, items, failures and log lines.
TEST_F(CommitLanesTest, ManyJobsEndAsOneJobDoes) {
    for (unsigned seed = 1; seed <= 16; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 rng(seed);
        QList<std::pair<QString, QString>> layout; // path ("/" ends a folder item), new name
        for (const QString& dir : {u"a"_s, u"a/in"_s, u"ab"_s, u"b"_s, u"c"_s}) {
            QStringList names{u"n0"_s, u"n1"_s, u"n2"_s, u"n3"_s, u"N0"_s, u"n5"_s, QString()};
            std::shuffle(names.begin(), names.end(), rng);
            for (int i = 0, n = 1 + int(rng() % 4); i < n; ++i)
                layout.append({dir + u"/n"_s + QString::number(i), names[i]});
            if (rng() % 2) layout.append({dir + u"/n5"_s, QString()}); // outside the batch
        }
        if (rng() % 2) layout.append({u"a/"_s, rng() % 2 ? u"z"_s : u"b"_s});
        std::shuffle(layout.begin(), layout.end(), rng);
        Preferences::setConflictAction(int(rng() % 2));
        const bool vanish = rng() % 4 == 0;
        const auto outcome = [&](const QString& root, int jobs) {
            FileList files;
            for (const auto& [path, name] : layout) {
                const bool dir = path.endsWith(u'/');
                const QString at = root + u'/' + (dir ? path.chopped(1) : path);
                files.append(QXFileItem::fileItemWithFile(dir ? tree.dir(at)
                                                              : tree.file(at, path.toUtf8())));
                files.last()->setIsDir(dir);
                propose(files.last(), name);
                if (path.endsWith(u"/n5"_s) && name.isNull()) files.removeLast();
            }
            if (vanish) QDir(tree(root + u"/c"_s)).removeRecursively();
            MyDocument d;
            d.setFileArray(files);
            Preferences::setCommitJobsOverride(jobs);
            const qsizetype logged = logMessages().size();
            d.copyFiles();
            QStringList out = d.lastFailedNames() + logMessages().mid(logged);
            for (qsizetype i = 0; i < files.size(); ++i)
                out.append(QString::number(i) + files[i]->fullPath());
            for (QDirIterator it(tree(root), QDir::Files, QDirIterator::Subdirectories);
                 it.hasNext();) {
                const QString path = it.next();
                out.append(path + u" holds "_s + readText(path));
            }
            out.replaceInStrings(tree(root), u"ROOT"_s);
            out.replaceInStrings(QRegularExpression(stamp()), u"STAMP"_s);
            out.replaceInStrings(QRegularExpression(u"[0-9A-F-]{36}"_s), u"UUID"_s);
            out.sort();
            return out;
        };
        EXPECT_EQ(outcome(u"one"_s + QString::number(seed), 1),
                  outcome(u"mny"_s + QString::number(seed), 8));
        Preferences::setCommitJobsOverride(std::nullopt);
    }
}

// The mover's seam counts the moves in flight at once: more than one with
// several jobs (each waits a moment for company), one with one job. A cancel
// stops every lane before its next file; the progress counts each file handled.
TEST_F(CommitLanesTest, LanesOverlapTheirMovesAndCancelStopsEveryLane) {
    for (const int jobs : {1, 8}) {
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
            afterCancel += doc.processingCancelled();
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
        Preferences::setCommitJobsOverride(std::nullopt);
        EXPECT_EQ(most.load() > 1, jobs > 1) << jobs;
        EXPECT_LT(afterCancel.load(), jobs); // only moves already under way
        const auto renamed = std::count_if(files.cbegin(), files.cend(), [](const auto& f) {
            return f->fileName().startsWith(u"x_"_s);
        });
        EXPECT_EQ(view.progressSteps, renamed);
        EXPECT_TRUE(renamed >= 24 - jobs && renamed < 40) << renamed;
    }
}
} // namespace
