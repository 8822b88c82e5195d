#include "QXTask.h"
#include "ConsoleCapture.h"
#include "TempTree.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <mutex>
#include <sys/wait.h>
#include <thread>

namespace {

const QString sh = QStringLiteral("/bin/sh");
QStringList script(const char* text) {
    return {QStringLiteral("-c"), QString::fromUtf8(text)};
}

int openDescriptors() {
    return static_cast<int>(QDir(QStringLiteral("/proc/self/fd")).count());
}

int threadCount() {
    return static_cast<int>(QDir(QStringLiteral("/proc/self/task"))
                                .entryList(QDir::Dirs | QDir::NoDotAndDotDot)
                                .size());
}

class QXTaskTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { startUserLog(); }
    ConsoleCapture console;
    TempTree tree;
};

TEST_F(QXTaskTest, refusesWhatIsNotAnExecutableFileInEveryForm) {
    const QString plain = tree.file(QStringLiteral("notes.txt"), "echo hi\n");
    const QStringList paths = {tree.dir(QStringLiteral("Tool.app")), plain,
                               tree(QStringLiteral("missing")), QString()};
    for (const QString& path : paths) {
        SCOPED_TRACE(path.toStdString());
        console.clear();
        EXPECT_FALSE(QXTask::runTask(path, {}));
        EXPECT_EQ(QXTask::terminationCodeFromTask(path, {}), -1);
        EXPECT_FALSE(QXTask::dataFromTask(path, {}).has_value());
        EXPECT_EQ(QXTask::stringFromTask(path, {}), QString());
        EXPECT_EQ(QXTask::terminationCodeFromTask(path, {}, 5.0), -1);
        QXTask::runTaskAndReturn(path, {});
        const QString line = QStringLiteral("Error: %1 is not executable").arg(path);
        EXPECT_EQ(console.lines().count(line), 6);
    }
    EXPECT_TRUE(currentLogText().contains(
        QStringLiteral("Error: %1 is not executable").arg(tree(QStringLiteral("Tool.app")))));
}

TEST_F(QXTaskTest, aLaunchTheSystemRefusesIsLoggedAndFails) {
    // Executable bits on a file that is no program: posix_spawn says ENOEXEC.
    const QString bogus = tree.file(QStringLiteral("bogus"), QByteArray("\x7f\x45\x4c\x46junk", 8));
    QFile::setPermissions(bogus, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    EXPECT_EQ(QXTask::terminationCodeFromTask(bogus, {}), -1);
    EXPECT_FALSE(QXTask::dataFromTask(bogus, {}).has_value());
    const QStringList printed = console.lines();
    EXPECT_TRUE(std::any_of(printed.begin(), printed.end(), [](const QString& line) {
        return line.startsWith(
            QStringLiteral("Exception in +[QXTask terminationCodeFromTask:arguments:task:]. "
                           "NSInvalidArgumentException - "));
    })) << printed.join(u'\n').toStdString();
}

TEST_F(QXTaskTest, terminationCodeIsTheExitStatus) {
    EXPECT_EQ(QXTask::terminationCodeFromTask(sh, script("exit 3")), 3);
    EXPECT_EQ(QXTask::terminationCodeFromTask(QStringLiteral("/bin/true"), {}), 0);
    EXPECT_TRUE(QXTask::runTask(QStringLiteral("/bin/false"), {}));
    // Standard input is fed from the given bytes.
    EXPECT_EQ(QXTask::terminationCodeFromTaskWithInput(sh, script("read a; test \"$a\" = secret"),
                                                       "secret\n"),
              0);
}

TEST_F(QXTaskTest, theProcessHookSeesTheChildBeforeItStarts) {
    QXTask::Process seen;
    bool launchedWhenSeen = true;
    QXTask::runTask(QStringLiteral("/bin/true"), {}, [&](const QXTask::Process& p) {
        seen = p;
        launchedWhenSeen = p->isLaunched();
    });
    ASSERT_TRUE(seen);
    EXPECT_FALSE(launchedWhenSeen);
    EXPECT_EQ(seen->launchPath(), QStringLiteral("/bin/true"));
    EXPECT_FALSE(seen->isRunning());
}

struct OutputCase {
    const char* name;
    const char* script;
    QXTask::Encoding encoding;
    QByteArray data;
    QString text;
};

TEST_F(QXTaskTest, outputAndTextFollowTheErrorWinsRule) {
    const OutputCase cases[] = {
        {"output only", "printf 'out'", QXTask::Encoding::ASCII, "out", QStringLiteral("out")},
        {"error wins", "printf 'out'; printf 'err' >&2", QXTask::Encoding::ASCII, "err",
         QStringLiteral("err")},
        {"error first still wins", "printf 'err' >&2; printf 'out'", QXTask::Encoding::ASCII, "err",
         QStringLiteral("err")},
        {"nothing printed", "true", QXTask::Encoding::ASCII, "", QString()},
        {"not ASCII", "printf 'caf\\303\\251'", QXTask::Encoding::ASCII, "caf\xc3\xa9", QString()},
        {"UTF-8", "printf 'caf\\303\\251'", QXTask::Encoding::UTF8, "caf\xc3\xa9",
         QStringLiteral("caf\u00e9")},
        {"bad UTF-8", "printf '\\377'", QXTask::Encoding::UTF8, "\xff", QString()},
        {"Latin-1", "printf '\\377'", QXTask::Encoding::Latin1, "\xff", QStringLiteral("\u00ff")},
        {"stdin is at its end", "cat", QXTask::Encoding::ASCII, "", QString()},
    };
    for (const OutputCase& c : cases) {
        SCOPED_TRACE(c.name);
        const std::optional<QByteArray> data = QXTask::dataFromTask(sh, script(c.script));
        ASSERT_TRUE(data.has_value());
        EXPECT_EQ(*data, c.data);
        EXPECT_EQ(QXTask::stringFromTask(sh, script(c.script), c.encoding), c.text);
        EXPECT_EQ(QXTask::stringFromTask(sh, script(c.script), c.encoding, 5.0), c.text);
    }
}

TEST_F(QXTaskTest, megabytesOnBothStreamsDoNotDeadlock) {
    // Both streams written at the same time, each far beyond a pipe's capacity.
    const auto data = QXTask::dataFromTask(
        sh, script("head -c 4000000 /dev/zero & head -c 3000000 /dev/zero >&2; wait"), 30.0);
    ASSERT_TRUE(data.has_value());
    EXPECT_EQ(data->size(), 3000000);
    EXPECT_TRUE(console.lines().isEmpty()) << console.lines().join(u'\n').toStdString();
}

TEST_F(QXTaskTest, aSubSecondTimeoutFiresAtOnceAndTerminatesTheChild) {
    QElapsedTimer clock;
    clock.start();
    EXPECT_EQ(
        QXTask::terminationCodeFromTask(QStringLiteral("/bin/sleep"), {QStringLiteral("20")}, 0.5),
        SIGTERM);
    EXPECT_LT(clock.elapsed(), 1500);
    EXPECT_TRUE(console.contains(QStringLiteral("Task timed out. Terminating...")));
    EXPECT_TRUE(
        currentLogText().contains(QStringLiteral(" - Task /bin/sleep timed out. Terminating...")));
}

TEST_F(QXTaskTest, aTimeoutEndsAChildAfterItsWholeSecondsKeepingItsOutput) {
    QElapsedTimer clock;
    clock.start();
    const auto data = QXTask::dataFromTask(sh, script("printf partial; exec sleep 20"), 1.9);
    EXPECT_EQ(data.value_or("none"), QByteArray("partial"));
    EXPECT_GE(clock.elapsed(), 900);
    EXPECT_LT(clock.elapsed(), 1900);
}

TEST_F(QXTaskTest, aFinishedCallCancelsItsTimer) {
    QElapsedTimer clock;
    clock.start();
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(QXTask::terminationCodeFromTask(QStringLiteral("/bin/true"), {}, 30.0), 0);
    // The timer is woken and joined, not left sleeping for its 30 seconds.
    EXPECT_LT(clock.elapsed(), 5000);
    EXPECT_FALSE(console.contains(QStringLiteral("Task timed out. Terminating...")));
}

TEST_F(QXTaskTest, aChildThatIgnoresTerminationIsKilledAfterItsGrace) {
    QXTask::setTerminateGraceMilliseconds(300);
    QElapsedTimer clock;
    clock.start();
    // The timer fires after the trap is in place; exec keeps TERM ignored.
    const int code =
        QXTask::terminationCodeFromTask(sh, script("trap '' TERM; exec sleep 30"), 1.0);
    QXTask::setTerminateGraceMilliseconds(2000);
    EXPECT_EQ(code, SIGKILL);
    EXPECT_GE(clock.elapsed(), 1250);
    EXPECT_LT(clock.elapsed(), 2500);
}

// Collects a background run's deliveries and waits for the final empty one.
struct Collector {
    std::mutex mutex;
    std::condition_variable cv;
    QList<QByteArray> chunks;
    QVariant object;
    bool ended = false;
    bool onCallerThread = false;
    std::thread::id caller = std::this_thread::get_id();

    QXTask::DataCallback callback() {
        return [this](const QByteArray& data, QXTask&, const QVariant& obj) {
            std::lock_guard lock(mutex);
            chunks.append(data);
            object = obj;
            if (std::this_thread::get_id() == caller) onCallerThread = true;
            if (data.isEmpty()) ended = true;
            cv.notify_all();
        };
    }
    bool waitForEnd() {
        std::unique_lock lock(mutex);
        return cv.wait_for(lock, std::chrono::seconds(10), [this] { return ended; });
    }
};

TEST_F(QXTaskTest, aBackgroundRunDeliversChunksThenAnEmptyOneOnItsReaderThread) {
    Collector c;
    QXTask task;
    task.asyncDataFromTask(sh, script("echo one; sleep 0.2; echo two; echo lost >&2"), c.callback(),
                           QStringLiteral("tag"));
    ASSERT_TRUE(c.waitForEnd());
    std::lock_guard lock(c.mutex);
    ASSERT_GE(c.chunks.size(), 2);
    EXPECT_TRUE(c.chunks.last().isEmpty());
    EXPECT_EQ(c.chunks.mid(0, c.chunks.size() - 1).join(), QByteArray("one\ntwo\n"));
    for (qsizetype i = 0; i + 1 < c.chunks.size(); ++i)
        EXPECT_FALSE(c.chunks[i].isEmpty());
    EXPECT_EQ(c.object.toString(), QStringLiteral("tag"));
    EXPECT_FALSE(c.onCallerThread);
}

TEST_F(QXTaskTest, aBackgroundRunEndsEvenWithoutACallback) {
    QXTask task;
    task.asyncDataFromTask(sh, script("echo hi"), nullptr);
    QElapsedTimer clock;
    clock.start();
    while (task.task() && clock.elapsed() < 5000)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_FALSE(task.task());
}

TEST_F(QXTaskTest, terminatingABackgroundRunStopsDeliveriesAndTheChild) {
    std::atomic<int> afterStop{0};
    std::atomic<bool> stopped{false};
    {
        QXTask task;
        task.asyncDataFromTask(
            QStringLiteral("/usr/bin/yes"), {}, [&](const QByteArray&, QXTask& t, const QVariant&) {
                if (stopped) ++afterStop;
                stopped = true;
                t.terminateAsyncTask(); // from inside the callback, on the reader thread
            });
        QElapsedTimer clock;
        clock.start();
        while (!stopped && clock.elapsed() < 5000)
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_TRUE(stopped);
        EXPECT_FALSE(task.task());
    } // the destructor joins the reader, which reaps the child
    EXPECT_EQ(afterStop.load(), 0);
}

TEST_F(QXTaskTest, destroyingATaskEndsItsRunningChildAndThread) {
    const int threadsBefore = threadCount();
    QXTask::Process child;
    QElapsedTimer clock;
    clock.start();
    {
        QXTask task;
        task.asyncDataFromTask(QStringLiteral("/bin/sleep"), {QStringLiteral("30")}, nullptr);
        while (!(child = task.task()) || !child->isLaunched())
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        EXPECT_TRUE(child->isRunning());
    }
    EXPECT_LT(clock.elapsed(), 5000);
    EXPECT_FALSE(child->isRunning());
    EXPECT_EQ(::kill(child->processIdentifier(), 0), -1); // reaped, not a zombie
    EXPECT_EQ(threadCount(), threadsBefore);
}

TEST_F(QXTaskTest, aTaskCanBeReusedForAnotherBackgroundRun) {
    QXTask task;
    for (const char* word : {"first", "second"}) {
        Collector c;
        task.asyncDataFromTask(QStringLiteral("/bin/echo"), {QString::fromUtf8(word)},
                               c.callback());
        ASSERT_TRUE(c.waitForEnd());
        std::lock_guard lock(c.mutex);
        EXPECT_EQ(c.chunks.join(), QByteArray(word) + '\n');
    }
}

TEST_F(QXTaskTest, aThousandTasksLeaveNoDescriptorsZombiesOrThreads) {
    // Warm up whatever the framework opens once (the log file, its writer thread).
    QXTask::runTask(QStringLiteral("/bin/true"), {}, 5.0);
    QXLog::finishWriting();
    const int fdsBefore = openDescriptors();
    const int threadsBefore = threadCount();
    const QString t = QStringLiteral("/bin/true");
    for (int i = 0; i < 1000; ++i) {
        switch (i % 10) {
        case 0:
        case 1:
        case 2:
            QXTask::runTask(t, {});
            break;
        case 3:
        case 4:
            QXTask::terminationCodeFromTask(t, {});
            break;
        case 5:
        case 6:
        case 7:
            QXTask::dataFromTask(QStringLiteral("/bin/echo"), {QStringLiteral("x")});
            break;
        case 8:
            QXTask::terminationCodeFromTask(t, {}, 5.0);
            break;
        default:
            QXTask::runTaskAndReturn(t, {});
            break; // forks twice: the slow one
        }
    }
    EXPECT_EQ(openDescriptors(), fdsBefore);
    EXPECT_EQ(threadCount(), threadsBefore);
    // No child of ours is left to reap.
    EXPECT_EQ(::waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

} // namespace
