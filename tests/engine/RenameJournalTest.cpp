#include "CommitTestSupport.h"

#include <QStandardPaths>

namespace {

class RenameJournalTest : public CommitFixture {
protected:
    // Commits proposals for files of the tree; returns the journal.
    QString commit(const QList<QPair<QString, QString>>& renames) {
        renaming(renames);
        doc.copyFiles();
        return doc.lastJournalPath();
    }
};

TEST_F(RenameJournalTest, FolderNameAndATornLastRecord) {
    const QString path = commit({{u"a"_s, u"b"_s}});
    EXPECT_EQ(QXFileItem::deletingLastPathComponent(path), QXLog::logFolder() + u"/Journals"_s);
    // A record cut short by a crash is ignored.
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::Append));
    f.write("move\t9\trename\t/x");
    f.close();
    const auto j = RenameJournal::read(path);
    ASSERT_TRUE(j);
    EXPECT_EQ(j->steps.size(), 1);
    EXPECT_FALSE(RenameJournal::read(tree.file(u"not-a-journal"_s, "hello\n")));
}

TEST_F(RenameJournalTest, UndoRestoresSwapsCaseChangesAndOddNames) {
    const QString odd = u"tab\t%41\rhere"_s;
    const QString path = commit({{u"a.txt"_s, u"b.txt"_s},
                                 {u"b.txt"_s, u"a.txt"_s},
                                 {u"IMG.JPG"_s, u"img.jpg"_s},
                                 {odd, u"line\nbreak"_s}});
    ASSERT_TRUE(doc.lastFailedNames().isEmpty());
    QString error;
    const auto report = RenameJournal::undo(path, &error);
    EXPECT_TRUE(error.isEmpty());
    EXPECT_TRUE(report.refused.isEmpty()) << report.refused.join(u'\n').toStdString();
    EXPECT_EQ(report.undone, 6); // aside, 2 renames, temp, untemp, the odd one
    EXPECT_EQ(tree.list(), (QStringList{u"IMG.JPG"_s, u"a.txt"_s, u"b.txt"_s, odd}));
    EXPECT_EQ(tree.read(u"a.txt"_s), "a.txt");
    EXPECT_EQ(tree.read(odd), odd.toUtf8());
    // The undo is itself a journal, and the original is marked.
    EXPECT_EQ(RenameJournal::read(path)->undoneBy, report.undoJournal);
    EXPECT_TRUE(RenameJournal::read(report.undoJournal)->complete);
    RenameJournal::undo(path, &error);
    EXPECT_TRUE(error.contains(u"already undone"_s)) << error.toStdString();
}

// Moves are announced in runs; when one fails, those after it in its run are
// marked as not attempted before they are announced again and made.
TEST_F(RenameJournalTest, EveryAnnouncedMoveIsMarkedWhenTheCommitEnds) {
    FileMover::setFaultHook([this](const FileMover::FaultPoint& p) {
        return p.phase == FileMover::Phase::Before && p.from == tree(u"b"_s) ? EIO : 0;
    });
    const QString path = commit({{u"a"_s, u"xa"_s}, {u"b"_s, u"xb"_s}, {u"c"_s, u"xc"_s}});
    FileMover::setFaultHook({});
    const auto j = RenameJournal::read(path);
    ASSERT_TRUE(j && j->complete);
    QStringList marks;
    for (const auto& s : j->steps) {
        const QString name = QXFileItem::lastPathComponent(s.from);
        if (s.state == RenameJournal::State::Done) marks.append(name + u" done"_s);
        if (s.state == RenameJournal::State::Failed) marks.append(name + u' ' + s.error);
        if (s.state == RenameJournal::State::Pending) marks.append(name + u" unmarked"_s);
    }
    EXPECT_EQ(marks, (QStringList{u"a done"_s, u"b Input/output error"_s, u"c not attempted"_s,
                                  u"c done"_s}));
    QString error;
    EXPECT_TRUE(RenameJournal::undo(path, &error).refused.isEmpty());
    EXPECT_EQ(tree.list(), (QStringList{u"a"_s, u"b"_s, u"c"_s}));
}

TEST_F(RenameJournalTest, UndoRefusesStepsWhoseFileMovedAndGoesOn) {
    const QString path = commit({{u"a"_s, u"A2"_s}, {u"b"_s, u"B2"_s}, {u"c"_s, u"C2"_s}});
    ASSERT_TRUE(QFile::rename(tree(u"B2"_s), tree(u"elsewhere"_s)));
    tree.file(u"c"_s, "new c");
    QString error;
    const auto report = RenameJournal::undo(path, &error);
    EXPECT_EQ(report.undone, 1);
    ASSERT_EQ(report.refused.size(), 2);
    EXPECT_EQ(report.refused[0], u"Not undone: %1 cannot go back to %2, which is taken"_s.arg(
                                     tree(u"C2"_s), tree(u"c"_s)));
    EXPECT_EQ(report.refused[1],
              u"Not undone: %1 is no longer at %2"_s.arg(tree(u"b"_s), tree(u"B2"_s)));
    EXPECT_EQ(tree.list(), (QStringList{u"C2"_s, u"a"_s, u"c"_s, u"elsewhere"_s}));
    EXPECT_EQ(tree.read(u"c"_s), "new c");
    EXPECT_TRUE(RenameJournal::read(path)->undoneBy.isEmpty()); // still to be dealt with
}

TEST_F(RenameJournalTest, UndoBringsBackFromTheTrashAndRemovesTheFolderItMade) {
    tree.file(u"y"_s, "foreign");
    tree.file(u"w"_s, "foreign w");
    Preferences::setConflictActionOverride(2);
    const QString trashed = commit({{u"x"_s, u"y"_s}});
    Preferences::setConflictActionOverride(0);
    const QString moved = commit({{u"v"_s, u"w"_s}});
    ASSERT_TRUE(tree.exists(u"Conflicting files/w"_s));
    QString error;
    EXPECT_TRUE(RenameJournal::undo(moved, &error).refused.isEmpty());
    EXPECT_FALSE(tree.exists(u"Conflicting files"_s));
    const auto j = RenameJournal::read(trashed);
    QString where;
    for (const auto& step : j->steps)
        if (step.kind == RenameJournal::Kind::Trash) where = step.where;
    const QString info =
        QXFileItem::deletingLastPathComponent(QXFileItem::deletingLastPathComponent(where)) +
        u"/info/"_s + QXFileItem::lastPathComponent(where) + u".trashinfo"_s;
    EXPECT_TRUE(QFile::exists(info));
    EXPECT_TRUE(RenameJournal::undo(trashed, &error).refused.isEmpty());
    EXPECT_EQ(tree.read(u"y"_s), "foreign");
    EXPECT_EQ(tree.read(u"x"_s), "x");
    EXPECT_EQ(tree.read(u"w"_s), "foreign w");
    EXPECT_FALSE(QFile::exists(info));
}

// A commit cut short: the journal has no "complete", one file is under its
// temporary name, and one move was recorded but never marked.
TEST_F(RenameJournalTest, InterruptedCommitIsListedAndCanBeUndone) {
    renaming({{u"A"_s, u"a"_s}, {u"B"_s, u"b"_s}, {u"C"_s, u"c"_s}});
    const QString tmpA = tree(u"TMPA"_s), tmpB = tree(u"TMPB"_s);
    QString path, error;
    {
        RenameJournal j;
        ASSERT_TRUE(j.create(nullptr));
        path = j.path();
        // What copyFiles would have written for A, then for B up to the kill.
        j.done(j.begin(RenameJournal::Kind::Temp, tree(u"A"_s), tmpA, tree(u"a"_s)));
        j.done(j.begin(RenameJournal::Kind::FromTemp, tmpA, tree(u"a"_s)));
        j.done(j.begin(RenameJournal::Kind::Temp, tree(u"B"_s), tmpB, tree(u"b"_s)));
        j.begin(RenameJournal::Kind::FromTemp, tmpB, tree(u"b"_s));
        ASSERT_TRUE(QFile::rename(tree(u"A"_s), tree(u"a"_s)));
        ASSERT_TRUE(QFile::rename(tree(u"B"_s), tmpB));
        // While its run goes on, the journal is nobody else's to recover or undo.
        EXPECT_TRUE(RenameJournal::interrupted().isEmpty());
        EXPECT_TRUE(RenameJournal::undo(path, &error).undoJournal.isEmpty());
        EXPECT_TRUE(error.contains(u"still running"_s)) << error.toStdString();
        EXPECT_TRUE(tree.exists(u"a"_s));
    } // the writer ends without "complete", as a killed one does

    const auto list = RenameJournal::interrupted();
    ASSERT_EQ(list.size(), 1);
    EXPECT_EQ(list[0].contents.path, path);
    EXPECT_EQ(list[0].done, 3);
    EXPECT_EQ(list[0].pending, 1);
    EXPECT_EQ(list[0].temporaryFiles,
              QStringList{u"%1 (was %2, to become %3)"_s.arg(tmpB, tree(u"B"_s), tree(u"b"_s))});
    EXPECT_EQ(list[0].inProgress, QStringList{u"%1 -> %2 (not made)"_s.arg(tmpB, tree(u"b"_s))});

    error.clear();
    const auto report = RenameJournal::undo(path, &error);
    EXPECT_TRUE(report.refused.isEmpty()) << report.refused.join(u'\n').toStdString();
    EXPECT_EQ(tree.list(), (QStringList{u"A"_s, u"B"_s, u"C"_s}));
    EXPECT_TRUE(RenameJournal::interrupted().isEmpty()); // undone: no longer listed
}

} // namespace
