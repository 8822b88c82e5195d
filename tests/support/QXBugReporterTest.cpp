#include "QXBugReporter.h"
#include "ConsoleCapture.h"
#include "CrashHandler.h"
#include "PropertyList.h"
#include "QXLocalPaths.h"
#include "QXTask.h"
#include "TempTree.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <gtest/gtest.h>

#include <csignal>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

const QString app = QStringLiteral("Probe");

class QXBugReporterTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { startUserLog(); }

    void SetUp() override {
        QXLocalPaths::setConsoleUserForTesting(QString());
        QXBugReporter::setReportHandler([this](const QString& report) {
            opened.append(report);
            return true;
        });
        QSettings(QStringLiteral("Corvane"), QCoreApplication::applicationName()).clear();
    }
    void TearDown() override {
        QXBugReporter::setReportHandler(nullptr);
        QXLocalPaths::setConsoleUserForTesting(std::nullopt);
        QDir(userReports(QStringLiteral("DiagnosticReports"))).removeRecursively();
        QDir(userReports(QStringLiteral("CrashReporter"))).removeRecursively();
        QFile::remove(QXLocalPaths::vendorPreferencesPath());
        QSettings(QStringLiteral("Corvane"), QCoreApplication::applicationName()).clear();
    }

    static QString userReports(const QString& kind) {
        return QXLocalPaths::logDirectory(true) + u'/' + kind;
    }
    // A crash report with the given age in seconds (negative: in the past).
    static QString report(const QString& kind, const QString& name, qint64 ageSeconds) {
        const QString path = userReports(kind) + u'/' + name;
        QDir().mkpath(QFileInfo(path).path());
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        f.write("Signal: 11 (SIGSEGV)\n");
        f.flush(); // a later flush would set the time to now
        f.setFileTime(QDateTime::currentDateTime().addSecs(-ageSeconds),
                      QFileDevice::FileModificationTime);
        return path;
    }
    void recordLaunch(qint64 ageSeconds) {
        QVariantMap record = PropertyList::readFile(plist).toMap();
        record.insert(QStringLiteral("launch"), QDateTime::currentDateTime().addSecs(-ageSeconds));
        ASSERT_TRUE(PropertyList::writeFile(plist, record));
    }

    ConsoleCapture console;
    TempTree tree;
    QString plist = tree(QStringLiteral("record.plist"));
    QStringList opened;
};

TEST_F(QXBugReporterTest, aFirstLaunchChecksNothingAndRecordsTheLaunch) {
    report(QStringLiteral("DiagnosticReports"), QStringLiteral("Probe_2011-03-03-140509_h.crash"),
           0);
    QXBugReporter::startBugReporter(app, plist);
    EXPECT_TRUE(opened.isEmpty());
    const QDateTime launch =
        PropertyList::readFile(plist).toMap().value(QStringLiteral("launch")).toDateTime();
    ASSERT_TRUE(launch.isValid());
    EXPECT_LE(qAbs(launch.secsTo(QDateTime::currentDateTime())), 2);
}

TEST_F(QXBugReporterTest, aCleanExitMeansNoCrash) {
    QXBugReporter::startBugReporter(app, plist);
    QXBugReporter::stopBugReporter(plist);
    report(QStringLiteral("DiagnosticReports"), QStringLiteral("Probe_2011-03-03-140509_h.crash"),
           0);
    EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), QString());
    EXPECT_TRUE(opened.isEmpty());
}

TEST_F(QXBugReporterTest, aCrashAfterARecordedLaunchIsDetectedOnce) {
    recordLaunch(60);
    const QString crash = report(QStringLiteral("DiagnosticReports"),
                                 QStringLiteral("Probe_2011-03-03-140509_host.crash"), 30);
    QStringList told;
    QXBugReporter::startBugReporter(app, plist, [&](const QString& path) { told.append(path); });
    EXPECT_EQ(opened, QStringList{crash});
    EXPECT_TRUE(told.isEmpty()); // delivered on the main thread, not waited for
    QCoreApplication::processEvents();
    EXPECT_EQ(told, QStringList{crash});
    EXPECT_TRUE(currentLogText().contains(QStringLiteral(" - Application crashed on last launch")));

    // The new launch is later than the report: the same crash is not reported again.
    QXBugReporter::startBugReporter(app, plist);
    QXBugReporter::stopBugReporter(plist);
    QXBugReporter::startBugReporter(app, plist);
    EXPECT_EQ(opened.size(), 1);
}

TEST_F(QXBugReporterTest, aReportOlderThanTheLaunchIsIgnored) {
    recordLaunch(60);
    report(QStringLiteral("DiagnosticReports"), QStringLiteral("Probe_2011-03-03-140509_h.crash"),
           120);
    EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), QString());
    EXPECT_TRUE(opened.isEmpty());
}

TEST_F(QXBugReporterTest, theLastMatchingEntryOfTheFirstFolderWithOneCounts) {
    recordLaunch(60);
    report(QStringLiteral("DiagnosticReports"), QStringLiteral("probe_2011-01-01-000000_h.crash"),
           30);
    const QString last = report(QStringLiteral("DiagnosticReports"),
                                QStringLiteral("PROBE_2012-01-01-000000_h.crash"), 30);
    report(QStringLiteral("DiagnosticReports"),
           QStringLiteral("ProbeHelper_2013-01-01-000000_h.crash"), 30);
    report(QStringLiteral("DiagnosticReports"), QStringLiteral("Other_2014-01-01-000000_h.crash"),
           30);
    EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), last);

    // The classic folder is looked at first.
    const QString classic = report(QStringLiteral("CrashReporter"),
                                   QStringLiteral("Probe_2010-01-01-000000_h.crash"), 30);
    EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), classic);
    EXPECT_EQ(QXBugReporter::reportFolders().size(), 4);
}

TEST_F(QXBugReporterTest, theCrashReporterCanBeSwitchedOffForTheVendorsApplications) {
    const struct {
        QVariant value;
        bool disabled;
    } cases[] = {
        {QStringLiteral("1"), true},    {true, true},
        {qlonglong(1), true},           {QStringLiteral("0"), false},
        {QStringLiteral("yes"), false}, {false, false},
    };
    const QString crash = report(QStringLiteral("DiagnosticReports"),
                                 QStringLiteral("Probe_2011-03-03-140509_h.crash"), 30);
    QDir().mkpath(QFileInfo(QXLocalPaths::vendorPreferencesPath()).path());
    for (const auto& c : cases) {
        SCOPED_TRACE(c.value.toString().toStdString());
        ASSERT_TRUE(PropertyList::writeFile(
            QXLocalPaths::vendorPreferencesPath(),
            QVariantMap{{QStringLiteral("disable-crash-reporter"), c.value}}));
        recordLaunch(60);
        opened.clear();
        console.clear();
        EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), crash);
        EXPECT_EQ(opened.isEmpty(), c.disabled);
        EXPECT_EQ(console.contains(QStringLiteral("Crash reporter disabled")), c.disabled);
    }
    EXPECT_TRUE(currentLogText().contains(QStringLiteral(" - Crash reporter disabled")));
}

TEST_F(QXBugReporterTest, theUserDefaultsHoldTheRecordWhenNoFileIsGiven) {
    QXBugReporter::startBugReporterWithDelegate(nullptr);
    QXBugReporter::stopBugReporter();
    QSettings defaults(QStringLiteral("Corvane"), QCoreApplication::applicationName());
    EXPECT_TRUE(defaults.value(QStringLiteral("launch")).toDateTime().isValid());
    EXPECT_TRUE(defaults.value(QStringLiteral("exit")).toDateTime().isValid());

    const QString name = QCoreApplication::applicationName();
    const QString crash = report(QStringLiteral("DiagnosticReports"),
                                 name + QStringLiteral("_2011-03-03-140509_h.crash"), 30);
    defaults.setValue(QStringLiteral("launch"), QDateTime::currentDateTime().addSecs(-60));
    defaults.setValue(QStringLiteral("exit"), QDateTime::currentDateTime().addSecs(-90));
    defaults.sync();
    EXPECT_EQ(QXBugReporter::checkForCrashes(), crash);
}

uid_t uidOf(const char* name) {
    const passwd* pw = ::getpwnam(name);
    return pw ? pw->pw_uid : static_cast<uid_t>(-1);
}

uid_t ownerOf(const QString& path) {
    struct stat st;
    return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_uid
                                                                 : static_cast<uid_t>(-1);
}

TEST_F(QXBugReporterTest, aRecordInAUsersHomeIsGivenBackToThatUser) {
    if (::geteuid() != 0 || uidOf("nobody") == static_cast<uid_t>(-1))
        GTEST_SKIP() << "needs root and the user nobody";
    const QString inHome = tree.file(QStringLiteral("home/nobody/record.plist"));
    const QString atUsers = tree.file(QStringLiteral("Users"));
    const QString elsewhere = tree.file(QStringLiteral("var/record.plist"));
    QXBugReporter::chownPlist(inHome);
    QXBugReporter::chownPlist(atUsers);
    QXBugReporter::chownPlist(elsewhere);
    EXPECT_EQ(ownerOf(inHome), uidOf("nobody"));
    EXPECT_EQ(ownerOf(atUsers), 0u);
    EXPECT_EQ(ownerOf(elsewhere), 0u);
}

TEST_F(QXBugReporterTest, theBugReporterShowsTheReportAndKeepsCopiesWithoutOverwriting) {
    const QString program = QStringLiteral(SEQMATE_BUGREPORTER_PATH);
    const QString crash =
        tree.file(QStringLiteral("Probe_2011-03-03-140509_h.crash"), "Signal: 11 (SIGSEGV)\n");
    tree.file(QStringLiteral("kept/Probe_2011-03-03-140509_h.crash"), "older");
    tree.file(QStringLiteral("saved.txt"), "older");
    const QString shown =
        QXTask::stringFromTask(program,
                               {QStringLiteral("--save"), tree(QStringLiteral("saved.txt")),
                                QStringLiteral("--copy"), tree(QStringLiteral("kept")), crash},
                               QXTask::Encoding::UTF8, 20.0);
    EXPECT_TRUE(shown.contains(QStringLiteral("Signal: 11 (SIGSEGV)"))) << shown.toStdString();
    EXPECT_EQ(tree.read(QStringLiteral("saved 2.txt")), QByteArray("Signal: 11 (SIGSEGV)\n"));
    EXPECT_EQ(tree.read(QStringLiteral("kept/Probe_2011-03-03-140509_h 2.crash")),
              QByteArray("Signal: 11 (SIGSEGV)\n"));
    EXPECT_EQ(tree.read(QStringLiteral("saved.txt")), QByteArray("older"));
    EXPECT_EQ(QXTask::terminationCodeFromTask(program, {tree(QStringLiteral("missing"))}, 20.0), 1);
}

TEST(CrashHandlerTest, timeStampsAreCivilDatesWithoutTheCLibrary) {
    const struct {
        long long seconds;
        long offset;
        const char* text;
    } cases[] = {
        {0, 0, "1970-01-01-000000"},
        {951782400, 0, "2000-02-29-000000"},
        {1299161109, 0, "2011-03-03-140509"},
        {1299161109, 3600, "2011-03-03-150509"},
        {1299113999, -7200, "2011-03-02-225959"},
        {4107542399, 0, "2100-02-28-235959"},
        {4107542400, 0, "2100-03-01-000000"},
        {-1, 0, "1969-12-31-235959"},
    };
    char out[18];
    for (const auto& c : cases) {
        CrashHandler::formatTimestamp(c.seconds, c.offset, out);
        EXPECT_STREQ(out, c.text) << c.seconds;
    }
    // A sweep across two centuries against Qt's calendar.
    for (long long s = -86400LL * 365 * 30; s < 86400LL * 365 * 170; s += 86400LL * 37 + 3671) {
        CrashHandler::formatTimestamp(s, 0, out);
        const QString expected =
            QDateTime::fromSecsSinceEpoch(s, Qt::UTC).toString(QStringLiteral("yyyy-MM-dd-HHmmss"));
        ASSERT_EQ(QString::fromLatin1(out), expected) << s;
    }
}

TEST_F(QXBugReporterTest, aCrashWritesAReportTheNextLaunchFinds) {
    recordLaunch(60);
    ASSERT_TRUE(CrashHandler::install(app));
    const pid_t child = ::fork();
    if (child == 0) {
        ::raise(SIGSEGV); // only async-signal-safe code runs from here on
        ::_exit(0);
    }
    CrashHandler::uninstall();
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFSIGNALED(status));
    EXPECT_EQ(WTERMSIG(status), SIGSEGV);

    const QStringList written = QDir(CrashHandler::reportFolder())
                                    .entryList({QStringLiteral("Probe_*.crash")}, QDir::Files);
    ASSERT_EQ(written.size(), 1);
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral("^Probe_\\d{4}-\\d\\d-\\d\\d-\\d{6}_[\\w-]+\\.crash$"))
            .match(written.first())
            .hasMatch())
        << written.first().toStdString();
    const QString text = readText(CrashHandler::reportFolder() + u'/' + written.first());
    EXPECT_TRUE(text.contains(QStringLiteral("Signal:      11 (SIGSEGV)"))) << text.toStdString();
    EXPECT_TRUE(text.contains(QStringLiteral("Process:     Probe [%1]").arg(child)));
    EXPECT_TRUE(text.contains(QStringLiteral("\nBacktrace:\n")));
    EXPECT_GT(text.count(u'\n'), 9); // the frames follow

    EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist),
              CrashHandler::reportFolder() + u'/' + written.first());
}

} // namespace
