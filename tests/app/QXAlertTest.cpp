// Alert sheets: answers from every thread, timed sheets, "%" in informative
// texts and the suppression box.
#include "QXAlert.h"
#include "AppTest.h"
#include "Sheets.h"

#include <QCheckBox>
#include <QElapsedTimer>
#include <QMainWindow>
#include <QSettings>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;

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
            result =
                QXAlert::alertSheetWithMessageText(u"Rename 3 files?"_s, u"Rename"_s, u"Cancel"_s,
                                                   u"Stop"_s, u"100%% sure"_s, m_window, true);
            done = true;
        });
        QMessageBox* box = waitForSheet();
        QVERIFY(box);
        QCOMPARE(box->windowModality(), Qt::WindowModal); // a sheet on its window
        QCOMPARE(box->text(), u"Rename 3 files?"_s);
        QCOMPARE(box->informativeText(), u"100% sure"_s);
        QVERIFY(!done);
        sheetButton(box, button)->click();
        // The worker looks up often: it resumes well within a second.
        QTRY_VERIFY_WITH_TIMEOUT(done, 1000);
        worker.join();
        QCOMPARE(result.load(), answer);
        QTRY_VERIFY(!QApplication::activeModalWidget());
    }

    // A timed sheet, blocking on the main thread, answers as its default button
    // when the time is up; an earlier answer stands (it comes from a timer: the
    // window's events run meanwhile), and the timer thread is not waited out.
    void timedSheetClosesItselfUnlessAnsweredFirst_data() {
        QTest::addColumn<QString>("press"); // nothing: the time runs out
        QTest::addColumn<int>("seconds");
        QTest::addColumn<int>("answer");
        QTest::newRow("time runs out") << QString() << 1 << 1;
        QTest::newRow("answered first") << u"Cancel"_s << 30 << 0;
    }
    void timedSheetClosesItselfUnlessAnsweredFirst() {
        QFETCH(QString, press);
        QFETCH(int, seconds);
        QFETCH(int, answer);
        if (!press.isEmpty()) answerNextSheet(press);
        QElapsedTimer clock;
        clock.start();
        QCOMPARE(QXAlert::timedAlertSheetWithMessageText(u"Gaps found"_s, u"OK"_s, u"Cancel"_s,
                                                         QString(), QString(), m_window, seconds),
                 answer);
        QVERIFY(press.isEmpty() ? clock.elapsed() >= 1000 : clock.elapsed() < 10000);
        QTRY_VERIFY(!QApplication::activeModalWidget());
    }

    // Not blocking: the answer reaches the delegate later; the suppression
    // box writes its user default as soon as it is clicked.
    void nonBlockingAnswerReachesTheDelegate() {
        const QString key = u"suppressGapWarning"_s;
        QSettings().remove(key);
        EndRecorder recorder;
        QXAlert alert;
        QCOMPARE(QXAlert::alertSheetWithMessageText(u"Done"_s, QString(), QString(), QString(),
                                                    QString(), m_window, &recorder, u"sheetEnded"_s,
                                                    false, &alert, key),
                 -1);
        QMessageBox* box = waitForSheet();
        QVERIFY(box && alert.alert() == box && box->checkBox());
        QCOMPARE(box->checkBox()->text(), u"Do not show this message again"_s);
        box->checkBox()->click();
        QCOMPARE(QSettings().value(key).toBool(), true);
        QVERIFY(recorder.answers.isEmpty());
        sheetButton(box, u"OK"_s)->click();
        QCOMPARE(recorder.answers, QList<int>{1});
        QCOMPARE(recorder.endedAlert, &alert);
    }

private:
    QMainWindow* m_window = nullptr;
};

SEQMATE_APP_TEST_MAIN(QXAlertTest)
#include "QXAlertTest.moc"
