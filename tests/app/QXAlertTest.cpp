// Alert sheets: answers from every thread, timed sheets, the delegate check,
// the request dictionary, "%" in informative texts and the suppression box.
#include "QXAlert.h"
#include "AppTest.h"
#include "QXConsole.h"
#include "Sheets.h"

#include <QCheckBox>
#include <QElapsedTimer>
#include <QMainWindow>
#include <QSettings>

#include <atomic>
#include <thread>

class EndRecorder : public QObject {
    Q_OBJECT
public:
    Q_INVOKABLE void sheetEnded(QXAlert* alert, int returnCode) {
        endedAlert = alert;
        answers.append(returnCode);
    }
    QXAlert* endedAlert = nullptr;
    QList<int> answers;
};

class QXAlertTest : public QObject {
    Q_OBJECT
private slots:
    void init() {
        m_window = new QMainWindow;
        m_window->resize(600, 400);
        m_window->show();
    }
    void cleanup() { delete m_window; }

    void blockingFromWorkerReturnsTheButtonPressed_data() {
        QTest::addColumn<QString>("button");
        QTest::addColumn<int>("answer");
        QTest::newRow("default") << "Rename" << 1;
        QTest::newRow("alternate") << "Cancel" << 0;
        QTest::newRow("other") << "Stop" << -1;
    }
    void blockingFromWorkerReturnsTheButtonPressed() {
        QFETCH(QString, button);
        QFETCH(int, answer);
        std::atomic<int> result{42};
        std::atomic<bool> done{false};
        std::thread worker([&] {
            result = QXAlert::alertSheetWithMessageText(
                QStringLiteral("Rename 3 files?"), QStringLiteral("Rename"),
                QStringLiteral("Cancel"), QStringLiteral("Stop"), QStringLiteral("100%% sure"),
                m_window, true);
            done = true;
        });
        QMessageBox* box = waitForSheet();
        QVERIFY(box);
        QCOMPARE(box->parentWidget(), m_window);
        QCOMPARE(box->windowModality(), Qt::WindowModal);
        QCOMPARE(box->text(), QStringLiteral("Rename 3 files?"));
        QCOMPARE(box->informativeText(), QStringLiteral("100% sure"));
        QVERIFY(!done);
        sheetButton(box, button)->click();
        // The worker looks up often: it resumes well within a second.
        QTRY_VERIFY_WITH_TIMEOUT(done, 1000);
        worker.join();
        QCOMPARE(result.load(), answer);
        QTRY_VERIFY(!QApplication::activeModalWidget());
    }

    // The main thread waits for the asking thread without answering: the
    // asker's reason to give up ends its wait, and the sheet goes away.
    void blockingWorkerGivesUpWhileTheMainThreadWaitsForIt() {
        std::atomic<bool> stop{false};
        std::atomic<int> result{42};
        std::thread worker([&] {
            QXAlert alert;
            alert.setGiveUp([&] { return stop.load(); });
            result = QXAlert::alertSheetWithMessageText(QStringLiteral("Waiting"), QString(),
                                                        QString(), QString(), QString(), m_window,
                                                        nullptr, QString(), true, &alert);
        });
        QVERIFY(waitForSheet());
        stop = true;
        worker.join(); // no events are processed meanwhile
        QCOMPARE(result.load(), -1);
        QTRY_VERIFY(!QApplication::activeModalWidget());
    }

    void blockingOnMainThreadKeepsTheWindowAlive() {
        int ticks = 0;
        QTimer ticker;
        connect(&ticker, &QTimer::timeout, [&] { ++ticks; });
        ticker.start(5);
        QTimer::singleShot(100, [] { answerNextSheet(QStringLiteral("Cancel")); });
        const int answer = QXAlert::alertSheetWithMessageText(
            QStringLiteral("Quit?"), QStringLiteral("Quit"), QStringLiteral("Cancel"), QString(),
            QString(), m_window, true);
        QCOMPARE(answer, 0);
        QVERIFY(ticks > 5); // the window's events ran while the sheet was up
    }

    void timedSheetAnswersOneAndClosesItself() {
        QPointer<QMessageBox> shown;
        QTimer::singleShot(200, [&] { shown = waitForSheet(); });
        QElapsedTimer clock;
        clock.start();
        const int answer = QXAlert::timedAlertSheetWithMessageText(
            QStringLiteral("Gaps found"), QStringLiteral("OK"), QStringLiteral("Cancel"), QString(),
            QString(), m_window, 1);
        QCOMPARE(answer, 1);
        QVERIFY(clock.elapsed() >= 1000);
        QTRY_VERIFY(!shown || !shown->isVisible());
        QVERIFY(!QApplication::activeModalWidget());
    }

    void timedSheetAnsweredEarlyKeepsTheAnswer() {
        QTimer::singleShot(50, [] { answerNextSheet(QStringLiteral("Cancel")); });
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(QXAlert::timedAlertSheetWithMessageText(
                     QStringLiteral("Gaps found"), QStringLiteral("OK"), QStringLiteral("Cancel"),
                     QString(), QString(), m_window, 30),
                 0);
        QVERIFY(clock.elapsed() < 10000); // the timer thread was not waited out
    }

    void delegateWithoutTheEndMessageShowsNothing() {
        QStringList console;
        QXConsole::setSink([&](const QString& line) { console.append(line); });
        QObject plain;
        const int answer = QXAlert::alertSheetWithMessageText(
            QStringLiteral("Hello"), QString(), QString(), QString(), QString(), m_window, &plain,
            QStringLiteral("sheetEnded"), true);
        QXConsole::setSink({});
        QCOMPARE(answer, -1);
        QCOMPARE(console, QStringList{QStringLiteral(
                              "Alert error: delegate does not respond to selector sheetEnded")});
        QVERIFY(m_window->findChildren<QMessageBox*>().isEmpty());
    }

    void nonBlockingAnswerReachesTheDelegate() {
        EndRecorder recorder;
        QXAlert alert;
        QCOMPARE(QXAlert::alertSheetWithMessageText(QStringLiteral("Done"), QString(), QString(),
                                                    QString(), QString(), m_window, &recorder,
                                                    QStringLiteral("sheetEnded"), false, &alert),
                 -1);
        QMessageBox* box = waitForSheet();
        QVERIFY(box && alert.alert() == box);
        QVERIFY(recorder.answers.isEmpty());
        sheetButton(box, QStringLiteral("OK"))->click();
        QCOMPARE(recorder.answers, QList<int>{1});
        QCOMPARE(recorder.endedAlert, &alert);
        QVERIFY(alert.alertEnded());
    }

    void requestHoldsOnlyWhatIsGiven() {
        const QVariantMap minimal = QXAlert::requestDictionary(
            QStringLiteral("m"), QString(), QString(), QString(), QString(), QString(), QString());
        QCOMPARE(minimal.keys(), QStringList{QStringLiteral("messageText")});
        const QVariantMap full = QXAlert::requestDictionary(
            QStringLiteral("m"), QStringLiteral("d"), QStringLiteral("a"), QStringLiteral("o"),
            QStringLiteral("i"), QStringLiteral("sel"), QStringLiteral("key"));
        QCOMPARE(full.size(), 7);
        QCOMPARE(full.value(QStringLiteral("alternateButtonTitle")), QVariant(QStringLiteral("a")));
        QCOMPARE(full.value(QStringLiteral("suppressionBinding")), QVariant(QStringLiteral("key")));
        // An empty title is given (an empty button), unlike a missing one.
        QVERIFY(QXAlert::requestDictionary({}, QStringLiteral(""), {}, {}, {}, {}, {})
                    .contains(QStringLiteral("defaultButtonTitle")));
    }

    void informativeTextIsAFormatWithoutArguments_data() {
        QTest::addColumn<QString>("format");
        QTest::addColumn<QString>("shown");
        QTest::newRow("escaped") << "100%% done"
                                 << "100% done";
        QTest::newRow("object") << "%@ were renamed"
                                << " were renamed";
        QTest::newRow("flags, width, precision") << "[%-8.2f]"
                                                 << "[]";
        QTest::newRow("positional") << "a%2$@b"
                                    << "ab";
        QTest::newRow("space flag reads on") << "5% done"
                                             << "5one";
        QTest::newRow("octal in a name") << "50%off.jpg"
                                         << "50ff.jpg";
        QTest::newRow("long") << "%lld frames"
                              << " frames";
        QTest::newRow("no conversion") << "%y %"
                                       << "%y %";
        QTest::newRow("plain") << "no directives"
                               << "no directives";
    }
    void informativeTextIsAFormatWithoutArguments() {
        QFETCH(QString, format);
        QFETCH(QString, shown);
        QCOMPARE(QXAlert::formatWithoutArguments(format), shown);
    }

    void suppressionBoxWritesItsUserDefault() {
        const QString key = QStringLiteral("suppressGapWarning");
        QSettings().remove(key);
        QXAlert::alertSheetWithMessageText(QStringLiteral("Gaps"), QString(), QString(), QString(),
                                           QString(), m_window, nullptr, QString(), false, nullptr,
                                           key);
        QMessageBox* box = waitForSheet();
        QVERIFY(box && box->checkBox());
        QCOMPARE(box->checkBox()->text(), QStringLiteral("Do not show this message again"));
        QVERIFY(!box->checkBox()->isChecked());
        box->checkBox()->click();
        QCOMPARE(QSettings().value(key).toBool(), true);
        sheetButton(box, QStringLiteral("OK"))->click();
    }

private:
    QMainWindow* m_window = nullptr;
};

SEQMATE_APP_TEST_MAIN(QXAlertTest)
#include "QXAlertTest.moc"
