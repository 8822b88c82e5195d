#pragma once
// The window tests' main: a private HOME and XDG folders for the whole run (as
// the engine tests have), then a QApplication on the offscreen platform.
#include <QApplication>
#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <cstdlib>

inline bool seqmatePrivateHome(QTemporaryDir& home) {
    if (!home.isValid()) return false;
    const QByteArray h = home.path().toUtf8();
    setenv("HOME", h.constData(), 1);
    setenv("XDG_DATA_HOME", QByteArray(h + "/.local/share").constData(), 1);
    setenv("XDG_CONFIG_HOME", QByteArray(h + "/.config").constData(), 1);
    setenv("XDG_CACHE_HOME", QByteArray(h + "/.cache").constData(), 1);
    setenv("XDG_DATA_DIRS", QByteArray(h + "/.xdg-data-dirs").constData(), 1);
    setenv("QT_QPA_PLATFORM", "offscreen", 0);
    unsetenv("SUDO_USER");
    unsetenv("PKEXEC_UID");
    QDir().mkpath(home.path() + QStringLiteral("/Desktop"));
    return true;
}

#define SEQMATE_APP_TEST_MAIN(TestClass)                                                           \
    int main(int argc, char** argv) {                                                              \
        QTemporaryDir home(QDir::tempPath() + QStringLiteral("/seqmate-apptest-home-XXXXXX"));     \
        if (!seqmatePrivateHome(home)) return 2;                                                   \
        QApplication app(argc, argv);                                                              \
        TestClass tc;                                                                              \
        return QTest::qExec(&tc, argc, argv);                                                      \
    }
