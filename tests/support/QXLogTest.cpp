#include "QXLog.h"
#include "PropertyList.h"
#include "SupportTest.h"

#include <QCoreApplication>
#include <QThread>

#include <thread>

using namespace Qt::StringLiterals;

namespace {

QString logPath(int generation) {
    return QXLog::logFolder() + u"/LogTest.%1.log"_s.arg(generation);
}

// The message bodies of the time-stamped lines (the header has none).
QStringList bodies(const QString& text) {
    static const QRegularExpression line(
        u"^\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d [+-]\\d{4} - (.*)$"_s);
    QStringList out;
    for (const QString& l : text.split(u'\n', Qt::SkipEmptyParts))
        if (const auto m = line.match(l); m.hasMatch()) out << m.captured(1);
    return out;
}

class QXLogTest : public ::testing::Test {
protected:
    void SetUp() override {
        QXLocalPaths::setUserIdForTesting(501);
        fresh();
    }
    void TearDown() override {
        fresh();
        QXLog::sharedController().setAppName(QString());
        QXLocalPaths::setUserIdForTesting(std::nullopt);
        QXLocalPaths::setConsoleUserForTesting(std::nullopt);
    }
    void fresh() {
        QXLog::resetForTesting();
        QXLog::sharedController().setAppName(u"LogTest"_s);
        QDir(QXLocalPaths::logDirectory(true)).removeRecursively();
        QFile::remove(QXLocalPaths::vendorPreferencesPath());
        console.clear();
    }
    ConsoleCapture console;
};

TEST_F(QXLogTest, newLogHasTheHeaderThenOneTrimmedLinePerMessage) {
    QXLocalPaths::setUserIdForTesting(0); // a privileged run writes the machine-wide log
    EXPECT_EQ(QXLog::currentLogPath(), u"/usr/local/share/Logs/Corvane/LogTest.1.log"_s);
    QXLocalPaths::setUserIdForTesting(501);
    QXLog::createNewLog();
    EXPECT_EQ(QXLog::currentLogPath(), logPath(1));
    QXLog::appendLog(u"  \n first message \t\n"_s);
    // Short messages are on disk when appendLog returns, without finishWriting.
    const QStringList lines = readText(logPath(1)).split(u'\n');
    ASSERT_EQ(lines.size(), 7);
    EXPECT_TRUE(lines[0].startsWith(u"Log started: 20"_s));
    EXPECT_EQ(lines[1], u"Version: "_s + QStringLiteral(SEQMATE_VERSION));
    EXPECT_EQ(lines[2], u"Path: "_s + QCoreApplication::applicationFilePath());
    EXPECT_TRUE(matches(u"System: Linux \\S+, %1 CPU\\(s\\), \\d+\\.\\d\\d GB RAM"_s.arg(
                            QThread::idealThreadCount()),
                        lines[3]))
        << qPrintable(lines[3]);
    EXPECT_EQ(lines[4], u"Running in 64-bit mode"_s);
    EXPECT_EQ(bodies(lines[5]), QStringList{u"first message"_s});
    EXPECT_EQ(lines[6], QString());
    // The header is not counted.
    EXPECT_EQ(QXLog::sharedController().bytesWritten(), quint64(lines[5].toUtf8().size() + 1));

    QXLog::appendLog(u"   \n"_s);
    QXLog::appendLogAndPrint(u" missing path /x \n"_s);
    QXLog::appendLogAndPrint(QString());
    EXPECT_EQ(console.lines(), QStringList{u"missing path /x"_s});
    EXPECT_EQ(bodies(currentLogText()),
              (QStringList{u"first message"_s, QString(), u"missing path /x"_s}));
    // Several at once: the same lines, in order, and short ones on disk on return.
    QXLog::appendLogs({u" a "_s, QString(), u"b"_s});
    EXPECT_EQ(bodies(currentLogText()).mid(3), (QStringList{u"a"_s, u"b"_s}));
}

TEST_F(QXLogTest, withoutANewLogLinesAppendToTheFileOrSayWhyNot) {
    QXLog::appendLog(u"nowhere"_s);
    EXPECT_EQ(console.lines(), (QStringList{u"Unable to log the following information: nowhere"_s,
                                            u"Unable to open log for output"_s}));
    EXPECT_FALSE(QFileInfo::exists(logPath(1)));

    writeFile(logPath(1), "kept\n");
    QXLog::appendLog(u"appended"_s);
    const QString text = readText(logPath(1));
    EXPECT_TRUE(text.startsWith(u"kept\n"_s));
    EXPECT_EQ(bodies(text), QStringList{u"appended"_s});

    // A failed write is reported, and the next line opens the file again.
    fresh();
    QDir().mkpath(QXLog::logFolder());
    ASSERT_TRUE(QFile::link(u"/dev/full"_s, logPath(1)));
    QXLog::appendLog(u"x"_s);
    QXLog::appendLog(u"y"_s);
    ASSERT_EQ(console.lines().size(), 2);
    for (const QString& line : console.lines())
        EXPECT_TRUE(line.startsWith(u"Exception writing to log: "_s)) << qPrintable(line);
}

TEST_F(QXLogTest, fiveGenerationsRotateSkippingGapsAndAFailedMoveStopsThem) {
    const struct {
        QMap<int, QByteArray> before, after; // after: generations 2 to 6
    } cases[] = {
        {{{1, "o1"}, {2, "o2"}, {3, "o3"}, {4, "o4"}, {5, "o5"}},
         {{2, "o1"}, {3, "o2"}, {4, "o3"}, {5, "o4"}}},
        {{{1, "one"}, {3, "three"}}, {{2, "one"}, {4, "three"}}},
        {{{2, "two"}, {4, "four"}}, {{2, "two"}, {4, "four"}}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        fresh();
        for (auto it = c.before.begin(); it != c.before.end(); ++it)
            writeFile(logPath(it.key()), it.value());
        QXLog::createNewLog();
        EXPECT_TRUE(readText(logPath(1)).startsWith(u"Log started: "_s));
        for (int n = 2; n <= 6; ++n) // the sixth never exists
            EXPECT_EQ(QFileInfo::exists(logPath(n)), c.after.contains(n)) << n;
        for (auto it = c.after.begin(); it != c.after.end(); ++it)
            EXPECT_EQ(readText(logPath(it.key())), QString::fromUtf8(it.value())) << it.key();
    }

    // A failed move, or a file where the folder belongs, stops the new log.
    fresh();
    writeFile(logPath(1), "one");
    writeFile(logPath(4), "four");
    writeFile(logPath(5) + u"/inside"_s); // a folder that cannot be replaced
    QXLog::createNewLog();
    EXPECT_EQ(console.lines(),
              QStringList{u"Unable to move file %1 to %2"_s.arg(logPath(4), logPath(5))});
    EXPECT_EQ(readText(logPath(1)), u"one"_s);

    fresh();
    writeFile(QXLocalPaths::logDirectory(true), "not a folder");
    QXLog::createNewLog();
    EXPECT_EQ(console.lines(),
              QStringList{u"Unable to create folder %1."_s.arg(QXLog::logFolder())});
    QFile::remove(QXLocalPaths::logDirectory(true));
}

TEST_F(QXLogTest, vendorPreferenceSwitchesLoggingOffForTheProcess) {
    const std::pair<QVariant, bool> cases[] = {
        {u"1"_s, true},    {true, true},   {qlonglong(1), true},
        {u"yes"_s, false}, {false, false}, {qlonglong(2), false},
    };
    for (const auto& [value, disables] : cases) {
        SCOPED_TRACE(value.toString().toStdString());
        fresh();
        QDir().mkpath(QXLocalPaths::prefsDirectory(true));
        ASSERT_TRUE(PropertyList::writeFile(QXLocalPaths::vendorPreferencesPath(),
                                            QVariantMap{{u"disable-logging"_s, value}}));
        QXLog::createNewLog();
        QXLog::appendLog(u"hello"_s);
        QXLog::finishWriting();
        EXPECT_EQ(QXLog::sharedController().loggingDisabled(), disables);
        EXPECT_EQ(console.contains(u"Logging is disabled"_s), disables);
        EXPECT_EQ(QFileInfo::exists(QXLog::logFolder()), !disables);
        EXPECT_EQ(QFileInfo::exists(logPath(1)), !disables);
        // Stays off even when the preference goes away.
        QFile::remove(QXLocalPaths::vendorPreferencesPath());
        QXLog::createNewLog();
        EXPECT_EQ(QXLog::sharedController().loggingDisabled(), disables);
        EXPECT_EQ(QFileInfo::exists(logPath(1)), !disables);
    }
}

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
    for (const char c : {'c', 'd', 'e'})
        QXLog::appendLog(QString(200, QLatin1Char(c)));
    const QString fresh = currentLogText();
    const QStringList old = bodies(readText(logPath(2)));
    ASSERT_EQ(old.size(), 501);
    EXPECT_EQ(old.last(), QString(200, u'c'));
    EXPECT_TRUE(fresh.startsWith(u"Log started: "_s));
    EXPECT_EQ(bodies(fresh),
              (QStringList{u"Log truncated at 500KB"_s, QString(200, u'd'), QString(200, u'e')}));
}

TEST_F(QXLogTest, concurrentWritersLoseAndInterleaveNothing) {
    QXLog::createNewLog();
    constexpr int kThreads = 8, kEach = 300;
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t)
        threads.emplace_back([t] {
            for (int i = 0; i < kEach; ++i)
                QXLog::appendLog(u"t%1 m%2 "_s.arg(t).arg(i) + QString((i * 37) % 160, u'x'));
        });
    for (auto& th : threads)
        th.join();
    const QStringList lines = bodies(currentLogText());
    ASSERT_EQ(lines.size(), kThreads * kEach);
    std::vector<int> next(kThreads, 0);
    const QRegularExpression shape(u"^t(\\d) m(\\d+)( x+)?$"_s);
    for (const QString& body : lines) {
        const auto m = shape.match(body);
        ASSERT_TRUE(m.hasMatch()) << qPrintable(body);
        EXPECT_EQ(m.captured(2).toInt(), next[m.captured(1).toInt()]++); // each thread in order
    }
    EXPECT_EQ(QXLog::sharedController().bytesInQueue(), 0u);
}

} // namespace
