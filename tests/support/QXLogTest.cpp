#include "QXLog.h"
#include "ConsoleCapture.h"
#include "PropertyList.h"
#include "QXLocalPaths.h"
#include "TempTree.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QThread>
#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <thread>

namespace {

using namespace std::chrono_literals;

const QRegularExpression
    kLine(QStringLiteral(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d [+-]\d{4} - (.*)$)"));

QString logPath(int generation) {
    return QXLog::logFolder() + QStringLiteral("/LogTest.%1.log").arg(generation);
}

void writeFile(const QString& path, const QByteArray& content) {
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    ASSERT_TRUE(f.open(QIODevice::WriteOnly));
    f.write(content);
}

// The message bodies of the log lines after the header.
QStringList bodies(const QString& text) {
    QStringList out;
    for (const QString& line : text.split(u'\n', Qt::SkipEmptyParts)) {
        const auto m = kLine.match(line);
        if (m.hasMatch()) out << m.captured(1);
    }
    return out;
}

class QXLogTest : public ::testing::Test {
protected:
    void SetUp() override {
        QXLocalPaths::setUserIdForTesting(501);
        QXLog::resetForTesting();
        QXLog::sharedController().setAppName(QStringLiteral("LogTest"));
        QDir(QXLocalPaths::logDirectory(true)).removeRecursively();
        QFile::remove(QXLocalPaths::vendorPreferencesPath());
    }
    void TearDown() override {
        QXLog::resetForTesting();
        QXConsole::setSink(nullptr);
        QFile::remove(QXLocalPaths::vendorPreferencesPath());
        QDir(QXLocalPaths::logDirectory(true)).removeRecursively();
        QXLog::sharedController().setAppName(QString());
        QXLocalPaths::setUserIdForTesting(std::nullopt);
        QXLocalPaths::setConsoleUserForTesting(std::nullopt);
    }
    ConsoleCapture console;
};

TEST_F(QXLogTest, newLogHasTheHeaderThenOneLinePerMessage) {
    QXLog::createNewLog();
    EXPECT_EQ(QXLog::currentLogPath(), logPath(1));
    QXLog::appendLog(QStringLiteral("  \n first message \t\n"));
    // Short messages are on disk when appendLog returns, without finishWriting.
    const QStringList lines = readText(logPath(1)).split(u'\n');
    ASSERT_EQ(lines.size(), 7);
    EXPECT_TRUE(lines[0].startsWith(QStringLiteral("Log started: 20")));
    EXPECT_EQ(lines[1], QStringLiteral("Version: ") + QStringLiteral(SEQMATE_VERSION));
    EXPECT_EQ(lines[2], QStringLiteral("Path: ") + QCoreApplication::applicationFilePath());
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral(R"(^System: Linux \S+, %1 CPU\(s\), \d+\.\d\d GB RAM$)")
                               .arg(QThread::idealThreadCount()))
            .match(lines[3])
            .hasMatch())
        << qPrintable(lines[3]);
    EXPECT_EQ(lines[4], QStringLiteral("Running in 64-bit mode"));
    EXPECT_EQ(bodies(lines[5]), QStringList{QStringLiteral("first message")});
    EXPECT_EQ(lines[6], QString());
    // The header is not counted.
    EXPECT_EQ(QXLog::sharedController().bytesWritten(), quint64(lines[5].toUtf8().size() + 1));
    EXPECT_EQ(QXLog::sharedController().bytesInQueue(), 0u);
}

TEST_F(QXLogTest, linesBeforeAnyNewLogAppendToAnExistingFileOrGoToTheConsole) {
    QXLog::appendLog(QStringLiteral("nowhere"));
    EXPECT_EQ(console.lines(),
              (QStringList{QStringLiteral("Unable to log the following information: nowhere"),
                           QStringLiteral("Unable to open log for output")}));
    EXPECT_FALSE(QFileInfo::exists(logPath(1)));

    writeFile(logPath(1), "kept\n");
    QXLog::appendLog(QStringLiteral("appended"));
    const QString text = readText(logPath(1));
    EXPECT_TRUE(text.startsWith(QStringLiteral("kept\n")));
    EXPECT_EQ(bodies(text), QStringList{QStringLiteral("appended")});
}

TEST_F(QXLogTest, aFailedWriteIsReportedAndTheNextLineOpensAgain) {
    QDir().mkpath(QXLog::logFolder());
    ASSERT_TRUE(QFile::link(QStringLiteral("/dev/full"), logPath(1)));
    QXLog::appendLog(QStringLiteral("x"));
    QXLog::appendLog(QStringLiteral("y"));
    const QStringList lines = console.lines();
    ASSERT_EQ(lines.size(), 2);
    for (const QString& line : lines)
        EXPECT_TRUE(line.startsWith(QStringLiteral("Exception writing to log: ")))
            << qPrintable(line);
    // A line that failed this way stays counted as pending.
    EXPECT_EQ(QXLog::sharedController().bytesInQueue(), 2u);
}

TEST_F(QXLogTest, appendAndPrintAlsoGoesToTheConsole) {
    QXLog::createNewLog();
    QXLog::appendLogAndPrint(QStringLiteral(" missing path /x \n"));
    QXLog::appendLogAndPrint(QString());
    EXPECT_EQ(console.lines(), QStringList{QStringLiteral("missing path /x")});
    EXPECT_EQ(bodies(currentLogText()), QStringList{QStringLiteral("missing path /x")});
}

TEST_F(QXLogTest, onlyShortMessagesWithLittlePendingWaitForTheWriter) {
    // Hold the writer inside its console message about a missing log file.
    std::mutex m;
    std::condition_variable cv;
    bool held = false, released = false;
    QXConsole::setSink([&](const QString&) {
        std::unique_lock lock(m);
        held = true;
        cv.notify_all();
        cv.wait(lock, [&] { return released; });
    });
    QXLog::appendLog(QStringLiteral("")); // empty body: never waits
    {
        std::unique_lock lock(m);
        ASSERT_TRUE(cv.wait_for(lock, 5s, [&] { return held; }));
    }
    const auto append = [](QString text) {
        return std::async(std::launch::async, [text] { QXLog::appendLog(text); });
    };
    // Futures are kept until the writer is released: a future that waits blocks its destructor.
    auto blank = append(QStringLiteral(" \t \n"));
    const bool blankReturned = blank.wait_for(2s) == std::future_status::ready;
    auto shortOne = append(QString(99, u'b')); // 99 units pending: waits
    const bool shortWaited = shortOne.wait_for(300ms) == std::future_status::timeout;
    auto longOne = append(QString(100, u'c'));
    const bool longReturned = longOne.wait_for(2s) == std::future_status::ready;
    auto burst = append(QStringLiteral("d")); // short, but 199 units are pending
    const bool burstReturned = burst.wait_for(2s) == std::future_status::ready;
    {
        std::lock_guard lock(m);
        released = true;
    }
    cv.notify_all();
    EXPECT_TRUE(blankReturned);
    EXPECT_TRUE(shortWaited);
    EXPECT_TRUE(longReturned);
    EXPECT_TRUE(burstReturned);
    EXPECT_EQ(shortOne.wait_for(5s), std::future_status::ready);
    QXLog::finishWriting();
    QXConsole::setSink(nullptr);
    EXPECT_EQ(QXLog::sharedController().bytesInQueue(), 0u);
}

TEST_F(QXLogTest, blankMessageIsAnEmptyLineBody) {
    QXLog::createNewLog();
    QXLog::appendLog(QStringLiteral("   \n"));
    EXPECT_EQ(bodies(currentLogText()), QStringList{QString()});
}

TEST_F(QXLogTest, fiveGenerationsRotateAndTheOldestGoes) {
    for (int n = 1; n <= 5; ++n)
        writeFile(logPath(n), QByteArray("old") + QByteArray::number(n));
    QXLog::createNewLog();
    EXPECT_TRUE(readText(logPath(1)).startsWith(QStringLiteral("Log started: ")));
    for (int n = 2; n <= 5; ++n)
        EXPECT_EQ(readText(logPath(n)), QStringLiteral("old%1").arg(n - 1));
    EXPECT_FALSE(QFileInfo::exists(logPath(6)));
}

TEST_F(QXLogTest, rotationSkipsGapsAndNeedsACurrentFile) {
    writeFile(logPath(1), "one");
    writeFile(logPath(3), "three");
    QXLog::createNewLog();
    EXPECT_EQ(readText(logPath(2)), QStringLiteral("one"));
    EXPECT_FALSE(QFileInfo::exists(logPath(3)));
    EXPECT_EQ(readText(logPath(4)), QStringLiteral("three"));

    QFile::remove(logPath(1));
    QXLog::createNewLog(); // no current file: nothing moves
    EXPECT_EQ(readText(logPath(2)), QStringLiteral("one"));
    EXPECT_EQ(readText(logPath(4)), QStringLiteral("three"));
}

TEST_F(QXLogTest, aFailedMoveStopsTheNewLog) {
    writeFile(logPath(1), "one");
    writeFile(logPath(4), "four");
    writeFile(logPath(5) + QStringLiteral("/inside"), "x"); // a folder that cannot be replaced
    QXLog::createNewLog();
    EXPECT_TRUE(console.contains(
        QStringLiteral("Unable to move file %1 to %2").arg(logPath(4), logPath(5))));
    EXPECT_EQ(readText(logPath(1)), QStringLiteral("one"));
}

TEST_F(QXLogTest, aFileWhereTheFolderBelongsIsReported) {
    writeFile(QXLocalPaths::logDirectory(true), "not a folder");
    QXLog::createNewLog();
    EXPECT_EQ(console.lines(),
              QStringList{QStringLiteral("Unable to create folder %1.").arg(QXLog::logFolder())});
    console.clear();
    QXLog::appendLog(QStringLiteral("lost"));
    EXPECT_EQ(console.lines(),
              (QStringList{QStringLiteral("Unable to log the following information: lost"),
                           QStringLiteral("Unable to open log for output")}));
    QFile::remove(QXLocalPaths::logDirectory(true));
}

TEST_F(QXLogTest, superUserWritesTheMachineWideLogButCreatesTheUserFolder) {
    QXLocalPaths::setUserIdForTesting(0);
    QXLocalPaths::setConsoleUserForTesting(QString());
    const QString machine = QStringLiteral("/usr/local/share/Logs/Corvane");
    const QString current = machine + QStringLiteral("/LogTest.1.log");
    EXPECT_EQ(QXLog::currentLogPath(), current);
    const bool machineFolder = QFileInfo(machine).isDir(); // made by an earlier privileged run?
    QXLog::createNewLog();
    EXPECT_TRUE(QFileInfo(QXLog::logFolder()).isDir());
    EXPECT_FALSE(QFileInfo::exists(logPath(1)));
    if (machineFolder) {
        QXLog::appendLog(QStringLiteral("as root"));
        const QString text = readText(current);
        QFile::remove(current);
        EXPECT_TRUE(text.startsWith(QStringLiteral("Log started: ")));
        EXPECT_EQ(bodies(text), QStringList{QStringLiteral("as root")});
    } else {
        ASSERT_EQ(console.lines().size(), 1);
        EXPECT_TRUE(console.lines()[0].startsWith(
            QStringLiteral("Unable to create log file %1 - ").arg(current)));
    }
}

class QXLogDisabledTest : public QXLogTest,
                          public ::testing::WithParamInterface<std::pair<QVariant, bool>> {};

TEST_P(QXLogDisabledTest, vendorPreferenceSwitchesLoggingOff) {
    const auto& [value, disables] = GetParam();
    QDir().mkpath(QXLocalPaths::prefsDirectory(true));
    ASSERT_TRUE(PropertyList::writeFile(QXLocalPaths::vendorPreferencesPath(),
                                        QVariantMap{{QStringLiteral("disable-logging"), value}}));
    QXLog::createNewLog();
    QXLog::appendLog(QStringLiteral("hello"));
    QXLog::finishWriting();
    EXPECT_EQ(QXLog::sharedController().loggingDisabled(), disables);
    EXPECT_EQ(console.contains(QStringLiteral("Logging is disabled")), disables);
    EXPECT_EQ(QFileInfo::exists(logPath(1)), !disables);
    if (disables) {
        EXPECT_FALSE(QFileInfo::exists(QXLog::logFolder()));
        // Stays off for the process, even when the preference goes away.
        QFile::remove(QXLocalPaths::vendorPreferencesPath());
        QXLog::createNewLog();
        EXPECT_TRUE(QXLog::sharedController().loggingDisabled());
        EXPECT_FALSE(QFileInfo::exists(logPath(1)));
    }
}

INSTANTIATE_TEST_SUITE_P(Values, QXLogDisabledTest,
                         ::testing::Values(std::pair{QVariant(QStringLiteral("1")), true},
                                           std::pair{QVariant(true), true},
                                           std::pair{QVariant(qlonglong(1)), true},
                                           std::pair{QVariant(QStringLiteral("yes")), false},
                                           std::pair{QVariant(false), false},
                                           std::pair{QVariant(qlonglong(2)), false}));

TEST_F(QXLogTest, passing500KBStartsANewLogThatSaysSo) {
    QXLog::createNewLog();
    const int overhead = 29; // "<25-character date> - " and the newline
    for (int i = 0; i < 499; ++i)
        QXLog::appendLog(QString(1000 - overhead, u'a'));
    QXLog::appendLog(QString(999 - overhead, u'b'));
    QXLog::finishWriting();
    EXPECT_EQ(QXLog::sharedController().bytesWritten(), 499999u);
    EXPECT_FALSE(QFileInfo::exists(logPath(2)));

    // The crossing line and the lines queued behind it.
    QXLog::appendLog(QString(200, u'c'));
    QXLog::appendLog(QString(200, u'd'));
    QXLog::appendLog(QString(200, u'e'));
    const QString fresh = currentLogText();
    const QStringList old = bodies(readText(logPath(2)));
    ASSERT_EQ(old.size(), 501);
    EXPECT_EQ(old.last(), QString(200, u'c'));
    EXPECT_TRUE(fresh.startsWith(QStringLiteral("Log started: ")));
    EXPECT_EQ(bodies(fresh), (QStringList{QStringLiteral("Log truncated at 500KB"),
                                          QString(200, u'd'), QString(200, u'e')}));
}

TEST_F(QXLogTest, concurrentWritersLoseAndInterleaveNothing) {
    QXLog::createNewLog();
    constexpr int kThreads = 8, kEach = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kEach; ++i)
                QXLog::appendLog(QStringLiteral("t%1 m%2 ").arg(t).arg(i) +
                                 QString((i * 37) % 160, u'x'));
        });
    for (auto& th : threads)
        th.join();
    const QStringList lines = bodies(currentLogText());
    ASSERT_EQ(lines.size(), kThreads * kEach);
    std::vector<int> next(kThreads, 0);
    const QRegularExpression shape(QStringLiteral(R"(^t(\d) m(\d+)( x+)?$)"));
    for (const QString& body : lines) {
        const auto m = shape.match(body);
        ASSERT_TRUE(m.hasMatch()) << qPrintable(body);
        const int t = m.captured(1).toInt();
        EXPECT_EQ(m.captured(2).toInt(), next[t]++); // each thread's lines in its order
    }
    EXPECT_EQ(QXLog::sharedController().bytesInQueue(), 0u);
}

TEST_F(QXLogTest, givenNameYieldsToTheExecutableName) {
    QXLog::sharedController().setAppName(QString());
    const QString exe = QXLog::sharedController().appName();
    EXPECT_FALSE(exe.isEmpty());
    QXLog::createNewLog(QStringLiteral("Other"));
    EXPECT_EQ(QXLog::sharedController().appName(), exe);
    EXPECT_TRUE(QFileInfo::exists(QXLog::logFolder() + u'/' + exe + QStringLiteral(".1.log")));
}

} // namespace
