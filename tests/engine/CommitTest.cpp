#include "CommitTestSupport.h"

#include <cerrno>
#include <utility>

namespace {

using Kind = RenameJournal::Kind;

// The steps that were made (a move refused because the name was taken is
// recorded too, as failed).
QList<RenameJournal::Step> made(const RenameJournal::Contents& c) {
    QList<RenameJournal::Step> out;
    for (const auto& s : c.steps)
        if (s.state == RenameJournal::State::Done) out.append(s);
    return out;
}

QList<Kind> kinds(const RenameJournal::Contents& c) {
    QList<Kind> out;
    for (const auto& s : made(c))
        out.append(s.kind);
    return out;
}

class CommitTest : public CommitFixture {};

TEST_F(CommitTest, RenamesEveryChangedFileAndRekeysTheItems) {
    const FileList f = batch({u"a.1.jpg"_s, u"a.2.jpg"_s, u"same.jpg"_s});
    propose(f[0], u"x_a.1.jpg"_s);
    propose(f[1], u"x_a.2.jpg"_s);
    propose(f[2], u"same.jpg"_s);

    EXPECT_TRUE(doc.copyFiles());
    EXPECT_EQ(tree.list(), (QStringList{u"same.jpg"_s, u"x_a.1.jpg"_s, u"x_a.2.jpg"_s}));
    EXPECT_EQ(tree.read(u"x_a.2.jpg"_s), "a.2.jpg");
    EXPECT_EQ(f[0]->fileName(), u"x_a.1.jpg"_s);
    EXPECT_EQ(doc.fileInQueue(tree(u"x_a.1.jpg"_s)), f[0]);
    EXPECT_EQ(doc.fileInQueue(tree(u"a.1.jpg"_s)), nullptr);
    EXPECT_TRUE(view.alerts.isEmpty());
    EXPECT_EQ(view.progressSteps, 3);
    EXPECT_TRUE(doc.lastFailedNames().isEmpty());

    const auto j = RenameJournal::read(doc.lastJournalPath());
    ASSERT_TRUE(j);
    EXPECT_TRUE(j->complete);
    ASSERT_EQ(j->steps.size(), 2); // nothing recorded for the unchanged name
    EXPECT_EQ(j->steps[1].from, tree(u"a.2.jpg"_s));
    EXPECT_EQ(j->steps[1].to, tree(u"x_a.2.jpg"_s));
    EXPECT_EQ(j->steps[1].state, RenameJournal::State::Done);
}

TEST_F(CommitTest, NothingToMoveWritesNoJournal) {
    const FileList f = batch({u"a.jpg"_s});
    EXPECT_TRUE(doc.copyFiles());
    EXPECT_TRUE(doc.lastJournalPath().isEmpty());
    EXPECT_TRUE(RenameJournal::list().isEmpty());
}

TEST_F(CommitTest, BlankNameFailsAndShowsTheSummaryOverTheProgressSheet) {
    const FileList f = batch({u"a.jpg"_s, u"b.jpg"_s});
    propose(f[0], QString());
    propose(f[1], u"c.jpg"_s);

    EXPECT_FALSE(doc.copyFiles());
    EXPECT_EQ(tree.list(), (QStringList{u"a.jpg"_s, u"c.jpg"_s}));
    EXPECT_EQ(doc.lastFailedNames(), QStringList{u"a.jpg"_s});
    EXPECT_TRUE(logMessages().contains(
        u"Unable to rename %1 - new filename is blank"_s.arg(tree(u"a.jpg"_s))));
    ASSERT_EQ(view.alerts.size(), 1);
    EXPECT_EQ(view.alerts[0].messageText, u"Some files could not be renamed"_s);
    EXPECT_EQ(view.alerts[0].informativeText, u"The following files were not renamed:\n\na.jpg"_s);
    EXPECT_EQ(view.alerts[0].parent, AlertRequest::Parent::ProgressSheet);
    EXPECT_EQ(view.progressSteps, 2); // a failed file still advances the bar
}

TEST_F(CommitTest, CaseOnlyChangeGoesThroughATemporaryNameInTheSameFolder) {
    const FileList f = batch({u"IMG.JPG"_s, u"ÉTÉ.JPG"_s}); // lowering beyond ASCII too
    propose(f[0], u"img.jpg"_s);
    propose(f[1], u"été.jpg"_s);

    EXPECT_TRUE(doc.copyFiles());
    EXPECT_EQ(tree.list(), (QStringList{u"img.jpg"_s, u"été.jpg"_s}));
    const auto j = RenameJournal::read(doc.lastJournalPath());
    ASSERT_TRUE(j);
    ASSERT_EQ(kinds(*j), (QList<Kind>{Kind::Temp, Kind::FromTemp, Kind::Temp, Kind::FromTemp}));
    const QString tmp = j->steps[0].to;
    EXPECT_EQ(QXFileItem::deletingLastPathComponent(tmp), tree.path());
    EXPECT_EQ(j->steps[0].finalPath, tree(u"img.jpg"_s));
    EXPECT_EQ(j->steps[1].from, tmp);
    EXPECT_TRUE(
        logMessages().contains(u"Creating temp file %1 for %2"_s.arg(tmp, tree(u"IMG.JPG"_s))));
}

TEST_F(CommitTest, CaseOnlyChangeOntoAnotherExistingFileFailsAndLeavesThatFileIntact) {
    const FileList f = batch({u"A.txt"_s});
    tree.file(u"a.txt"_s, "the other file");
    propose(f[0], u"a.txt"_s);

    EXPECT_FALSE(doc.copyFiles());
    EXPECT_EQ(tree.read(u"a.txt"_s), "the other file");
    EXPECT_EQ(doc.lastFailedNames(), QStringList{u"A.txt"_s});
    // The file stays under its temporary name, and the journal says where.
    const auto j = RenameJournal::read(doc.lastJournalPath());
    ASSERT_TRUE(j);
    const QString tmp = j->steps[0].to;
    EXPECT_EQ(readText(tmp), u"A.txt"_s);
    EXPECT_EQ(j->steps[1].state, RenameJournal::State::Failed);
    EXPECT_TRUE(logMessages().contains(u"Unable to move to %1. %2"_s.arg(tmp, tree(u"a.txt"_s))));
    // The commit ran to its end, and the file is still listed for recovery.
    EXPECT_TRUE(j->complete);
    const auto left = RenameJournal::interrupted();
    ASSERT_EQ(left.size(), 1);
    EXPECT_EQ(left[0].temporaryFiles, QStringList{u"%1 (was %2, to become %3)"_s.arg(
                                          tmp, tree(u"A.txt"_s), tree(u"a.txt"_s))});
}

TEST_F(CommitTest, SwappingTwoBatchFilesMovesTheSecondAsideFirst) {
    const FileList f = batch({u"a.txt"_s, u"b.txt"_s});
    propose(f[0], u"b.txt"_s);
    propose(f[1], u"a.txt"_s);

    EXPECT_TRUE(doc.copyFiles());
    EXPECT_EQ(tree.list(), (QStringList{u"a.txt"_s, u"b.txt"_s}));
    EXPECT_EQ(tree.read(u"b.txt"_s), "a.txt");
    EXPECT_EQ(tree.read(u"a.txt"_s), "b.txt");
    EXPECT_EQ(f[1]->fileName(), u"a.txt"_s);
    EXPECT_TRUE(logMessages().contains(
        u"Proposed file %1 exists, renaming old file..."_s.arg(tree(u"b.txt"_s))));
    EXPECT_TRUE(doc.lastCommitSummary().reachedEnd);
    EXPECT_EQ(doc.lastCommitSummary().movedAside, 1);
    const auto j = RenameJournal::read(doc.lastJournalPath());
    ASSERT_TRUE(j);
    ASSERT_EQ(kinds(*j), (QList<Kind>{Kind::Aside, Kind::Rename, Kind::Rename}));
    const QList<RenameJournal::Step> steps = made(*j);
    EXPECT_TRUE(QRegularExpression(QRegularExpression::anchoredPattern(tree.path() + u"/b_"_s +
                                                                       stamp() + u"\\.txt"_s))
                    .match(steps[0].to)
                    .hasMatch())
        << steps[0].to.toStdString();
    EXPECT_EQ(steps[2].from, steps[0].to);
}

// A file outside the batch at the target, by conflict action: where it ends up.
struct ConflictCase {
    int action;
    bool renamed;         // the batch file got its new name
    const char* leftover; // pattern of where the foreign file is, relative to the tree
};

class ConflictActionTest : public CommitFixture,
                           public ::testing::WithParamInterface<ConflictCase> {};

TEST_P(ConflictActionTest, ForeignFileAtTheTarget) {
    const ConflictCase c = GetParam();
    Preferences::setConflictActionOverride(c.action);
    const FileList f = batch({u"x.txt"_s});
    tree.file(u"y.txt"_s, "foreign");
    propose(f[0], u"y.txt"_s);

    EXPECT_EQ(doc.copyFiles(), c.renamed);
    EXPECT_EQ(tree.read(u"y.txt"_s), c.renamed ? "x.txt" : "foreign");
    if (c.leftover[0]) {
        const QString pattern = QString::fromUtf8(c.leftover).replace(u"STAMP"_s, stamp());
        const QString folder = QXFileItem::deletingLastPathComponent(pattern);
        const QString found = entryMatching(folder == u'/' ? QString() : folder,
                                            QXFileItem::lastPathComponent(pattern));
        ASSERT_FALSE(found.isEmpty()) << pattern.toStdString();
        EXPECT_EQ(tree.read(folder.isEmpty() ? found : folder + u'/' + found), "foreign");
    }
    if (c.action == 2) {
        EXPECT_EQ(tree.list(), QStringList{u"y.txt"_s});
    }
    if (!c.renamed) {
        EXPECT_EQ(doc.lastFailedNames(), QStringList{u"x.txt"_s});
        // An unknown action fails without a word in the log.
        for (const QString& m : logMessages())
            EXPECT_FALSE(m.contains(tree.path())) << m.toStdString();
    }
}

INSTANTIATE_TEST_SUITE_P(Actions, ConflictActionTest,
                         ::testing::Values(ConflictCase{0, true, "Conflicting files/y\\.txt"},
                                           ConflictCase{1, true, "y_STAMP\\.txt"},
                                           ConflictCase{2, true, ""}, ConflictCase{5, false, ""},
                                           ConflictCase{-1, false, ""}));

TEST_F(CommitTest, SecondCollisionInConflictingFilesGetsTheDatedName) {
    const FileList f = batch({u"x.txt"_s});
    tree.file(u"y.txt"_s, "foreign");
    tree.file(u"Conflicting files/y.txt"_s, "earlier");
    propose(f[0], u"y.txt"_s);
    ASSERT_TRUE(doc.copyFiles());
    EXPECT_EQ(tree.read(u"Conflicting files/y.txt"_s), "earlier");
    const QString dated = entryMatching(u"Conflicting files"_s, u"y_"_s + stamp() + u"\\.txt"_s);
    ASSERT_FALSE(dated.isEmpty());
    EXPECT_EQ(tree.read(u"Conflicting files/"_s + dated), "foreign");
}

TEST_F(CommitTest, ConflictActionComesFromTheUserDefaultsUnlessOverridden) {
    Preferences::setConflictActionOverride(2);
    EXPECT_EQ(Preferences::conflictAction(), 2);
    Preferences::setConflictActionOverride(std::nullopt);
    Preferences::setConflictAction(1);
    const FileList f = batch({u"x"_s});
    tree.file(u"y"_s, "foreign");
    propose(f[0], u"y"_s);
    ASSERT_TRUE(doc.copyFiles());
    // A name without extension gets no trailing dot.
    EXPECT_FALSE(entryMatching(QString(), u"y_"_s + stamp()).isEmpty())
        << tree.list().join(u',').toStdString();
}

TEST_F(CommitTest, RenamedFolderRepointsTheItemsInsideAndThePrefixSibling) {
    const FileList f =
        batch({u"shots/"_s, u"shots/a.jpg"_s, u"shots/sub/b.jpg"_s, u"shotsX/c.jpg"_s});
    propose(f[0], u"renders"_s);
    propose(f[1], u"A.jpg"_s);
    propose(f[3], u"C.jpg"_s);

    EXPECT_FALSE(doc.copyFiles()); // the sibling is sent into a folder that does not exist
    EXPECT_EQ(tree.list(u"renders"_s), (QStringList{u"A.jpg"_s, u"sub"_s}));
    EXPECT_EQ(f[1]->containerDir(), tree(u"renders"_s));
    EXPECT_EQ(f[2]->containerDir(), tree(u"renders/sub"_s));
    EXPECT_EQ(f[2]->previewObject()->containerDir(), tree(u"renders/sub"_s));
    EXPECT_EQ(doc.fileInQueue(tree(u"renders/sub/b.jpg"_s)), f[2]);
    EXPECT_EQ(f[3]->containerDir(), tree(u"renders/X"_s));
    EXPECT_EQ(doc.lastFailedNames(), QStringList{u"c.jpg"_s});
    EXPECT_TRUE(tree.exists(u"shotsX/c.jpg"_s));
}

// Moves that fail on disk: each is logged with its text and the file stays.
TEST_F(CommitTest, MissingFolderFileStandingForAFolderAndTooLongANameFail) {
    const FileList f = batch({u"gone/a.txt"_s, u"b.txt"_s, u"c"_s});
    QDir(tree(u"gone"_s)).removeRecursively();
    const FileItemPtr fake = QXFileItem::fileItemWithFile(tree(u"b.txt/inner.txt"_s));
    doc.setFileArray({f[0], fake, f[2]});
    propose(f[0], u"z.txt"_s);
    propose(fake, u"w.txt"_s);
    const QString longName(300, u'n');
    propose(f[2], longName);

    EXPECT_FALSE(doc.copyFiles());
    // Three folders: lanes that fail at once, in any order.
    QStringList failed = doc.lastFailedNames();
    failed.sort();
    EXPECT_EQ(failed, (QStringList{u"a.txt"_s, u"c"_s, u"inner.txt"_s}));
    const QStringList log = logMessages();
    const QString line = u"Unable to rename file %1 to %2. %3"_s;
    EXPECT_TRUE(log.contains(
        line.arg(tree(u"gone/a.txt"_s), tree(u"gone/z.txt"_s), u"No such file or directory"_s)));
    EXPECT_TRUE(log.contains(
        line.arg(tree(u"b.txt/inner.txt"_s), tree(u"b.txt/w.txt"_s), u"Not a directory"_s)));
    EXPECT_TRUE(log.contains(line.arg(tree(u"c"_s), tree(longName), u"File name too long"_s)));
    EXPECT_EQ(tree.read(u"b.txt"_s), "b.txt");
    EXPECT_TRUE(tree.exists(u"c"_s));
}

// Faults injected into one operation, and the log line each one gives.
struct FaultCase {
    const char* name;
    int action;
    FileMover::Op op;
    const char* original; // the batch file; "y.txt" also exists outside the batch unless case-only
    const char* proposed;
    const char* message; // %1 the tree; the error is EIO
};

class CommitFaultTest : public CommitFixture, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(CommitFaultTest, FailingOperationIsLoggedAndTheFileKept) {
    const FaultCase c = GetParam();
    Preferences::setConflictActionOverride(c.action);
    const FileList f = batch({QString::fromUtf8(c.original)});
    const bool caseOnly = QString::fromUtf8(c.original).toLower() == QString::fromUtf8(c.proposed);
    if (!caseOnly) tree.file(u"y.txt"_s, "foreign");
    propose(f[0], QString::fromUtf8(c.proposed));
    FileMover::setFaultHook([&](const FileMover::FaultPoint& p) {
        return p.phase == FileMover::Phase::Before && p.op == c.op ? EIO : 0;
    });

    EXPECT_FALSE(doc.copyFiles());
    EXPECT_EQ(tree.read(QString::fromUtf8(c.original)), c.original);
    if (!caseOnly) {
        EXPECT_EQ(tree.read(u"y.txt"_s), "foreign");
    }
    const QString expected =
        QString::fromUtf8(c.message).replace(u"TREE"_s, tree.path()).replace(u"STAMP"_s, stamp());
    const QRegularExpression re(QRegularExpression::anchoredPattern(expected));
    bool found = false;
    for (const QString& m : logMessages())
        found = found || re.match(m).hasMatch();
    EXPECT_TRUE(found) << expected.toStdString() << "\n" << logMessages().join(u'\n').toStdString();
}

INSTANTIATE_TEST_SUITE_P(
    Faults, CommitFaultTest,
    ::testing::Values(
        FaultCase{"rename", 0, FileMover::Op::Move, "x.txt", "z.txt",
                  "Unable to rename file TREE/x\\.txt to TREE/z\\.txt\\. Input/output error"},
        FaultCase{"temp", 0, FileMover::Op::Move, "X.TXT", "x.txt",
                  "Unable to assign temporary name to old file TREE/X\\.TXT\\. Input/output error"},
        FaultCase{"dated", 1, FileMover::Op::Move, "x.txt", "y.txt",
                  "Unable to rename file TREE/y\\.txt to TREE/y_STAMP\\.txt\\. Input/output error"},
        FaultCase{"trash", 2, FileMover::Op::Trash, "x.txt", "y.txt",
                  "Unable to trash file TREE/y\\.txt"},
        FaultCase{"mkdir", 0, FileMover::Op::MakeDirectory, "x.txt", "y.txt",
                  "Unable to create directory TREE/Conflicting files\\. Input/output error"},
        FaultCase{"conflict", 0, FileMover::Op::Move, "x.txt", "y.txt",
                  "Unable to move file TREE/y\\.txt to TREE/Conflicting files/y\\.txt\\. "
                  "Input/output error"}),
    [](const ::testing::TestParamInfo<FaultCase>& i) { return std::string(i.param.name); });

TEST_F(CommitTest, FailedMoveAsideKeepsTheDatedNameOnTheItemInTheWay) {
    const FileList f = batch({u"a.txt"_s, u"b.txt"_s});
    propose(f[0], u"b.txt"_s);
    propose(f[1], u"c.txt"_s);
    FileMover::setFaultHook([this](const FileMover::FaultPoint& p) {
        return p.phase == FileMover::Phase::Before && p.from == tree(u"b.txt"_s) ? EIO : 0;
    });
    EXPECT_FALSE(doc.copyFiles());
    EXPECT_TRUE(logMessages().contains(
        u"Unable to assign temporary name to old file %1. Input/output error"_s.arg(
            tree(u"b.txt"_s))));
    EXPECT_TRUE(f[1]->fileName().startsWith(u"b_"_s));
    // Its own turn then fails: its file never left b.txt, and the report says so.
    EXPECT_EQ(doc.lastFailedNames(), (QStringList{u"a.txt"_s, f[1]->fileName()}));
    EXPECT_EQ(tree.list(), (QStringList{u"a.txt"_s, u"b.txt"_s}));
    const MyDocument::CommitSummary summary = doc.lastCommitSummary();
    ASSERT_EQ(summary.asides.size(), 1);
    EXPECT_EQ(summary.asides[0].error, u"Input/output error"_s);
    EXPECT_EQ(summary.asides[0].wanted, u"c.txt"_s);
    EXPECT_EQ(summary.failureLines[1],
              f[1]->fileName() + u" (still b.txt: it could not be moved aside)"_s);
}

// Something that appears at the new name just before the move is never
// replaced, not even an empty folder (which rename(2) would take the place
// of): the rules for an existing target deal with it.
TEST_F(CommitTest, TargetAppearingJustBeforeTheMoveIsNeverReplaced) {
    const FileList f = batch({u"dir/"_s, u"file"_s});
    propose(f[0], u"newdir"_s);
    propose(f[1], u"newfile"_s);
    bool dirMade = false, fileMade = false;
    FileMover::setFaultHook([&](const FileMover::FaultPoint& p) {
        if (p.phase == FileMover::Phase::Before && p.op == FileMover::Op::Move) {
            if (p.from == tree(u"dir"_s) && !std::exchange(dirMade, true))
                tree.file(u"newdir/inside"_s, "in");
            if (p.from == tree(u"file"_s) && !std::exchange(fileMade, true))
                tree.file(u"newfile"_s, "keep");
        }
        return 0;
    });
    EXPECT_TRUE(doc.copyFiles());
    EXPECT_EQ(tree.read(u"Conflicting files/newfile"_s), "keep");
    EXPECT_EQ(tree.read(u"Conflicting files/newdir/inside"_s), "in");
    EXPECT_EQ(tree.read(u"newfile"_s), "file");
    EXPECT_EQ(tree.list(u"newdir"_s), QStringList());
}

TEST_F(CommitTest, CancellingStopsBeforeTheNextFile) {
    const FileList f = batch({u"1"_s, u"2"_s, u"3"_s});
    for (const auto& i : f)
        propose(i, u"n"_s + i->fileName());
    // Cancel while the second file moves: the third is never touched, and
    // the progress counts exactly the files that were dealt with.
    FileMover::setFaultHook([&](const FileMover::FaultPoint& p) {
        if (p.phase == FileMover::Phase::After && p.from == tree(u"2"_s)) doc.cancelProgress();
        return 0;
    });
    EXPECT_TRUE(doc.copyFiles());
    EXPECT_EQ(tree.list(), (QStringList{u"3"_s, u"n1"_s, u"n2"_s}));
    EXPECT_EQ(view.progressSteps, 2);
    EXPECT_FALSE(doc.lastCommitSummary().reachedEnd);
    EXPECT_TRUE(doc.lastFailedNames().isEmpty());
    EXPECT_TRUE(RenameJournal::read(doc.lastJournalPath())->complete);
}

// startProcessing: the task in commit mode, the progress sheet and the report.
class StartProcessingTest : public CommitFixture {
protected:
    // Records whether the progress sheet was up when each alert came.
    struct SheetView : RecordingView {
        int alert(const AlertRequest& r) override {
            sheetUp.append(progressEvents.size() == 1);
            return RecordingView::alert(r);
        }
        QList<bool> sheetUp;
    };
    void SetUp() override {
        CommitFixture::SetUp();
        doc.setView(&sheetView);
    }
    SheetView sheetView;
};

TEST_F(StartProcessingTest, RenameCompleteReportsTheAnnouncedCount) {
    batch({u"A.jpg"_s, u"B.jpg"_s, u"c.jpg"_s});
    doc.setSelectedTag(21); // lowercase
    doc.startProcessing(7);
    EXPECT_EQ(tree.list(), (QStringList{u"a.jpg"_s, u"b.jpg"_s, u"c.jpg"_s}));
    EXPECT_EQ(sheetView.progressEvents, (QStringList{u"start:3"_s, u"end"_s}));
    EXPECT_EQ(sheetView.progressSteps, 3);
    EXPECT_GE(sheetView.reloadsWaited.load(), 1);
    EXPECT_EQ(sheetView.attentionRequests.load(), 1);
    ASSERT_EQ(sheetView.alerts.size(), 1);
    EXPECT_EQ(sheetView.alerts[0].messageText, u"Rename complete"_s);
    EXPECT_EQ(sheetView.alerts[0].informativeText, u"7 files renamed."_s);
    EXPECT_EQ(sheetView.sheetUp, QList<bool>{false});
}

TEST_F(StartProcessingTest, CountZeroMeansEveryItemAndATagWithoutTaskShowsNoCompletion) {
    batch({u"A"_s});
    doc.setSelectedTag(21);
    doc.startProcessing(0);
    ASSERT_EQ(sheetView.alerts.size(), 1);
    EXPECT_EQ(sheetView.alerts[0].informativeText, u"1 file renamed."_s); // singular
    doc.setSelectedTag(8);
    doc.startProcessing(1);
    EXPECT_EQ(sheetView.alerts.size(), 1);
    EXPECT_EQ(sheetView.progressEvents.mid(2), (QStringList{u"start:1"_s, u"end"_s}));
}

TEST_F(StartProcessingTest, FailureSummaryComesOverTheSheetAndNoCompletion) {
    batch({u"A"_s, u"B"_s});
    tree.file(u"b"_s, "foreign"); // the case-only change of B cannot land
    doc.setSelectedTag(21);
    doc.startProcessing(2);
    ASSERT_EQ(sheetView.alerts.size(), 1);
    // The line says where the file is now: under its temporary name.
    const QString tmp = RenameJournal::read(doc.lastJournalPath())->steps[2].to;
    EXPECT_EQ(
        sheetView.alerts[0].informativeText,
        u"The following files were not renamed:\n\nB (left under the temporary name %1)"_s.arg(
            tmp));
    EXPECT_EQ(readText(tmp), u"B"_s);
    EXPECT_EQ(sheetView.sheetUp, QList<bool>{true});
}

TEST_F(StartProcessingTest, CancelledRunStillReportsTheFullCount) {
    batch({u"A"_s, u"B"_s, u"C"_s});
    doc.setSelectedTag(21);
    FileMover::setFaultHook([&](const FileMover::FaultPoint& p) {
        if (p.phase == FileMover::Phase::After) doc.cancelProgress();
        return 0;
    });
    doc.startProcessing(3);
    EXPECT_EQ(tree.list(), (QStringList{u"B"_s, u"C"_s, u"a"_s}));
    ASSERT_EQ(sheetView.alerts.size(), 1);
    EXPECT_EQ(sheetView.alerts[0].informativeText, u"3 files renamed."_s);
}

// A large batch: the commit's per-item edits run on two threads, and each
// file still gets its own new name. A throw in either half stops the commit
// before anything moves.
TEST_F(StartProcessingTest, LargeBatchEditsOnTwoThreads) {
    QStringList names;
    for (int i = 0; i < 4100; ++i) // past the size that takes a second thread
        names.append(u"F%1.JPG"_s.arg(i, 4, 10, QChar(u'0')));
    const FileList f = batch(names);
    for (const QString& last : {u"F1000.JPG"_s, u"F4099.JPG"_s}) {
        std::atomic<int> edits{0};
        EXPECT_FALSE(doc.runTaskContract(
            "-[Test edit]", {}, f,
            [&](QXFileItem& t) {
                ++edits;
                if (t.fileName() == last) throw std::runtime_error("edit refused");
            },
            false, MyDocument::EditScope::Item));
        EXPECT_LE(edits.load(), 4100);
        EXPECT_EQ(tree.list(), names);
    }
    EXPECT_TRUE(logMessages().join(u'\n').contains(u"edit refused"_s));

    doc.setSelectedTag(21); // lowercase
    doc.startProcessing(0);
    for (qsizetype i = 0; i < f.size(); ++i)
        ASSERT_EQ(f[i]->fileName(), u'f' + names[i].mid(1)); // the extension keeps its case
    EXPECT_EQ(tree.list().size(), 4100);
    EXPECT_TRUE(tree.exists(u"f4099.JPG"_s));
    EXPECT_EQ(sheetView.alerts.last().informativeText, u"4100 files renamed."_s);
}

// With the previews vouched for, a commit renames to what they show, and to
// exactly what running the task again would give; otherwise it runs the task.
TEST_F(StartProcessingTest, CommitFromCurrentPreviewsRenamesAsTheTaskWould) {
    struct Case {
        int tag;
        QList<std::pair<QString, QString>> settings;
        QStringList names;
    };
    const Case cases[] = {
        {21, {}, {u"SHOT.0001.EXR"_s, u"Mixed Case.Jpg"_s}},
        {5, {{u"padLength"_s, u"6"_s}}, {u"a.1.exr"_s, u"a.0012.exr"_s, u"b_7"_s}},
        {3, {{u"offset"_s, u"-1"_s}}, {u"a.0001.exr"_s, u"a.0010.exr"_s}},
        {12, {{u"prefix"_s, u"x_"_s}}, {u"a.jpg"_s, u"b"_s}},
        {25, {{u"position"_s, u"2"_s}, {u"text"_s, u"--"_s}}, {u"abc.jpg"_s, u"d.jpg"_s}},
        {10, {{u"fileExt"_s, u"tif"_s}}, {u"a.jpg"_s, u"b"_s}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.tag);
        QStringList outcome[2];
        for (const bool fromPreviews : {false, true}) {
            const QString folder = u"%1-%2/"_s.arg(c.tag).arg(fromPreviews);
            QStringList paths;
            for (const QString& n : c.names)
                paths.append(folder + n);
            batch(paths);
            doc.setSelectedTag(c.tag);
            for (const auto& [key, value] : c.settings)
                doc.setFieldText(MyDocument::settingField(c.tag, key).outlet, value);
            doc.generatePreviewsOnThread();
            doc.setCommitFromPreviews(fromPreviews);
            doc.startProcessing(0);
            outcome[fromPreviews] = tree.list(folder);
        }
        EXPECT_NE(outcome[0], c.names);
        EXPECT_EQ(outcome[1], outcome[0]);
    }

    // The names come from the previews: one made to show another name is
    // committed as shown. Previews of another task are not taken.
    doc.setCommitFromPreviews(true);
    const FileList f = batch({u"shown/A.JPG"_s, u"shown/B.JPG"_s});
    doc.setSelectedTag(21);
    doc.generatePreviewsOnThread();
    f[1]->previewObject()->setComponents({NameComponent::filename(u"as shown.jpg"_s)});
    doc.startProcessing(0);
    EXPECT_EQ(tree.list(u"shown"_s), (QStringList{u"a.JPG"_s, u"as shown.jpg"_s}));
    // The commit left the previews stale: the next one runs the task again.
    f[0]->previewObject()->setComponents({NameComponent::filename(u"stale.jpg"_s)});
    doc.startProcessing(0);
    EXPECT_EQ(tree.list(u"shown"_s), (QStringList{u"a.JPG"_s, u"as shown.jpg"_s}));

    batch({u"other/Ab.jpg"_s});
    doc.generatePreviewsOnThread(); // lowercase: "ab.jpg"
    doc.setSelectedTag(20);         // uppercase, never previewed
    doc.startProcessing(0);
    EXPECT_EQ(tree.list(u"other"_s), QStringList{u"AB.jpg"_s});
}

} // namespace
