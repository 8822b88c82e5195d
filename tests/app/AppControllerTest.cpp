#include "AppController.h"
#include "AppTest.h"
#include "FakeDocumentHost.h"
#include "PropertyList.h"
#include "QXBugReporter.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "Sheets.h"
#include "UpdateCheck.h"

#include <QDateTime>
#include <QDesktopServices>
#include <QMenuBar>
#include <QSettings>
#include <QSignalSpy>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

QSettings defaults() {
    return QSettings(u"Corvane"_s, u"Seqmate"_s);
}

QString writeText(const QString& path, const QByteArray& text) {
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly) || f.write(text) != text.size()) return {};
    return path;
}

QStringList logLinesWith(const QString& part) {
    QXLog::finishWriting();
    QFile f(QXLog::currentLogPath());
    QStringList found;
    if (!f.open(QIODevice::ReadOnly)) return found;
    for (const QString& line : QString::fromUtf8(f.readAll()).split(u'\n'))
        if (line.contains(part)) found << line.mid(line.indexOf(part));
    return found;
}

} // namespace

// Receives what the program hands to the desktop to open.
class UrlRecorder : public QObject {
    Q_OBJECT
public:
    QList<QUrl> urls;
public slots:
    void open(const QUrl& url) { urls << url; }
};

class AppControllerTest : public QObject {
    Q_OBJECT
private slots:
    void init() {
        // An ordinary user: the super-user's log lives outside the private home.
        QXLocalPaths::setUserIdForTesting(1000);
        QXBugReporter::setReportHandler([](const QString&) { return true; });
        QFile::remove(QXLocalPaths::vendorPreferencesPath());
    }

    void startUpRecordsTheLaunchAndKeepsTheUsersSettings() {
        defaults().clear();
        defaults().setValue(u"showFullSourcePaths"_s, 1);
        // The previous run ended without a clean exit and left a report.
        defaults().setValue(u"launch"_s, QDateTime::currentDateTime().addSecs(-60));
        defaults().sync();
        const QString report =
            writeText(QXLocalPaths::logDirectory(true) +
                          u"/DiagnosticReports/Seqmate_2011-03-03-140509_h.crash"_s,
                      "Signal: 11\n");
        FakeDocumentHost host;
        AppController controller(host);
        QSignalSpy crashed(&controller, &AppController::previousRunCrashed);
        QVERIFY(crashed.wait(2000));
        QCOMPARE(crashed.first().first().toString(), report);

        QCOMPARE(defaults().value(u"showFullSourcePaths"_s).toInt(), 1);
        const QDateTime launch = defaults().value(u"launch"_s).toDateTime();
        QVERIFY(launch.secsTo(QDateTime::currentDateTime()) < 30);
        controller.applicationWillTerminate();
        QVERIFY(defaults().value(u"exit"_s).toDateTime() >= launch);
        QVERIFY(host.calls.isEmpty());                 // no window before launch()
        QVERIFY(!QApplication::windowIcon().isNull()); // the library's resources were linked in
    }

    void filesFromOutsideOpenAsBatchesOrJoinTheFrontmostDocument() {
        const struct {
            int documents;
            const char *paths, *calls;
        } cases[] = {
            // The images join the frontmost window: the last batch opened.
            {0, "a.sqb f1.exr /x/B.SQB f2.exr", "open a.sqb;open B.SQB;add f1.exr,f2.exr"},
            {0, "f.jpg batch.sqb.bak", "new;add f.jpg,batch.sqb.bak"},
            {1, "f.jpg", "add f.jpg"},
            {0, "bad.sqb good.sqb worse.sqb fine.sqb", "open good.sqb;open fine.sqb"},
        };
        FakeDocumentHost host;
        host.failures = {{u"bad.sqb"_s, u"bad is unreadable"_s},
                         {u"worse.sqb"_s, u"worse is unreadable"_s}};
        AppController controller(host);
        for (const auto& c : cases) {
            host.calls.clear();
            host.documents = c.documents;
            controller.openFiles(QString::fromLatin1(c.paths).split(u' '));
            QCOMPARE(host.calls.join(u';'), QString::fromLatin1(c.calls));
        }
        // An unreadable batch is logged again for each later file, until a new error.
        QCOMPARE(logLinesWith(u"Error: "_s),
                 QStringList({u"Error: bad is unreadable"_s, u"Error: bad is unreadable"_s,
                              u"Error: worse is unreadable"_s, u"Error: worse is unreadable"_s}));
        host.calls.clear();
        host.documents = 0;
        controller.reopen({}); // a second launch without paths
        controller.reopen({});
        QCOMPARE(host.calls, QStringList(u"new"_s));
    }

    // After launch the update program runs with "-checkpath" and this program's
    // path, unless the vendor preferences turn it off; without its desktop
    // entry nothing runs and nothing is said.
    void theUpdateProgramStartsUnlessTurnedOffOrMissing() {
        const QString argsFile = QDir::tempPath() + u"/seqmate-update-args.txt"_s;
        const QString script = writeText(QDir::homePath() + u"/bin dir/update.sh"_s,
                                         "#!/bin/sh\nprintf '%s\\n' \"$@\" > \"$ARGS_OUT\"\n");
        QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
        qputenv("ARGS_OUT", argsFile.toUtf8());
        // Another group's keys, a localised key, the \s escape, field codes and "%%".
        const QString entry = writeText(
            QStandardPaths::writableLocation(QStandardPaths::ApplicationsLocation) + u'/' +
                UpdateCheck::entryName(),
            "[Other]\nExec=wrong\n[Desktop Entry]\nType=Application\nExec[de]=wrong\nExec=\"" +
                script.toUtf8().replace(" ", "\\s") + "\" --pct=100%% %F %i\n");
        FakeDocumentHost host;
        AppController controller(host);
        const struct {
            bool entry;
            QVariant checkAtStartup; // invalid: no preferences file
            bool runs;
        } cases[] = {{true, QVariant(), true}, {true, false, false}, {false, QVariant(), false}};
        for (const auto& c : cases) {
            QFile::remove(argsFile);
            QDir().mkpath(QXLocalPaths::prefsDirectory(true));
            if (c.checkAtStartup.isValid())
                QVERIFY(PropertyList::writeFile(
                    QXLocalPaths::vendorPreferencesPath(),
                    QVariantMap{{u"SUCheckAtStartup"_s, c.checkAtStartup}}));
            if (!c.entry) QFile::remove(entry);
            controller.applicationDidFinishLaunching();
            if (c.runs) {
                QTRY_VERIFY(QFileInfo(argsFile).size() > 0);
                QFile f(argsFile);
                QVERIFY(f.open(QIODevice::ReadOnly));
                QCOMPARE(QString::fromUtf8(f.readAll()),
                         u"--pct=100%\n-checkpath\n"_s + QCoreApplication::applicationFilePath() +
                             u'\n');
            } else {
                QTest::qWait(300);
                QVERIFY(!QFileInfo::exists(argsFile));
            }
            QFile::remove(QXLocalPaths::vendorPreferencesPath());
        }
        QCOMPARE(logLinesWith(u"update"_s), QStringList());
    }

    void theHelpItemsOpenTheirPagesAndTheOthersAnswerInMessageBoxes() {
        UrlRecorder recorder;
        QDesktopServices::setUrlHandler(u"https"_s, &recorder, "open");
        QDesktopServices::setUrlHandler(u"file"_s, &recorder, "open");
        FakeDocumentHost host;
        AppController controller(host);
        controller.setAboutDialogFactory([](QWidget*) { return nullptr; });
        QMenuBar bar;
        controller.addMenus(&bar);
        const auto trigger = [&bar](const char* name) {
            auto* action = bar.findChild<QAction*>(QString::fromLatin1(name));
            QVERIFY2(action, name);
            action->trigger();
        };
        for (const char* item : {"helpQXHome", "helpTesselkitHome", "helpSupport",
                                 "helpSuggestFeature", "helpReportBug", "helpUserManual"})
            trigger(item);
        QCOMPARE(recorder.urls.size(), 5); // no manual installed: nothing opened
        QVERIFY(recorder.urls[3].toString().endsWith(u"/tesselkit/featurerequest?app=seqmate"_s));
        QVERIFY(recorder.urls[4].toString().endsWith(
            u"/tesselkit/bugreport?app=seqmate&version="_s + QStringLiteral(SEQMATE_VERSION)));

        trigger("viewLog"); // the log this launch started
        QCOMPARE(recorder.urls.last(), QUrl::fromLocalFile(QXLog::currentLogPath()));
        const struct {
            const char* item;
            QString said;
        } boxes[] = {
            {"viewTaskLog", u"No log found|You must run the application as a task (e.g. through "
                            u"Tasklane) before viewing a log."_s},
            {"gatherLogs",
             u"Logs gathered successfully|The gathered logs were placed on your desktop."_s},
            // One that cannot load is logged and reported.
            {"showAboutDialog",
             u"Error: unable to load About dialog.|Please report this error to Corvane."_s},
        };
        for (const auto& box : boxes) {
            const auto shown = answerNextSheet(u"OK"_s);
            trigger(box.item);
            QCOMPARE(*shown, box.said);
        }
        QVERIFY(QFileInfo::exists(QXLocalPaths::desktopDirectory() + u"/Seqmate Logs.zip"_s));
        QCOMPARE(logLinesWith(u"Error: unable"_s),
                 QStringList(u"Error: unable to load About dialog. Please report this error to "
                             u"Corvane."_s));
        QDesktopServices::unsetUrlHandler(u"https"_s);
        QDesktopServices::unsetUrlHandler(u"file"_s);
    }
};

SEQMATE_APP_TEST_MAIN(AppControllerTest)
#include "AppControllerTest.moc"
