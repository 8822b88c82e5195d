#include "QXTask.h"
#include "SupportTest.h"

#include <atomic>
#include <csignal>
#include <sys/wait.h>

using namespace Qt::StringLiterals;

namespace {

const QString sh = u"/bin/sh"_s, trueTool = u"/bin/true"_s;
QStringList script(const char* text) {
    return {u"-c"_s, QString::fromUtf8(text)};
}

// Open descriptors or running threads of this process.
int entries(const QString& folder) {
    return static_cast<int>(QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot).size());
}
const QString fds = u"/proc/self/fd"_s, threads = u"/proc/self/task"_s;

// A joined thread can stay listed in /proc for a moment, so the count need
// only come down to the earlier one: a leaked thread never does.
bool threadsSettleAtMost(int count) {
    return waitFor([count] { return entries(threads) <= count; });
}

using QXTaskTest = SupportTest;

TEST_F(QXTaskTest, refusesWhatIsNotAnExecutableFileInEveryForm) {
    const QString plain = tree.file(u"notes.txt"_s, "echo hi\n");
    for (const QString& path : {tree.dir(u"Tool.app"_s), plain, tree(u"missing"_s), QString()}) {
        SCOPED_TRACE(path.toStdString());
        console.clear();
        EXPECT_FALSE(QXTask::runTask(path, {}));
        EXPECT_EQ(QXTask::terminationCodeFromTask(path, {}), -1);
        EXPECT_FALSE(QXTask::dataFromTask(path, {}).has_value());
        EXPECT_EQ(QXTask::stringFromTask(path, {}), QString());
        EXPECT_EQ(QXTask::terminationCodeFromTask(path, {}, 5.0), -1);
        QXTask::runTaskAndReturn(path, {});
        EXPECT_EQ(console.lines().count(u"Error: %1 is not executable"_s.arg(path)), 6);
    }
    EXPECT_TRUE(
        currentLogText().contains(u"Error: %1 is not executable"_s.arg(tree(u"Tool.app"_s))));
    // Executable bits on a file that is no program: the system refuses the launch.
    const QString bogus = tree.file(u"bogus"_s, "\x7f"
                                                "ELF junk");
    QFile::setPermissions(bogus, QFile::ReadOwner | QFile::ExeOwner);
    EXPECT_EQ(QXTask::terminationCodeFromTask(bogus, {}), -1);
}

TEST_F(QXTaskTest, statusOutputAndTextFollowTheErrorWinsRule) {
    using enum QXTask::Encoding;
    const struct {
        const char* script;
        QXTask::Encoding encoding;
        QByteArray data;
        QString text;
        int status = 0;
    } cases[] = {
        {"printf 'out'", ASCII, "out", u"out"_s},
        {"printf 'out'; printf 'err' >&2; exit 3", ASCII, "err", u"err"_s, 3},
        {"printf 'err' >&2; printf 'out'", ASCII, "err", u"err"_s},
        {"false", ASCII, "", QString(), 1},
        {"cat", ASCII, "", QString()}, // standard input is at its end
        {"printf 'caf\\303\\251'", ASCII, "caf\xc3\xa9", QString()},
        {"printf 'caf\\303\\251'", UTF8, "caf\xc3\xa9", u"caf\u00e9"_s},
        {"printf '\\377'", UTF8, "\xff", QString()},
        {"printf '\\377'", Latin1, "\xff", u"\u00ff"_s},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.script);
        EXPECT_EQ(QXTask::terminationCodeFromTask(sh, script(c.script)), c.status);
        EXPECT_EQ(QXTask::dataFromTask(sh, script(c.script)), std::optional(c.data));
        EXPECT_EQ(QXTask::stringFromTask(sh, script(c.script), c.encoding), c.text);
        EXPECT_EQ(QXTask::stringFromTask(sh, script(c.script), c.encoding, 5.0), c.text);
    }
    EXPECT_TRUE(QXTask::runTask(u"/bin/false"_s, {})); // it ran
    EXPECT_EQ(QXTask::terminationCodeFromTaskWithInput(sh, script("read a; test \"$a\" = secret"),
                                                       "secret\n"),
              0);

    // Megabytes on both streams do not deadlock.
    const auto data = QXTask::dataFromTask(
        sh, script("head -c 4000000 /dev/zero & head -c 3000000 /dev/zero >&2; wait"), 30.0);
    EXPECT_EQ(data.value_or("none").size(), 3000000);
    EXPECT_TRUE(console.lines().isEmpty()) << console.lines().join(u'\n').toStdString();
}

TEST_F(QXTaskTest, timeoutsAreWholeSecondsSoHalfASecondFiresAtOnce) {
    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(QXTask::terminationCodeFromTask(u"/bin/sleep"_s, {u"20"_s}, 0.5), SIGTERM);
    EXPECT_LT(clock.elapsed(), 1500);
    EXPECT_TRUE(console.contains(u"Task timed out. Terminating..."_s));
    EXPECT_TRUE(currentLogText().contains(u" - Task /bin/sleep timed out. Terminating..."_s));

    clock.restart(); // 1.9 s is one second, and the output so far is kept
    EXPECT_EQ(QXTask::dataFromTask(sh, script("printf partial; exec sleep 20"), 1.9),
              std::optional<QByteArray>("partial"));
    EXPECT_GE(clock.elapsed(), 900);
    EXPECT_LT(clock.elapsed(), 1900);

    // A child that ignores the termination is killed after its grace.
    QXTask::setTerminateGraceMilliseconds(300);
    clock.restart();
    const int code =
        QXTask::terminationCodeFromTask(sh, script("trap '' TERM; exec sleep 30"), 1.0);
    QXTask::setTerminateGraceMilliseconds(2000);
    EXPECT_EQ(code, SIGKILL);
    EXPECT_GE(clock.elapsed(), 1250);
    EXPECT_LT(clock.elapsed(), 2500);
}

TEST_F(QXTaskTest, backgroundRunsDeliverChunksThenAnEmptyOneOnTheReaderThread) {
    QXTask task; // reused for the second run
    const char* scripts[] = {"echo one; sleep 0.2; echo two; echo lost >&2", "echo second"};
    const QByteArray outputs[] = {"one\ntwo\n", "second\n"};
    for (int run = 0; run < 2; ++run) {
        std::mutex mutex;
        QList<QByteArray> chunks;
        QStringList objects;
        bool onCaller = false;
        task.asyncDataFromTask(
            sh, script(scripts[run]),
            [&, caller = std::this_thread::get_id()](const QByteArray& data, QXTask&,
                                                     const QVariant& object) {
                std::lock_guard lock(mutex);
                chunks.append(data);
                objects.append(object.toString());
                onCaller = onCaller || std::this_thread::get_id() == caller;
            },
            u"tag"_s);
        ASSERT_TRUE(waitFor([&] {
            std::lock_guard lock(mutex);
            return !chunks.isEmpty() && chunks.last().isEmpty();
        }));
        std::lock_guard lock(mutex);
        EXPECT_EQ(chunks.count(QByteArray()), 1); // only the last is empty
        EXPECT_EQ(chunks.join(), outputs[run]);
        EXPECT_EQ(objects.count(u"tag"_s), chunks.size());
        EXPECT_FALSE(onCaller);
    }
}

TEST_F(QXTaskTest, aBackgroundRunEndsWithoutACallbackWhenTerminatedFromItOrWithItsTask) {
    std::atomic<int> deliveries{0};
    {
        QXTask task;
        task.asyncDataFromTask(u"/usr/bin/yes"_s, {},
                               [&](const QByteArray&, QXTask& t, const QVariant&) {
                                   t.terminateAsyncTask(); // on the reader thread
                                   ++deliveries;
                               });
        EXPECT_TRUE(waitFor([&] { return deliveries > 0; }));
        EXPECT_FALSE(task.task());
    } // the destructor joins the reader, which reaps the child
    EXPECT_EQ(deliveries.load(), 1);

    // Destroying a task ends its running child and thread.
    const int threadsBefore = entries(threads);
    QXTask::Process child;
    QElapsedTimer clock;
    clock.start();
    {
        QXTask task;
        task.asyncDataFromTask(u"/bin/sleep"_s, {u"30"_s}, nullptr);
        ASSERT_TRUE(waitFor([&] { return (child = task.task()) && child->isLaunched(); }));
        EXPECT_TRUE(child->isRunning());
    }
    EXPECT_LT(clock.elapsed(), 5000);
    EXPECT_FALSE(child->isRunning());
    EXPECT_EQ(::kill(child->processIdentifier(), 0), -1); // reaped, not a zombie
    EXPECT_TRUE(threadsSettleAtMost(threadsBefore)) << entries(threads) << " threads";
}

TEST_F(QXTaskTest, aThousandTasksLeaveNoDescriptorsZombiesOrThreads) {
    // Warm up whatever the framework opens once (the log file, its writer thread).
    QXTask::runTask(trueTool, {}, 5.0);
    QXLog::finishWriting();
    const int fdsBefore = entries(fds), threadsBefore = entries(threads);
    const std::function<void()> forms[] = {
        [] { QXTask::runTask(trueTool, {}); },
        [] { QXTask::terminationCodeFromTask(trueTool, {}); },
        [] { QXTask::dataFromTask(u"/bin/echo"_s, {u"x"_s}); },
        [] { QXTask::terminationCodeFromTask(trueTool, {}, 5.0); }, // wakes its timer at the end
        [] { QXTask::runTaskAndReturn(trueTool, {}); },             // forks twice: the slow one
    };
    const int pick[10] = {0, 0, 0, 1, 1, 2, 2, 2, 3, 4};
    for (int i = 0; i < 1000; ++i)
        forms[pick[i % 10]]();
    EXPECT_EQ(entries(fds), fdsBefore);
    EXPECT_TRUE(threadsSettleAtMost(threadsBefore)) << entries(threads) << " threads";
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1); // no child of ours is left to reap
    EXPECT_EQ(errno, ECHILD);
}

} // namespace
