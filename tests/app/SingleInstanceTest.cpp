#include "SingleInstance.h"
#include "AppTest.h"

#include <QSignalSpy>
#include <QThread>

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

class SingleInstanceTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    QString socketPath() const { return m_dir.path() + u"/instance"_s; }

    // A second launch blocks while it waits for the answer, as a separate process would.
    static bool handOverFromAnotherThread(const QString& name, const QStringList& paths) {
        bool handed = false;
        QThread* second = QThread::create([&] { handed = SingleInstance(name).handOver(paths); });
        second->start();
        while (!second->wait(10))
            QCoreApplication::processEvents();
        delete second;
        return handed;
    }

private slots:
    void aSecondLaunchHandsItsPathsToTheFirst() {
        QVERIFY(!SingleInstance(socketPath()).handOver({u"a.exr"_s}, 500));
        SingleInstance first(socketPath());
        QVERIFY(first.listen());
        QSignalSpy received(&first, &SingleInstance::filesReceived);
        QVERIFY(handOverFromAnotherThread(socketPath(), {u"rel/shot.0001.exr"_s, u"/abs/B.SQB"_s}));
        QTRY_COMPARE(received.size(), 1);
        QCOMPARE(received.first().first().toStringList(),
                 QStringList(
                     {QDir::current().absoluteFilePath(u"rel/shot.0001.exr"_s), u"/abs/B.SQB"_s}));
        QVERIFY(handOverFromAnotherThread(socketPath(), {}));
        QTRY_COMPARE(received.size(), 2);
        QCOMPARE(received.last().first().toStringList(), QStringList());
    }

    void aSocketLeftByAnInstanceThatIsGoneIsTakenOver() {
        // Bound and closed without unlinking: what a killed instance leaves behind.
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray path = QFile::encodeName(socketPath() + u"-stale"_s);
        qstrncpy(address.sun_path, path.constData(), sizeof address.sun_path);
        QCOMPARE(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);
        QVERIFY(QFileInfo::exists(QString::fromUtf8(path)));

        SingleInstance second(QString::fromUtf8(path));
        QVERIFY(
            !second.handOver({u"x"_s}, 500)); // nobody answers: this launch opens its own window
        QVERIFY(second.listen());
        QSignalSpy received(&second, &SingleInstance::filesReceived);
        QVERIFY(handOverFromAnotherThread(QString::fromUtf8(path), {u"/y"_s}));
        QTRY_COMPARE(received.size(), 1);
    }
};

SEQMATE_APP_TEST_MAIN(SingleInstanceTest)
#include "SingleInstanceTest.moc"
