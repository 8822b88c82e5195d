#include "QXLocalPaths.h"
#include "SupportTest.h"

#include <QScopeGuard>

using namespace Qt::StringLiterals;

namespace {

// Sets (or unsets, for a null value) an environment variable until the guard goes.
auto scopedEnv(const char* name, const char* value) {
    const bool had = qEnvironmentVariableIsSet(name);
    const QByteArray old = qgetenv(name);
    value ? qputenv(name, value) : qunsetenv(name);
    return qScopeGuard([=] { had ? qputenv(name, old) : qunsetenv(name); });
}

class QXLocalPathsTest : public ::testing::Test {
protected:
    void SetUp() override { QXLocalPaths::setUserIdForTesting(501); }
    void TearDown() override {
        QXLocalPaths::setUserIdForTesting(std::nullopt);
        QXLocalPaths::setConsoleUserForTesting(std::nullopt);
        QXLocalPaths::setConsoleUserHomeForTesting(std::nullopt);
    }
    const QString home = QDir::homePath();
    const QString data = qEnvironmentVariable("XDG_DATA_HOME");
    TempTree alice;
};

TEST_F(QXLocalPathsTest, ordinaryUserFoldersFollowTheXdgLayout) {
    ASSERT_TRUE(data.startsWith(home));
    const struct {
        QString actual, expected;
    } cases[] = {
        {QXLocalPaths::libraryDirectory(true), data},
        {QXLocalPaths::libraryDirectory(false), u"/usr/local/share"_s},
        {QXLocalPaths::logDirectory(false), u"/usr/local/share/Logs"_s},
        {QXLocalPaths::cacheDirectory(true), qEnvironmentVariable("XDG_CACHE_HOME")},
        {QXLocalPaths::applicationDirectory(true), home + u"/Applications"_s},
        {QXLocalPaths::adminApplicationDirectory(false), u"/usr/local/sbin"_s},
        {QXLocalPaths::desktopDirectory(), home + u"/Desktop"_s},
        {QXLocalPaths::userDirectory(), home},
        {QXLocalPaths::trashDirectory(), data + u"/Trash/files"_s},
        {QXLocalPaths::vendorPreferencesPath(), data + u"/Preferences/com.corvane.global.plist"_s},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.actual, c.expected);
    {
        const auto unset = scopedEnv("XDG_DATA_HOME", nullptr); // unset or relative: under home
        EXPECT_EQ(QXLocalPaths::libraryDirectory(true), home + u"/.local/share"_s);
    }
    const auto relative = scopedEnv("XDG_CACHE_HOME", "relative/cache");
    EXPECT_EQ(QXLocalPaths::cacheDirectory(true), home + u"/.cache"_s);
    // A commit's temporary names: never the same twice.
    EXPECT_NE(QXLocalPaths::uuid(), QXLocalPaths::uuid());
}

TEST_F(QXLocalPathsTest, superUserFoldersLandInTheConsoleUsersHome) {
    QXLocalPaths::setUserIdForTesting(0);
    // The console user's home comes from the password database, else stays the process's own.
    const struct {
        QString console, home, library;
    } cases[] = {
        {QString(), home, data}, // nobody at the console
        {u"root"_s, u"/root"_s, u"/root/.local/share"_s},
        {u"no-such-user-here"_s, home, data},
    };
    for (const auto& c : cases) {
        QXLocalPaths::setConsoleUserForTesting(c.console);
        EXPECT_EQ(QXLocalPaths::userDirectory(), c.home) << c.console.toStdString();
        EXPECT_EQ(QXLocalPaths::libraryDirectory(true), c.library) << c.console.toStdString();
    }

    // As root started from alice's session, whose home is a temp folder.
    QXLocalPaths::setConsoleUserForTesting(u"alice"_s);
    QXLocalPaths::setConsoleUserHomeForTesting(alice.path());
    const QString share = alice.path() + u"/.local/share"_s;
    EXPECT_EQ(QXLocalPaths::userDirectory(), alice.path());
    EXPECT_EQ(QXLocalPaths::username(), u"alice"_s);
    EXPECT_EQ(QXLocalPaths::libraryDirectory(true), share);
    EXPECT_EQ(QXLocalPaths::cacheDirectory(true), alice.path() + u"/.cache"_s);
    EXPECT_EQ(QXLocalPaths::trashDirectory(), share + u"/Trash/files"_s);
    EXPECT_EQ(QXLocalPaths::movieDirectory(), alice.path() + u"/Movies"_s);
    // The machine-wide domain is not re-rooted.
    EXPECT_EQ(QXLocalPaths::libraryDirectory(false), u"/usr/local/share"_s);
    // Her home is protected, the process's own is not.
    EXPECT_TRUE(QXLocalPaths::isPathSystemDirectory(alice.path()));
    EXPECT_TRUE(QXLocalPaths::isPathSystemDirectory(alice.path() + u"/.cache"_s));
    EXPECT_FALSE(QXLocalPaths::isPathSystemDirectory(home));

    // A user folder outside the process's home is joined whole, not cut.
    const auto elsewhere = scopedEnv("XDG_DATA_HOME", "/srv/data");
    EXPECT_EQ(QXLocalPaths::libraryDirectory(true), alice.path() + u"/srv/data"_s);
}

TEST_F(QXLocalPathsTest, consoleUserFallsBackToSudoThenPkexec) {
    QXLocalPaths::setConsoleUserForTesting(std::nullopt);
    const auto noSudo = scopedEnv("SUDO_USER", nullptr);
    const auto noPkexec = scopedEnv("PKEXEC_UID", nullptr);
    if (!QXLocalPaths::currentConsoleUser().isEmpty())
        GTEST_SKIP() << "a graphical session is logged in on this machine";
    {
        const auto sudo = scopedEnv("SUDO_USER", "bob");
        const auto pkexec = scopedEnv("PKEXEC_UID", "0");
        EXPECT_EQ(QXLocalPaths::currentConsoleUser(), u"bob"_s);
    }
    const auto pkexec = scopedEnv("PKEXEC_UID", "0");
    EXPECT_EQ(QXLocalPaths::currentConsoleUser(), u"root"_s);
}

TEST_F(QXLocalPathsTest, systemDirectoryTable) {
    QStringList exact = {u"/"_s,        u"/usr/share"_s, u"/usr/local/share/doc"_s, u"/opt"_s,
                         u"/etc/xdg"_s, u"/Volumes"_s,   u"/Users/Shared"_s};
    exact << home << data << data + u"/Preferences"_s << home + u"/Desktop"_s;
    const QStringList looseOnly = {u"/usr"_s,     u"/usr/x"_s,          u"/usrdata"_s,
                                   u"/var/tmp"_s, u"/private/var/db"_s, u"/System/Library/Fonts"_s,
                                   u"/Systems"_s};
    // "/u/" is cut to "/", which only the first rule protects; the trailing-slash cut eats a
    // character.
    const QStringList neither = {
        u"/a"_s,           QString(),  u"/u/"_s,   home + u"/file.txt"_s, home + u"/"_s,
        data + u"/Logs"_s, u"/opt/"_s, u"/optx"_s, u"/Users/Shared/"_s,   u"/tmp"_s};
    for (const QString& path : exact + looseOnly + neither) {
        EXPECT_EQ(QXLocalPaths::isPathSystemDirectory(path), !neither.contains(path))
            << qPrintable(path);
        EXPECT_EQ(QXLocalPaths::isPathSystemDirectory(path, true), exact.contains(path))
            << qPrintable(path);
    }
}

} // namespace
