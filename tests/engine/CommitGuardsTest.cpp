// What a commit refuses to do: move without a journal, push a target aside
// for a file that is gone, or rename to something that is not a file name.
#include "CommitTestSupport.h"

#include <QSet>

#include <sys/mount.h>

namespace {

// A tmpfs of its own over the journal folder, unmounted at the end.
struct JournalMount {
    const QByteArray path = QFile::encodeName(RenameJournal::folder());
    bool mounted = false;
    ~JournalMount() {
        if (mounted) ::umount2(path.constData(), MNT_DETACH);
    }
    bool mount(const char* options) {
        QDir().mkpath(RenameJournal::folder());
        return mounted = ::mount("tmpfs", path.constData(), "tmpfs", 0, options) == 0;
    }
};

class CommitGuardsTest : public CommitFixture {
protected:
    void TearDown() override {
        QFile::remove(RenameJournal::folder()); // the file standing in its place
        CommitFixture::TearDown();
    }
};

// A file where the journal folder must be.
TEST_F(CommitGuardsTest, JournalThatCannotBeCreatedStopsTheCommitBeforeAnyMove) {
    QDir(RenameJournal::folder()).removeRecursively();
    ASSERT_TRUE(QFile(RenameJournal::folder()).open(QIODevice::WriteOnly));
    renaming({{u"a.txt"_s, u"x.txt"_s}, {u"B.txt"_s, u"b.txt"_s}});

    EXPECT_FALSE(doc.copyFiles());
    EXPECT_EQ(tree.list(), (QStringList{u"B.txt"_s, u"a.txt"_s}));
    EXPECT_TRUE(
        doc.lastCommitSummary().journalError.startsWith(u"Unable to create rename journal in "_s));
    EXPECT_TRUE(doc.lastJournalPath().isEmpty());
    ASSERT_EQ(view.alerts.size(), 1);
    EXPECT_EQ(view.alerts[0].messageText, u"The rename journal could not be created"_s);
    EXPECT_TRUE(view.alerts[0].informativeText.contains(u"Nothing was renamed"_s));
}

TEST_F(CommitGuardsTest, FullDiskStopsBeforeTheNextMoveAndLeavesAJournalToUndo) {
    JournalMount mount;
    if (!mount.mount("size=16k")) GTEST_SKIP() << "mounting refused";
    QStringList names;
    for (int i = 0; i < 600; ++i)
        names.append(u"file-with-a-longer-name-%1.txt"_s.arg(i, 4, 10, QChar(u'0')));
    const FileList f = batch(names);
    for (const FileItemPtr& item : f)
        propose(item, u"renamed-"_s + item->fileName());

    EXPECT_FALSE(doc.copyFiles());
    const MyDocument::CommitSummary summary = doc.lastCommitSummary();
    EXPECT_TRUE(summary.journalError.contains(u"No space left on device"_s));
    const auto j = RenameJournal::read(doc.lastJournalPath());
    ASSERT_TRUE(j);
    EXPECT_FALSE(j->complete);
    // Every file renamed is in the journal, and the run stopped part way.
    QSet<QString> recorded;
    for (const RenameJournal::Step& s : j->steps)
        recorded.insert(s.from);
    int renamed = 0;
    for (const QString& n : names) {
        const bool moved = tree.exists(u"renamed-"_s + n);
        renamed += moved;
        EXPECT_TRUE(moved ? recorded.contains(tree(n)) : tree.exists(n)) << n.toStdString();
    }
    EXPECT_GT(renamed, 0);
    EXPECT_LT(renamed, names.size());
    EXPECT_EQ(renamed, summary.renamed);
    ASSERT_EQ(RenameJournal::interrupted().size(), 1);

    // The undo keeps to the same rule, and once there is room it restores all.
    const QStringList partly = tree.list();
    QString error;
    EXPECT_FALSE(RenameJournal::undo(j->path, &error).journalError.isEmpty());
    EXPECT_EQ(tree.list(), partly);
    ASSERT_EQ(::mount("tmpfs", mount.path.constData(), "tmpfs", MS_REMOUNT, "size=4m"), 0);
    const RenameJournal::UndoReport report = RenameJournal::undo(j->path, &error);
    EXPECT_TRUE(report.refused.isEmpty()) << report.refused.join(u'\n').toStdString();
    EXPECT_EQ(tree.list(), names);
    EXPECT_EQ(RenameJournal::read(j->path)->undoneBy, report.undoJournal); // past a torn record
}

// The file was renamed by an earlier run: its new name is the file itself.
TEST_F(CommitGuardsTest, GoneSourcePushesNothingAside) {
    for (const int action : {0, 1, 2}) {
        SCOPED_TRACE(action);
        Preferences::setConflictActionOverride(action);
        const QString dir = QString::number(action);
        renaming({{dir + u"/a.txt"_s, u"P_a.txt"_s}});
        ASSERT_TRUE(QFile::rename(tree(dir + u"/a.txt"_s), tree(dir + u"/P_a.txt"_s)));

        EXPECT_FALSE(doc.copyFiles());
        EXPECT_EQ(tree.list(dir), QStringList{u"P_a.txt"_s});
        EXPECT_TRUE(logMessages().contains(
            u"Unable to rename file %1 to %2. No such file or directory"_s.arg(
                tree(dir + u"/a.txt"_s), tree(dir + u"/P_a.txt"_s))));
    }
}

TEST_F(CommitGuardsTest, NameThatIsNoFileNameFailsAndNothingMoves) {
    const QString names[] = {u"./a.txt"_s, u"../a.txt"_s,  u"."_s,
                             u".."_s,      u"sub/a.txt"_s, u"a\0b"_s};
    for (qsizetype i = 0; i < qsizetype(std::size(names)); ++i) {
        SCOPED_TRACE(names[i].toStdString());
        const QString dir = u"case%1"_s.arg(i);
        renaming({{dir + u"/x"_s, names[i]}});
        tree.dir(dir + u"/sub"_s);
        EXPECT_FALSE(doc.copyFiles());
        EXPECT_EQ(tree.list(dir), (QStringList{u"sub"_s, u"x"_s}));
        EXPECT_EQ(tree.list(dir + u"/sub"_s), QStringList());
        EXPECT_FALSE(tree.exists(u"a.txt"_s));
        EXPECT_EQ(doc.lastFailedNames(), QStringList{u"x"_s});
        EXPECT_TRUE(logMessages().join(u'\n').contains(
            u"Unable to rename %1 - new filename \"%2\" is not a file name: "_s.arg(
                tree(dir + u"/x"_s), names[i])));
    }

    // The preview shows it the way it shows a conflict, and says why.
    batch({u"b.txt"_s});
    doc.setSelectedTag(12);
    doc.setFieldText(MyDocument::settingField(12, u"prefix"_s).outlet, u"../"_s);
    doc.generatePreviewsOnThread();
    EXPECT_TRUE(doc.rowIsConflicting(0));
    EXPECT_EQ(doc.toolTip(0), u"The proposed filename is not a file name: it contains \"/\"."_s);
}

} // namespace
