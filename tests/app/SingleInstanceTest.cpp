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
    // The socket a killed instance leaves (bound, closed, never unlinked)
    // answers nobody: this launch opens its own window and takes the socket
    // over, and later launches hand their paths to it.
    void aSecondLaunchHandsItsPathsToTheFirst() {
        const QString name = m_dir.path() + u"/instance"_s;
        const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        qstrncpy(address.sun_path, QFile::encodeName(name).constData(), sizeof address.sun_path);
        QCOMPARE(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
        ::close(fd);

        SingleInstance first(name);
        QVERIFY(!first.handOver({u"a.exr"_s}, 500));
        QVERIFY(first.listen());
        QSignalSpy received(&first, &SingleInstance::filesReceived);
        QVERIFY(handOverFromAnotherThread(name, {u"rel/shot.0001.exr"_s, u"/abs/B.SQB"_s}));
        QTRY_COMPARE(received.size(), 1);
        QCOMPARE(received.first().first().toStringList(),
                 QStringList(
                     {QDir::current().absoluteFilePath(u"rel/shot.0001.exr"_s), u"/abs/B.SQB"_s}));
        QVERIFY(handOverFromAnotherThread(name, {}));
        QTRY_COMPARE(received.size(), 2);
        QCOMPARE(received.last().first().toStringList(), QStringList());
    }
};

SEQMATE_APP_TEST_MAIN(SingleInstanceTest)
#include "SingleInstanceTest.moc"
