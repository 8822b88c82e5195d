// The test programs' main: a private HOME and XDG folders for the whole run,
// so that logs, preferences and the trash never touch the real user's files.
#include <QCoreApplication>
#include <QDir>
#include <QTemporaryDir>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>

int main(int argc, char** argv) {
    QTemporaryDir home(QDir::tempPath() + QStringLiteral("/seqmate-test-home-XXXXXX"));
    if (!home.isValid()) return 2;
    const QByteArray h = home.path().toUtf8();
    setenv("HOME", h.constData(), 1);
    setenv("XDG_DATA_HOME", QByteArray(h + "/.local/share").constData(), 1);
    setenv("XDG_CONFIG_HOME", QByteArray(h + "/.config").constData(), 1);
    setenv("XDG_CACHE_HOME", QByteArray(h + "/.cache").constData(), 1);
    unsetenv("SUDO_USER");
    unsetenv("PKEXEC_UID");
    QDir().mkpath(home.path() + QStringLiteral("/Desktop"));
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
