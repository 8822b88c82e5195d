#include "BugReportWindow.h"
#include "AppTest.h"

#include <QClipboard>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>

using namespace Qt::StringLiterals;

class BugReportWindowTest : public QObject {
    Q_OBJECT
private slots:
    void aMissingReportIsSaidAndNothingCanBeSaved() {
        BugReportWindow window(u"/nonexistent/Seqmate_1.crash"_s);
        const QString headline = window.findChild<QLabel*>(u"headline"_s)->text();
        QVERIFY2(headline.startsWith(u"Unable to read crash report /nonexistent/Seqmate_1.crash"_s),
                 qPrintable(headline));
        QVERIFY(!window.findChild<QPushButton*>(u"saveButton"_s)->isEnabled());
        QVERIFY(!window.findChild<QPushButton*>(u"copyButton"_s)->isEnabled());
    }

    void theReportIsShownSavedAndCopiedByteForByte() {
        QTemporaryDir dir;
        const QByteArray text = "Signal: 11 (SIGSEGV)\nBacktrace:\n  é frame\n";
        QFile report(dir.filePath(u"Seqmate_2.crash"_s));
        QVERIFY(report.open(QIODevice::WriteOnly) && report.write(text) == text.size());
        report.close();
        BugReportWindow window(report.fileName());
        QCOMPARE(window.findChild<QPlainTextEdit*>(u"reportText"_s)->toPlainText(),
                 QString::fromUtf8(text));

        const QString saved = dir.filePath(u"kept.txt"_s);
        QCOMPARE(window.saveTo(saved), saved);
        QFile back(saved);
        QVERIFY(back.open(QIODevice::ReadOnly));
        QCOMPARE(back.readAll(), text);
        QCOMPARE(window.saveTo(dir.filePath(u"no/such/folder/x.txt"_s)), QString());
        QVERIFY(window.findChild<QLabel*>(u"status"_s)->text().startsWith(u"Unable to save"_s));

        window.findChild<QPushButton*>(u"copyButton"_s)->click();
        QCOMPARE(QApplication::clipboard()->text(), QString::fromUtf8(text));
    }
};

SEQMATE_APP_TEST_MAIN(BugReportWindowTest)
#include "BugReportWindowTest.moc"
