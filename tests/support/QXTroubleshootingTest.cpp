#include "ConsoleCapture.h"
#include "QXFileManager.h"
#include "QXLocalPaths.h"
#include "QXTroubleshootingUtils.h"
#include "TempTree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>
#include <QSettings>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <zip.h>

namespace {

// Records what would be shown and opened.
struct RecordingFrontEnd : QXTroubleshootingFrontEnd {
    QStringList alerts; // "message|text"
    QStringList opened;
    void showAlertPanel(const QString& message, const QString& text) override {
        alerts.append(message + u'|' + text);
    }
    void openWithDefaultApplication(const QString& path) override { opened.append(path); }
};

// Zip entry names with their unix modes.
QMap<QString, quint32> zipEntries(const QString& path) {
    QMap<QString, quint32> entries;
    int err = 0;
    zip_t* za = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &err);
    if (!za) return entries;
    for (zip_int64_t i = 0; i < zip_get_num_entries(za, 0); ++i) {
        zip_uint8_t os = 0;
        zip_uint32_t attributes = 0;
        zip_file_get_external_attributes(za, static_cast<zip_uint64_t>(i), 0, &os, &attributes);
        entries.insert(QString::fromUtf8(zip_get_name(za, static_cast<zip_uint64_t>(i), 0)),
                       attributes >> 16);
    }
    zip_close(za);
    return entries;
}

class QXTroubleshootingTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { startUserLog(); }

    void SetUp() override {
        // A private temporary folder: parallel test processes share /tmp.
        m_oldTmp = qgetenv("TMPDIR");
        qputenv("TMPDIR", QFile::encodeName(tmp.path()));
        QXLocalPaths::setConsoleUserForTesting(QString());
        QXTroubleshootingUtils::setFrontEnd(frontEnd);
        QDir().mkpath(desktop());
        logs = QXLocalPaths::libraryDirectory(true) + QStringLiteral("/Logs/Corvane");
        reports = QXLocalPaths::logDirectory(true);
        prefs = QXLocalPaths::prefsDirectory(true);
    }
    void TearDown() override {
        QXTroubleshootingUtils::setFrontEnd(nullptr);
        QXLocalPaths::setConsoleUserForTesting(std::nullopt);
        qputenv("TMPDIR", m_oldTmp);
        // The folders live in the test program's private home; empty them for the
        // next test, sparing the program's own log.
        QDir(reports + QStringLiteral("/DiagnosticReports")).removeRecursively();
        QDir(reports + QStringLiteral("/CrashReporter")).removeRecursively();
        for (const QString& f :
             QDir(logs).entryList({QStringLiteral("Probe*")}, QDir::Files | QDir::System))
            QFile::remove(logs + u'/' + f);
        QDir(prefs).removeRecursively();
        QDir(desktop()).removeRecursively();
        QFile::remove(settingsFile());
    }

    // A name no real installation uses: the machine-wide folders are gathered too.
    static QString app() { return QStringLiteral("Probe"); }
    static QString desktop() { return QXLocalPaths::desktopDirectory(); }
    static QString settingsFile() {
        return QSettings(QSettings::NativeFormat, QSettings::UserScope, QStringLiteral("Corvane"),
                         app())
            .fileName();
    }
    static void write(const QString& path, const QByteArray& data = "x") {
        QDir().mkpath(QFileInfo(path).path());
        QFile f(path);
        ASSERT_TRUE(f.open(QIODevice::WriteOnly));
        f.write(data);
    }
    // The archive entry that mirrors an absolute path.
    static QString inArchive(const QString& path) { return QStringLiteral("QX_App_Logs") + path; }

    ConsoleCapture console;
    TempTree tmp;
    std::shared_ptr<RecordingFrontEnd> frontEnd = std::make_shared<RecordingFrontEnd>();
    QString logs, reports, prefs;
    QByteArray m_oldTmp;
};

TEST_F(QXTroubleshootingTest, nothingToGatherSaysNoLogsFoundAndMakesNoArchive) {
    write(logs + QStringLiteral("/Other.1.log"));
    write(reports + QStringLiteral("/DiagnosticReports/ProbeHelper_2011-03-03-140509_h.crash"));
    const QXGatherResult r = QXTroubleshootingUtils::gatherLogsForAppWithName(app());
    EXPECT_FALSE(r.success);
    EXPECT_EQ(r.outcome, QXGatherResult::Outcome::NoLogsFound);
    EXPECT_EQ(frontEnd->alerts,
              QStringList{QStringLiteral("No logs found|There were no logs available to gather.")});
    EXPECT_TRUE(QDir(desktop()).isEmpty());

    frontEnd->alerts.clear();
    EXPECT_EQ(QXTroubleshootingUtils::gatherLogsForAppsWithNames({app()}, true).outcome,
              QXGatherResult::Outcome::NoLogsFound);
    EXPECT_TRUE(frontEnd->alerts.isEmpty()); // silent
    EXPECT_EQ(QXTroubleshootingUtils::gatherLogsForAppsWithNames({}).outcome,
              QXGatherResult::Outcome::Failed);
    EXPECT_FALSE(QXTroubleshootingUtils::gatherLogsForAppWithName(QString()));
    EXPECT_TRUE(frontEnd->alerts.isEmpty());
}

TEST_F(QXTroubleshootingTest, gathersLogsCrashReportsAndPreferencesWithLinksAsTheyAre) {
    write(logs + QStringLiteral("/Probe.1.log"), "current");
    write(logs + QStringLiteral("/Probe.2.log"), "previous");
    write(logs + QStringLiteral("/Other.1.log"));
    write(logs + QStringLiteral("/Probe.notes"));
    const QString real = tmp.file(QStringLiteral("elsewhere.txt"), "linked contents");
    QFile::link(real, logs + QStringLiteral("/Probe.3.log"));
    QFile::link(tmp(QStringLiteral("gone")), logs + QStringLiteral("/Probe.4.log"));
    write(reports + QStringLiteral("/DiagnosticReports/Probe_2011-03-03-140509_h.crash"));
    write(reports + QStringLiteral("/DiagnosticReports/ProbeHelper_2011-03-03-140509_h.crash"));
    write(reports + QStringLiteral("/CrashReporter/Probe_2010-01-01-000000_h.crash"));
    write(prefs + QStringLiteral("/com.corvane.probe.plist")); // the lower-case fallback
    {
        QSettings s(QStringLiteral("Corvane"), app());
        s.setValue(QStringLiteral("conflictAction"), 1);
    }

    const QXGatherResult r = QXTroubleshootingUtils::gatherLogsForAppWithName(app());
    ASSERT_TRUE(r.success) << console.lines().join(u'\n').toStdString();
    EXPECT_EQ(r.outcome, QXGatherResult::Outcome::Gathered);
    EXPECT_EQ(frontEnd->alerts, QStringList{QStringLiteral(
                                    "Logs gathered successfully|The gathered logs were placed on "
                                    "your desktop.")});
    EXPECT_EQ(r.archivePath, desktop() + QStringLiteral("/Probe Logs.zip"));
    EXPECT_EQ(r.found, 8);
    EXPECT_FALSE(QFileInfo::exists(QXTroubleshootingUtils::workFolder()));

    const auto entries = zipEntries(r.archivePath);
    for (const QString& taken :
         QStringList{logs + QStringLiteral("/Probe.1.log"), logs + QStringLiteral("/Probe.2.log"),
                     reports + QStringLiteral("/DiagnosticReports/Probe_2011-03-03-140509_h.crash"),
                     reports + QStringLiteral("/CrashReporter/Probe_2010-01-01-000000_h.crash"),
                     prefs + QStringLiteral("/com.corvane.probe.plist"), settingsFile()})
        EXPECT_TRUE(entries.contains(inArchive(taken))) << taken.toStdString();
    for (const QString& left : QStringList{
             logs + QStringLiteral("/Other.1.log"), logs + QStringLiteral("/Probe.notes"),
             reports + QStringLiteral("/DiagnosticReports/ProbeHelper_2011-03-03-140509_h.crash")})
        EXPECT_FALSE(entries.contains(inArchive(left))) << left.toStdString();
    EXPECT_TRUE(S_ISREG(entries.value(inArchive(logs + QStringLiteral("/Probe.3.log")))));
    EXPECT_TRUE(S_ISLNK(entries.value(inArchive(logs + QStringLiteral("/Probe.4.log")))));
}

TEST_F(QXTroubleshootingTest, aSecondArchiveGetsATimeStampAndTheFirstStays) {
    write(logs + QStringLiteral("/Probe.1.log"));
    const QXGatherResult first = QXTroubleshootingUtils::gatherLogsForAppWithName(app());
    const QXGatherResult second = QXTroubleshootingUtils::gatherLogsForAppWithName(app());
    ASSERT_TRUE(first.success);
    ASSERT_TRUE(second.success);
    EXPECT_TRUE(QFileInfo::exists(first.archivePath));
    EXPECT_TRUE(QFileInfo::exists(second.archivePath));
    EXPECT_TRUE(QRegularExpression(QStringLiteral("/Probe Logs_\\d{14}\\.zip$"))
                    .match(second.archivePath)
                    .hasMatch())
        << second.archivePath.toStdString();
    // Within the same second a third one still gets a name of its own.
    const QXGatherResult third = QXTroubleshootingUtils::gatherLogsForAppWithName(app());
    ASSERT_TRUE(third.success);
    EXPECT_EQ(QDir(desktop()).entryList(QDir::Files).size(), 3);
}

TEST_F(QXTroubleshootingTest, aMissingDesktopMeansTheLogsCouldNotBeGathered) {
    write(logs + QStringLiteral("/Probe.1.log"));
    QDir(desktop()).removeRecursively();
    const QXGatherResult r = QXTroubleshootingUtils::gatherLogsForAppWithName(app());
    EXPECT_FALSE(r.success);
    EXPECT_EQ(r.outcome, QXGatherResult::Outcome::NotGathered);
    EXPECT_EQ(frontEnd->alerts,
              QStringList{QStringLiteral("Logs could not be gathered|Please check your file "
                                         "permissions.")});
    EXPECT_FALSE(QFileInfo::exists(QXTroubleshootingUtils::workFolder()));
}

TEST_F(QXTroubleshootingTest, additionalFilesJoinTheArchiveAndAMissingOneStopsIt) {
    write(logs + QStringLiteral("/Probe.1.log"));
    const QString extra = tmp.file(QStringLiteral("batch/job.sqb"), "batch");
    QXGatherResult r = QXTroubleshootingUtils::gatherLogsForAppsWithNames({app()}, true, {extra});
    ASSERT_TRUE(r.success);
    EXPECT_TRUE(frontEnd->alerts.isEmpty());
    EXPECT_TRUE(zipEntries(r.archivePath).contains(inArchive(extra)));

    r = QXTroubleshootingUtils::gatherLogsForAppsWithNames({app()}, false,
                                                           {tmp(QStringLiteral("missing.txt"))});
    EXPECT_EQ(r.outcome, QXGatherResult::Outcome::Failed);
    EXPECT_TRUE(frontEnd->alerts.isEmpty());
    ASSERT_FALSE(console.lines().isEmpty());
    EXPECT_TRUE(console.lines().last().startsWith(QStringLiteral("Unable to copy file: ")));
}

TEST_F(QXTroubleshootingTest, aWorkFolderThatCannotBeMadeEndsQuietly) {
    write(logs + QStringLiteral("/Probe.1.log"));
    // A file standing where the temporary folder should be.
    const QString blocker = tmp.file(QStringLiteral("blocker"));
    qputenv("TMPDIR", QFile::encodeName(blocker));
    const QXGatherResult r = QXTroubleshootingUtils::gatherLogsForAppWithName(app());
    EXPECT_EQ(r.outcome, QXGatherResult::Outcome::Failed);
    EXPECT_TRUE(frontEnd->alerts.isEmpty());
    ASSERT_EQ(console.lines().size(), 1);
    EXPECT_TRUE(console.lines().first().startsWith(QStringLiteral("Error creating temp folder: ")));
}

TEST_F(QXTroubleshootingTest, viewingALogOpensItOrExplainsWhyNot) {
    QXViewLogResult r = QXTroubleshootingUtils::viewLogForApp(app());
    EXPECT_TRUE(r.path.isEmpty());
    EXPECT_EQ(r.messageText, QStringLiteral("No log found"));
    EXPECT_EQ(r.informativeText, QStringLiteral("You must perform a task before viewing the log."));
    r = QXTroubleshootingUtils::viewTaskLogForApp(app());
    EXPECT_EQ(r.informativeText,
              QStringLiteral("You must run the application as a task (e.g. through Tasklane) "
                             "before viewing a log."));
    EXPECT_EQ(frontEnd->alerts.size(), 2);
    EXPECT_TRUE(frontEnd->opened.isEmpty());

    write(logs + QStringLiteral("/Probe.1.log"));
    write(logs + QStringLiteral("/Probe.1.task.log"));
    EXPECT_EQ(QXTroubleshootingUtils::viewLogForApp(app()).path,
              logs + QStringLiteral("/Probe.1.log"));
    EXPECT_EQ(QXTroubleshootingUtils::viewTaskLogForApp(app()).path,
              logs + QStringLiteral("/Probe.1.task.log"));
    EXPECT_EQ(frontEnd->opened, (QStringList{logs + QStringLiteral("/Probe.1.log"),
                                             logs + QStringLiteral("/Probe.1.task.log")}));
    EXPECT_EQ(frontEnd->alerts.size(), 2);
}

} // namespace
