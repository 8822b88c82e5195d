#include "QXTroubleshootingUtils.h"
#include "SupportTest.h"

#include <QSettings>

#include <sys/stat.h>

using namespace Qt::StringLiterals;
using Outcome = QXGatherResult::Outcome;

namespace {

// Records what would be shown ("message|text") and opened.
struct RecordingFrontEnd : QXTroubleshootingFrontEnd {
    QStringList alerts, opened;
    void showAlertPanel(const QString& message, const QString& text) override {
        alerts.append(message + u'|' + text);
    }
    void openWithDefaultApplication(const QString& path) override { opened.append(path); }
};

// A name no real installation uses: the machine-wide folders are gathered too.
const QString app = u"Probe"_s;

class QXTroubleshootingTest : public SupportTest {
protected:
    void SetUp() override {
        // A private temporary folder: parallel test processes share /tmp.
        qputenv("TMPDIR", QFile::encodeName(tree.path()));
        QXLocalPaths::setConsoleUserForTesting(QString());
        QXTroubleshootingUtils::setFrontEnd(frontEnd);
        logs = QXLocalPaths::libraryDirectory(true) + u"/Logs/Corvane"_s;
        reports = QXLocalPaths::logDirectory(true);
        prefs = QXLocalPaths::prefsDirectory(true);
        desktop = QXLocalPaths::desktopDirectory();
        probeLog = logs + u"/Probe.1.log"_s;
        QDir().mkpath(desktop);
    }
    void TearDown() override {
        QXTroubleshootingUtils::setFrontEnd(nullptr);
        QXLocalPaths::setConsoleUserForTesting(std::nullopt);
        qputenv("TMPDIR", oldTmp);
        // Empty the private home's folders for the next test, sparing the program's own log.
        for (const QString& f : QDir(logs).entryList({u"Probe*"_s}, QDir::Files | QDir::System))
            QFile::remove(logs + u'/' + f);
        for (const QString& dir : QStringList{reports + u"/DiagnosticReports"_s,
                                              reports + u"/CrashReporter"_s, prefs, desktop})
            QDir(dir).removeRecursively();
        QFile::remove(settingsFile());
    }
    static QString settingsFile() {
        return QSettings(QSettings::NativeFormat, QSettings::UserScope, u"Corvane"_s, app)
            .fileName();
    }
    static QString inArchive(const QString& path) { return u"QX_App_Logs"_s + path; }
    static QXGatherResult gather() { return QXTroubleshootingUtils::gatherLogsForAppWithName(app); }

    const QByteArray oldTmp = qgetenv("TMPDIR");
    std::shared_ptr<RecordingFrontEnd> frontEnd = std::make_shared<RecordingFrontEnd>();
    QString logs, reports, prefs, desktop, probeLog;
};

TEST_F(QXTroubleshootingTest, whatCannotBeGatheredIsExplainedOrEndsQuietly) {
    writeFile(logs + u"/Other.1.log"_s);
    writeFile(reports + u"/DiagnosticReports/ProbeHelper_2011-03-03-140509_h.crash"_s);
    EXPECT_EQ(gather().outcome, Outcome::NoLogsFound);
    EXPECT_EQ(frontEnd->alerts,
              QStringList{u"No logs found|There were no logs available to gather."_s});
    EXPECT_TRUE(QDir(desktop).isEmpty());

    frontEnd->alerts.clear();
    EXPECT_EQ(QXTroubleshootingUtils::gatherLogsForAppsWithNames({app}, true).outcome,
              Outcome::NoLogsFound);
    // A missing additional file stops the gathering.
    writeFile(probeLog);
    EXPECT_EQ(
        QXTroubleshootingUtils::gatherLogsForAppsWithNames({app}, false, {tree(u"missing.txt"_s)})
            .outcome,
        Outcome::Failed);
    EXPECT_TRUE(frontEnd->alerts.isEmpty()); // silent
    ASSERT_FALSE(console.lines().isEmpty());
    EXPECT_TRUE(console.lines().last().startsWith(u"Unable to copy file: "_s));

    QDir(desktop).removeRecursively();
    EXPECT_EQ(gather().outcome, Outcome::NotGathered);
    EXPECT_EQ(frontEnd->alerts,
              QStringList{u"Logs could not be gathered|Please check your file permissions."_s});
    EXPECT_FALSE(QFileInfo::exists(QXTroubleshootingUtils::workFolder()));

    // A file standing where the temporary folder should be: ends quietly.
    frontEnd->alerts.clear();
    console.clear();
    QDir().mkpath(desktop);
    qputenv("TMPDIR", QFile::encodeName(tree.file(u"blocker"_s)));
    EXPECT_EQ(gather().outcome, Outcome::Failed);
    EXPECT_TRUE(frontEnd->alerts.isEmpty());
    ASSERT_EQ(console.lines().size(), 1);
    EXPECT_TRUE(console.lines().first().startsWith(u"Error creating temp folder: "_s));
}

TEST_F(QXTroubleshootingTest, gathersLogsCrashReportsAndPreferencesWithLinksAsTheyAre) {
    const QString taken[] = {probeLog, logs + u"/Probe.2.log"_s,
                             reports + u"/DiagnosticReports/Probe_2011-03-03-140509_h.crash"_s,
                             reports + u"/CrashReporter/Probe_2010-01-01-000000_h.crash"_s,
                             prefs + u"/com.corvane.probe.plist"_s}; // the lower-case fallback
    const QString left[] = {logs + u"/Other.1.log"_s, logs + u"/Probe.notes"_s,
                            reports +
                                u"/DiagnosticReports/ProbeHelper_2011-03-03-140509_h.crash"_s};
    for (const QString& path : taken)
        writeFile(path);
    for (const QString& path : left)
        writeFile(path);
    QFile::link(tree.file(u"elsewhere.txt"_s, "linked contents"), logs + u"/Probe.3.log"_s);
    QFile::link(tree(u"gone"_s), logs + u"/Probe.4.log"_s);
    QSettings(u"Corvane"_s, app).setValue(u"conflictAction"_s, 1);
    const QString extra = file("batch/job.sqb", "batch");

    const QXGatherResult r =
        QXTroubleshootingUtils::gatherLogsForAppsWithNames({app}, false, {extra});
    ASSERT_TRUE(r.success) << console.lines().join(u'\n').toStdString();
    EXPECT_EQ(r.outcome, Outcome::Gathered);
    EXPECT_EQ(frontEnd->alerts,
              QStringList{
                  u"Logs gathered successfully|The gathered logs were placed on your desktop."_s});
    EXPECT_EQ(r.archivePath, desktop + u"/Probe Logs.zip"_s);
    EXPECT_EQ(r.found, 8);
    EXPECT_FALSE(QFileInfo::exists(QXTroubleshootingUtils::workFolder()));

    const auto entries = readZip(r.archivePath);
    for (const QString& path : taken)
        EXPECT_TRUE(entries.contains(inArchive(path))) << path.toStdString();
    EXPECT_TRUE(entries.contains(inArchive(settingsFile())));
    EXPECT_TRUE(entries.contains(inArchive(extra)));
    for (const QString& path : left)
        EXPECT_FALSE(entries.contains(inArchive(path))) << path.toStdString();
    EXPECT_TRUE(S_ISREG(entries.value(inArchive(logs + u"/Probe.3.log"_s)).first));
    EXPECT_TRUE(S_ISLNK(entries.value(inArchive(logs + u"/Probe.4.log"_s)).first));
    // Gathering again keeps the first archive: the second has a time stamp in its name.
    const QString again = gather().archivePath;
    EXPECT_TRUE(
        matches(QRegularExpression::escape(desktop) + u"/Probe Logs_\\d{14}\\.zip"_s, again))
        << again.toStdString();
}

} // namespace
