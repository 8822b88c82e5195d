// seqmate-cli --apply, --undo and --recover, run as a child process on real
// folders, with a private home so that its journals are its own.
#include "CliResult.h"
#include "TempTree.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QProcess>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QThread>
#include <gtest/gtest.h>

#include <csignal>

using namespace Qt::Literals::StringLiterals;

namespace {

class CommitCli : public ::testing::Test {
protected:
    void SetUp() override { tree.dir(u"files"_s); }

    QProcessEnvironment env(const QStringList& extra = {}) const {
        QProcessEnvironment e = QProcessEnvironment::systemEnvironment();
        e.insert(u"HOME"_s, tree(u"home"_s));
        e.insert(u"XDG_DATA_HOME"_s, tree(u"home/.local/share"_s));
        e.insert(u"XDG_CONFIG_HOME"_s, tree(u"home/.config"_s));
        for (const QString& kv : extra)
            e.insert(kv.section(u'=', 0, 0), kv.section(u'=', 1));
        return e;
    }
    void start(QProcess& p, const QStringList& args, const QStringList& extraEnv = {}) const {
        p.setProcessEnvironment(env(extraEnv));
        p.start(QStringLiteral(SEQMATE_CLI_PATH), args);
        p.closeWriteChannel();
        ASSERT_TRUE(p.waitForStarted());
    }
    CliResult run(const QStringList& args, const QStringList& extraEnv = {}) const {
        QProcess p;
        start(p, args, extraEnv);
        return waitForCli(p, 120000);
    }
    QStringList makeFiles(const QString& pattern, int count) const {
        QStringList paths;
        for (int i = 1; i <= count; ++i)
            paths.append(tree.file(u"files/"_s + pattern.arg(i, 4, 10, QLatin1Char('0')),
                                   QByteArray::number(i)));
        return paths;
    }
    QString journalFolder() const { return tree(u"home/.local/share/Logs/Corvane/Journals"_s); }
    // The journal the child is writing (empty until it exists).
    QString currentJournal() const {
        const QStringList j = QDir(journalFolder()).entryList({u"*.journal"_s}, QDir::Files);
        return j.isEmpty() ? QString() : journalFolder() + u'/' + j.first();
    }
    // Polls until done() says so (a minute at most).
    template <class F> static bool waitUntil(F done) {
        QElapsedTimer t;
        t.start();
        for (; t.elapsed() < 60000; QThread::msleep(50))
            if (done()) return true;
        return false;
    }
    // A file of the IMG_ set under another (a temporary) name; empty: none.
    QString temporaryName() const {
        for (const QString& n : tree.list(u"files"_s))
            if (!n.startsWith(u"IMG_"_s, Qt::CaseInsensitive)) return n;
        return QString();
    }
    // Waits until a temporary name stays: each lasts only an instant unless
    // the commit stopped between its two moves.
    bool waitForLastingTemporaryName() const {
        QString previous;
        return waitUntil([&] {
            const QString now = temporaryName();
            return !now.isEmpty() && std::exchange(previous, now) == now;
        });
    }

    // Prefixes every file of the folder with "x_".
    QStringList prefixAll() const {
        return words(QStringLiteral("-t prefix -s prefix=x_ --apply -y")) << tree(u"files"_s);
    }

    TempTree tree;
};

// On a terminal the question is asked (script(1) gives the child one).
TEST_F(CommitCli, ConfirmationIsAskedOnATerminal) {
    const QString script = QStandardPaths::findExecutable(u"script"_s);
    if (script.isEmpty()) GTEST_SKIP() << "no script(1) to make a terminal";
    makeFiles(u"A%1"_s, 2);
    const QString command =
        u"'%1' -t lower --apply '%2'"_s.arg(QStringLiteral(SEQMATE_CLI_PATH), tree(u"files"_s));
    for (const char* answer : {"n\n", "y\n"}) {
        QProcess p;
        p.setProcessEnvironment(env());
        p.start(script, {u"-qec"_s, command, u"/dev/null"_s});
        ASSERT_TRUE(p.waitForStarted());
        p.write(answer);
        ASSERT_TRUE(p.waitForFinished(60000));
        const QString out = QString::fromUtf8(p.readAllStandardOutput());
        EXPECT_TRUE(out.contains(u"Are you sure you wish to rename 2 files? [y/N]"_s))
            << out.toStdString();
        EXPECT_EQ(p.exitCode(), answer[0] == 'y' ? 0 : 1);
        EXPECT_EQ(tree.list(u"files"_s), answer[0] == 'y' ? (QStringList{u"a0001"_s, u"a0002"_s})
                                                          : (QStringList{u"A0001"_s, u"A0002"_s}));
    }
}

TEST_F(CommitCli, ConflictsRefuseWithStatusThreeUnlessAllowed) {
    const QString jpg = tree.file(u"files/a.jpg"_s, "jpg");
    const QString png = tree.file(u"files/a.png"_s, "png");
    const QStringList args{u"-t"_s, u"remove-ext"_s, u"--apply"_s, u"-y"_s, jpg, png};
    const CliResult refused = run(args);
    EXPECT_EQ(refused.status, 3);
    EXPECT_TRUE(refused.err.contains(jpg + u" -> a"_s)) << refused.err.toStdString();
    EXPECT_TRUE(refused.err.contains(png + u" -> a"_s));
    EXPECT_EQ(tree.list(u"files"_s), (QStringList{u"a.jpg"_s, u"a.png"_s}));

    const CliResult allowed = run(args + QStringList{u"--allow-conflicts"_s});
    EXPECT_EQ(allowed.status, 0) << allowed.err.toStdString();
    EXPECT_TRUE(allowed.err.contains(u"Left under a dated name: "_s)) << allowed.err.toStdString();
    // The first took the name, then was moved aside for the second.
    EXPECT_EQ(tree.read(u"files/a"_s), "png");
    EXPECT_EQ(tree.list(u"files"_s).size(), 2);
}

TEST_F(CommitCli, ConflictActionForOneRun) {
    const QString a = tree.file(u"files/a"_s, "batch");
    tree.file(u"files/x_a"_s, "foreign");
    const CliResult r =
        run(words(u"-t prefix -s prefix=x_ --apply -y --conflict-action 1 --jobs 1"_s) << a);
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_EQ(tree.read(u"files/x_a"_s), "batch");
    EXPECT_FALSE(tree.exists(u"files/Conflicting files"_s));
    EXPECT_EQ(tree.list(u"files"_s).size(), 2); // x_a and the dated foreign file
}

// A child killed mid-commit (SIGKILL): --recover lists its journal and the
// file it left under a temporary name, and --undo gives every file back.
struct KillCase {
    const char* name;
    const char* fault; // how the child is slowed or stopped
    const char* waitFor;
    int folders; // more than one: the child renames them at once
};
void PrintTo(const KillCase& c, std::ostream* os) {
    *os << c.name;
}

class KilledCommit : public CommitCli, public ::testing::WithParamInterface<KillCase> {};

TEST_P(KilledCommit, RecoverListsItAndUndoRestoresEveryFile) {
    const int count = 3000, folders = GetParam().folders;
    for (int d = 0; d < folders; ++d)
        makeFiles(folders == 1 ? u"IMG_%1.JPG"_s : u"d%1/IMG_%2.JPG"_s.arg(d), count / folders);
    const auto everyFile = [this] {
        QStringList all;
        for (QDirIterator it(tree(u"files"_s), QDir::Files, QDirIterator::Subdirectories);
             it.hasNext();)
            all.append(it.next());
        all.sort();
        return all;
    };
    const QStringList original = everyFile();
    QProcess child;
    child.setStandardOutputFile(QProcess::nullDevice()); // nobody reads the preview table
    start(child, {u"-t"_s, u"lower"_s, u"--apply"_s, u"-y"_s, tree(u"files"_s)},
          {QString::fromUtf8(GetParam().fault)});
    // Moves are announced in the journal ahead of being made, so a stopped
    // child is recognised by the file it left under a temporary name.
    const QByteArray waitFor = GetParam().waitFor;
    const bool reached = waitFor.isEmpty() ? waitForLastingTemporaryName() : waitUntil([&] {
        return readText(currentJournal()).toUtf8().contains(QByteArray('\n' + waitFor));
    });
    child.kill();
    child.waitForFinished();
    ASSERT_TRUE(reached) << child.readAllStandardError().toStdString();
    const QString journal = currentJournal();

    const CliResult recover = run({u"--recover"_s});
    EXPECT_EQ(recover.status, 0);
    EXPECT_TRUE(recover.out.startsWith(journal + u" (started "_s)) << recover.out.toStdString();
    const bool underTempName = !temporaryName().isEmpty();
    EXPECT_EQ(recover.out.contains(u"  temporary: "_s + tree(u"files/"_s)), underTempName);
    if (QByteArray(GetParam().name) == "stopped") {
        EXPECT_TRUE(underTempName);
    }

    const CliResult undo = run({u"--undo"_s, journal});
    EXPECT_EQ(undo.status, 0) << undo.err.toStdString();
    EXPECT_EQ(everyFile(), original);
    EXPECT_EQ(readText(original[count / folders - 2]), QString::number(count / folders - 1));
    EXPECT_EQ(run({u"--recover"_s}).out, u"No interrupted renames.\n"_s);
}

INSTANTIATE_TEST_SUITE_P(
    Ways, KilledCommit,
    ::testing::Values(
        // Stops for good right after the temporary move of the 1001st file.
        KillCase{"stopped", "SEQMATE_FAULT_STOP_AFTER=2001", "", 1},
        // Killed wherever it is once a third of the moves are recorded, six
        // folders in flight: slow enough that the rest takes seconds, so the
        // kill never comes after the end, however loaded the machine.
        KillCase{"slowed", "SEQMATE_FAULT_MOVE_DELAY_US=3000", "move\t2000\t", 6}),
    [](const ::testing::TestParamInfo<KillCase>& i) { return std::string(i.param.name); });

TEST_F(CommitCli, CtrlCStopsBetweenFilesAndStillWritesSummaryAndJournal) {
    const int count = 400;
    makeFiles(u"f%1"_s, count);
    QProcess child;
    child.setStandardOutputFile(QProcess::nullDevice());
    start(child, prefixAll(), {u"SEQMATE_FAULT_MOVE_DELAY_US=5000"_s});
    ASSERT_TRUE(waitUntil([&] { return readText(currentJournal()).contains(u"\ndone\t20\n"_s); }));
    ::kill(static_cast<pid_t>(child.processId()), SIGINT);
    ASSERT_TRUE(child.waitForFinished(60000));
    EXPECT_EQ(child.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(child.exitCode(), 1);
    const QString err = QString::fromUtf8(child.readAllStandardError());
    const auto m = QRegularExpression(u"Interrupted: (\\d+) more files not renamed:"_s).match(err);
    ASSERT_TRUE(m.hasMatch()) << err.toStdString();
    const QStringList now = tree.list(u"files"_s);
    const auto renamed = std::count_if(now.cbegin(), now.cend(),
                                       [](const QString& n) { return n.startsWith(u"x_"_s); });
    EXPECT_GE(renamed, 20);
    EXPECT_LT(renamed, count);
    EXPECT_EQ(renamed + m.captured(1).toInt(), count);
    EXPECT_EQ(now.size(), count);
    EXPECT_TRUE(readText(currentJournal()).endsWith(u"complete\n"_s));
    EXPECT_TRUE(err.contains(u"journal: "_s + currentJournal()));
}

TEST_F(CommitCli, WithoutAJournalNothingIsRenamed) {
    makeFiles(u"a.%1.jpg"_s, 3);
    const QStringList original = tree.list(u"files"_s);
    tree.file(u"home/.local/share/Logs/Corvane/Journals"_s, "in the way");
    const CliResult r = run(prefixAll());
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains(u"The rename journal could not be created\nUnable to create rename "
                               u"journal in "_s))
        << r.err.toStdString();
    EXPECT_FALSE(r.err.contains(u"not renamed:"_s)); // no list of every file
    EXPECT_EQ(tree.list(u"files"_s), original);
}

// The move aside fails: the file in the way keeps its name, and no report
// names the dated name it never got.
TEST_F(CommitCli, FailedMoveAsideIsReportedAsWhatHappened) {
    const QString jpg = tree.file(u"files/a.jpg"_s, "jpg");
    const QString png = tree.file(u"files/a.png"_s, "png");
    const CliResult r = run(words(u"-t remove-ext --apply -y --allow-conflicts"_s) << jpg << png,
                            {u"SEQMATE_FAULT_FAIL=3"_s}); // a.jpg -> a, a.png -> a (taken), a aside
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains(u"The following files were not renamed:\n\na.png\nNot moved aside: "
                               u"a keeps its name (Input/output error)"_s))
        << r.err.toStdString();
    EXPECT_FALSE(r.err.contains(u"Left under a dated name"_s));
    EXPECT_EQ(tree.list(u"files"_s), (QStringList{u"a"_s, u"a.png"_s}));
    EXPECT_EQ(tree.read(u"files/a"_s), "jpg");
}

// A commit that completes, then an undo of it killed between the two moves
// that take a file back from a case change: --recover lists the file and sends
// the user back to the original journal, whose second undo finishes the work.
TEST_F(CommitCli, InterruptedUndoIsFinishedByUndoingTheOriginalAgain) {
    makeFiles(u"IMG_%1.JPG"_s, 3);
    const QStringList original = tree.list(u"files"_s);
    const CliResult commit = run({u"-t"_s, u"lower"_s, u"--apply"_s, u"-y"_s, tree(u"files"_s)});
    ASSERT_EQ(commit.status, 0) << commit.err.toStdString();
    EXPECT_TRUE(commit.err.contains(u"Rename complete\n3 files renamed.\n"_s));
    EXPECT_FALSE(commit.out.contains(u"Rename complete"_s)); // standard output keeps the preview
    const QString journal = currentJournal();
    EXPECT_TRUE(readText(journal).endsWith(u"complete\n"_s));
    QProcess undo;
    undo.setStandardOutputFile(QProcess::nullDevice());
    start(undo, {u"--undo"_s, journal}, {u"SEQMATE_FAULT_STOP_AFTER=1"_s});
    const bool stopped = waitForLastingTemporaryName();
    undo.kill();
    undo.waitForFinished();
    ASSERT_TRUE(stopped);

    const CliResult recover = run({u"--recover"_s});
    EXPECT_TRUE(recover.out.contains(u"  temporary: "_s + tree(u"files/"_s) + temporaryName() +
                                     u" (was "_s))
        << recover.out.toStdString();
    EXPECT_TRUE(
        recover.out.contains(u"  finish the undo with: seqmate-cli --undo '%1'\n"_s.arg(journal)))
        << recover.out.toStdString();
    // Never the undo's own journal: undoing it would make the renames again.
    auto commands = QRegularExpression(u"--undo '([^']*)'"_s).globalMatch(recover.out);
    while (commands.hasNext())
        EXPECT_EQ(commands.next().captured(1), journal);
    const CliResult again = run({u"--undo"_s, journal});
    EXPECT_EQ(again.status, 0) << again.err.toStdString();
    EXPECT_TRUE(again.out.contains(u"5 moves undone, 1 already undone, 0 refused"_s))
        << again.out.toStdString();
    EXPECT_EQ(tree.list(u"files"_s), original);
    EXPECT_EQ(run({u"--recover"_s}).out, u"No interrupted renames.\n"_s);
}

} // namespace
