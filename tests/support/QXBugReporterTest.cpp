#include "QXBugReporter.h"
#include "CrashHandler.h"
#include "PropertyList.h"
#include "QXTask.h"
#include "SupportTest.h"

#include <QCoreApplication>
#include <QDateTime>

#include <csignal>
#include <sys/wait.h>

using namespace Qt::StringLiterals;

namespace {

const QString app = u"Probe"_s, crashName = u"Probe_2011-03-03-140509_h.crash"_s;

class QXBugReporterTest : public SupportTest {
protected:
    void SetUp() override {
        QXLocalPaths::setConsoleUserForTesting(QString());
        QXBugReporter::setReportHandler([this](const QString& report) {
            opened.append(report);
            return true;
        });
    }
    void TearDown() override {
        QXBugReporter::setReportHandler(nullptr);
        QXLocalPaths::setConsoleUserForTesting(std::nullopt);
        for (const char16_t* kind : {u"DiagnosticReports", u"CrashReporter"})
            QDir(folder(QString::fromUtf16(kind))).removeRecursively();
        QFile::remove(QXLocalPaths::vendorPreferencesPath());
    }
    static QString folder(const QString& kind) {
        return QXLocalPaths::logDirectory(true) + u'/' + kind;
    }
    // A crash report modified the given number of seconds ago.
    static QString report(const QString& name, qint64 age = 30,
                          const QString& kind = u"DiagnosticReports"_s) {
        const QString path = folder(kind) + u'/' + name;
        EXPECT_TRUE(writeFile(path, "Signal: 11 (SIGSEGV)\n"));
        QFile f(path);
        EXPECT_TRUE(f.open(QIODevice::ReadWrite));
        f.setFileTime(QDateTime::currentDateTime().addSecs(-age),
                      QFileDevice::FileModificationTime);
        return path;
    }
    void record(const QString& key, qint64 age) {
        QVariantMap r = PropertyList::readFile(plist).toMap();
        r.insert(key, QDateTime::currentDateTime().addSecs(-age));
        ASSERT_TRUE(PropertyList::writeFile(plist, r));
    }

    QString plist = tree(u"record.plist"_s);
    QStringList opened;
};

TEST_F(QXBugReporterTest, onlyAReportNewerThanALaunchWithoutACleanExitIsACrash) {
    const struct {
        const char* name;
        qint64 launch, exit, report; // ages in seconds; -1: none
        bool crashed;
    } cases[] = {
        {"first launch ever", -1, -1, 30, false},
        {"clean exit", 60, 40, 30, false},
        {"report older than the launch", 60, -1, 120, false},
        {"exit before the launch", 60, 90, 30, true},
        {"crash", 60, -1, 30, true},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        QFile::remove(plist);
        if (c.launch >= 0) record(u"launch"_s, c.launch);
        if (c.exit >= 0) record(u"exit"_s, c.exit);
        const QString crash = report(crashName, c.report);
        EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), c.crashed ? crash : QString());
        EXPECT_EQ(opened, c.crashed ? QStringList{crash} : QStringList());
        opened.clear();
    }
}

TEST_F(QXBugReporterTest, aCrashIsReportedOnceAndTheLaunchIsRecorded) {
    record(u"launch"_s, 60);
    const QString crash = report(u"Probe_2011-03-03-140509_host.crash"_s);
    QStringList told;
    QXBugReporter::startBugReporter(app, plist, [&](const QString& path) { told.append(path); });
    EXPECT_EQ(opened, QStringList{crash});
    EXPECT_TRUE(told.isEmpty()); // delivered on the main thread, not waited for
    QCoreApplication::processEvents();
    EXPECT_EQ(told, QStringList{crash});
    EXPECT_TRUE(currentLogText().contains(u" - Application crashed on last launch"_s));

    // The new launch is later than the report: the same crash is not reported again.
    QXBugReporter::startBugReporter(app, plist);
    QXBugReporter::stopBugReporter(plist);
    QXBugReporter::startBugReporter(app, plist);
    EXPECT_EQ(opened.size(), 1);
}

TEST_F(QXBugReporterTest, theLastMatchingEntryOfTheFirstFolderWithOneCounts) {
    record(u"launch"_s, 60);
    report(u"probe_2011-01-01-000000_h.crash"_s);
    const QString last = report(u"PROBE_2012-01-01-000000_h.crash"_s);
    report(u"ProbeHelper_2013-01-01-000000_h.crash"_s);
    report(u"Other_2014-01-01-000000_h.crash"_s);
    EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), last);
    // The classic folder is looked at first.
    const QString classic = report(u"Probe_2010-01-01-000000_h.crash"_s, 30, u"CrashReporter"_s);
    EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), classic);
}

TEST_F(QXBugReporterTest, theCrashReporterCanBeSwitchedOffForTheVendorsApplications) {
    const std::pair<QVariant, bool> cases[] = {
        {u"1"_s, true},  {true, true},      {qlonglong(1), true},
        {u"0"_s, false}, {u"yes"_s, false}, {false, false},
    };
    const QString crash = report(crashName);
    for (const auto& [value, disabled] : cases) {
        SCOPED_TRACE(value.toString().toStdString());
        ASSERT_TRUE(
            writeFile(QXLocalPaths::vendorPreferencesPath(),
                      PropertyList::toXml(QVariantMap{{u"disable-crash-reporter"_s, value}})));
        record(u"launch"_s, 60);
        opened.clear();
        console.clear();
        EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), crash);
        EXPECT_EQ(opened.isEmpty(), disabled);
        EXPECT_EQ(console.contains(u"Crash reporter disabled"_s), disabled);
    }
    EXPECT_TRUE(currentLogText().contains(u" - Crash reporter disabled"_s));
}

TEST_F(QXBugReporterTest, theBugReporterShowsTheReportAndKeepsCopiesWithoutOverwriting) {
    const QString program = QStringLiteral(SEQMATE_BUGREPORTER_PATH);
    const QByteArray text = "Signal: 11 (SIGSEGV)\n";
    const QString crash = tree.file(crashName, text);
    tree.file(u"kept/"_s + crashName, "older");
    tree.file(u"saved.txt"_s, "older");
    const QString shown = QXTask::stringFromTask(
        program, {u"--save"_s, tree(u"saved.txt"_s), u"--copy"_s, tree(u"kept"_s), crash},
        QXTask::Encoding::UTF8, 20.0);
    EXPECT_TRUE(shown.contains(QString::fromUtf8(text.trimmed()))) << shown.toStdString();
    EXPECT_EQ(tree.read(u"saved 2.txt"_s), text);
    EXPECT_EQ(tree.read(u"kept/Probe_2011-03-03-140509_h 2.crash"_s), text);
    EXPECT_EQ(tree.read(u"saved.txt"_s), QByteArray("older"));
    EXPECT_EQ(QXTask::terminationCodeFromTask(program, {tree(u"missing"_s)}, 20.0), 1);
}

TEST(CrashHandlerTest, timeStampsAreCivilDatesWithoutTheCLibrary) {
    // The epoch's edges, leap days, the century rule.
    const QList<long long> seconds = {0, -1, 951782400, 1299161109, 4107542399, 4107542400};
    char out[18];
    for (const long long s : seconds)
        for (const long offset : {0L, 3600L, -7200L}) {
            CrashHandler::formatTimestamp(s, offset, out);
            ASSERT_EQ(
                QString::fromLatin1(out),
                QDateTime::fromSecsSinceEpoch(s + offset, Qt::UTC).toString(u"yyyy-MM-dd-HHmmss"_s))
                << s << " " << offset;
        }
}

TEST_F(QXBugReporterTest, aCrashWritesAReportTheNextLaunchFinds) {
    record(u"launch"_s, 60);
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

    const QStringList written =
        QDir(CrashHandler::reportFolder()).entryList({u"Probe_*.crash"_s}, QDir::Files);
    ASSERT_EQ(written.size(), 1);
    EXPECT_TRUE(matches(u"Probe_\\d{4}-\\d\\d-\\d\\d-\\d{6}_[\\w-]+\\.crash"_s, written.first()))
        << written.first().toStdString();
    const QString path = CrashHandler::reportFolder() + u'/' + written.first();
    const QString text = readText(path);
    EXPECT_TRUE(text.contains(u"Signal:      11 (SIGSEGV)"_s)) << text.toStdString();
    EXPECT_TRUE(text.contains(u"Process:     Probe [%1]"_s.arg(child)));
    EXPECT_TRUE(text.contains(u"\nBacktrace:\n"_s));
    EXPECT_GT(text.count(u'\n'), 9); // the frames follow
    EXPECT_EQ(QXBugReporter::checkForCrashes(app, plist), path);
}

} // namespace
