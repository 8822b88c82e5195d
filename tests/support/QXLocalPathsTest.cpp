#include "QXLocalPaths.h"
#include "TempTree.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <gtest/gtest.h>

#include <unistd.h>

namespace {

// Sets (or unsets, for a null value) one environment variable for the life of the object.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const char* value)
        : m_name(name), m_had(qEnvironmentVariableIsSet(name)), m_old(qgetenv(name)) {
        if (value)
            qputenv(name, value);
        else
            qunsetenv(name);
    }
    ~ScopedEnv() {
        if (m_had)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }

private:
    const char* m_name;
    bool m_had;
    QByteArray m_old;
};

class QXLocalPathsTest : public ::testing::Test {
protected:
    void SetUp() override { QXLocalPaths::setUserIdForTesting(501); }
    void TearDown() override {
        QXLocalPaths::setUserIdForTesting(std::nullopt);
        QXLocalPaths::setConsoleUserForTesting(std::nullopt);
        QXLocalPaths::setConsoleUserHomeForTesting(std::nullopt);
    }
    // As root started from alice's session, whose home is a temp folder.
    void becomeRootFromAlice() {
        QXLocalPaths::setUserIdForTesting(0);
        QXLocalPaths::setConsoleUserForTesting(QStringLiteral("alice"));
        QXLocalPaths::setConsoleUserHomeForTesting(alice.path());
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
        {QXLocalPaths::libraryDirectory(false), QStringLiteral("/usr/local/share")},
        {QXLocalPaths::systemLibraryDirectory(), QStringLiteral("/usr/share")},
        {QXLocalPaths::prefsDirectory(true), data + QStringLiteral("/Preferences")},
        {QXLocalPaths::logDirectory(false), QStringLiteral("/usr/local/share/Logs")},
        {QXLocalPaths::cacheDirectory(true), qEnvironmentVariable("XDG_CACHE_HOME")},
        {QXLocalPaths::appSupportDirectory(false), QStringLiteral("/etc/xdg")},
        {QXLocalPaths::applicationDirectory(true), home + QStringLiteral("/Applications")},
        {QXLocalPaths::adminApplicationDirectory(false), QStringLiteral("/usr/local/sbin")},
        {QXLocalPaths::documentDirectory(false), QString()},
        {QXLocalPaths::desktopDirectory(), home + QStringLiteral("/Desktop")},
        {QXLocalPaths::localDocumentationDirectory(), QStringLiteral("/usr/local/share/doc")},
        {QXLocalPaths::userDirectory(), home},
        {QXLocalPaths::trashDirectory(), data + QStringLiteral("/Trash/files")},
        {QXLocalPaths::vendorPreferencesPath(),
         data + QStringLiteral("/Preferences/com.corvane.global.plist")},
    };
    for (const auto& c : cases)
        EXPECT_EQ(c.actual, c.expected);
}

TEST_F(QXLocalPathsTest, unsetOrRelativeXdgVariablesFallBackToHome) {
    {
        ScopedEnv unset("XDG_DATA_HOME", nullptr);
        EXPECT_EQ(QXLocalPaths::libraryDirectory(true), home + QStringLiteral("/.local/share"));
    }
    ScopedEnv relative("XDG_CACHE_HOME", "relative/cache");
    EXPECT_EQ(QXLocalPaths::cacheDirectory(true), home + QStringLiteral("/.cache"));
}

TEST_F(QXLocalPathsTest, superUserFoldersLandInTheConsoleUsersHome) {
    becomeRootFromAlice();
    const QString share = alice.path() + QStringLiteral("/.local/share");
    EXPECT_EQ(QXLocalPaths::userDirectory(), alice.path());
    EXPECT_EQ(QXLocalPaths::username(), QStringLiteral("alice"));
    EXPECT_EQ(QXLocalPaths::libraryDirectory(true), share);
    EXPECT_EQ(QXLocalPaths::prefsDirectory(true), share + QStringLiteral("/Preferences"));
    EXPECT_EQ(QXLocalPaths::cacheDirectory(true), alice.path() + QStringLiteral("/.cache"));
    EXPECT_EQ(QXLocalPaths::trashDirectory(), share + QStringLiteral("/Trash/files"));
    EXPECT_EQ(QXLocalPaths::movieDirectory(), alice.path() + QStringLiteral("/Movies"));
    // The machine-wide domain is not re-rooted.
    EXPECT_EQ(QXLocalPaths::libraryDirectory(false), QStringLiteral("/usr/local/share"));

    // A user folder outside the process's home is joined whole, not cut.
    ScopedEnv elsewhere("XDG_DATA_HOME", "/srv/data");
    EXPECT_EQ(QXLocalPaths::libraryDirectory(true), alice.path() + QStringLiteral("/srv/data"));
}

TEST_F(QXLocalPathsTest, superUserWithNobodyAtTheConsoleKeepsItsOwnHome) {
    QXLocalPaths::setUserIdForTesting(0);
    QXLocalPaths::setConsoleUserForTesting(QString());
    EXPECT_EQ(QXLocalPaths::currentConsoleUser(), QString());
    EXPECT_EQ(QXLocalPaths::username(), QString());
    EXPECT_EQ(QXLocalPaths::userDirectory(), home);
    EXPECT_EQ(QXLocalPaths::libraryDirectory(true), data);
}

TEST_F(QXLocalPathsTest, consoleUserHomeComesFromThePasswordDatabase) {
    QXLocalPaths::setUserIdForTesting(0);
    QXLocalPaths::setConsoleUserForTesting(QStringLiteral("root"));
    EXPECT_EQ(QXLocalPaths::userDirectory(), QStringLiteral("/root"));
    EXPECT_EQ(QXLocalPaths::libraryDirectory(true), QStringLiteral("/root/.local/share"));
    // Unknown to the database: the process's own home stands in.
    QXLocalPaths::setConsoleUserForTesting(QStringLiteral("no-such-user-here"));
    EXPECT_EQ(QXLocalPaths::userDirectory(), home);
}

TEST_F(QXLocalPathsTest, consoleUserFallsBackToSudoThenPkexec) {
    QXLocalPaths::setConsoleUserForTesting(std::nullopt);
    ScopedEnv noSudo("SUDO_USER", nullptr);
    ScopedEnv noPkexec("PKEXEC_UID", nullptr);
    if (!QXLocalPaths::currentConsoleUser().isEmpty())
        GTEST_SKIP() << "a graphical session is logged in on this machine";
    {
        ScopedEnv sudo("SUDO_USER", "bob");
        ScopedEnv pkexec("PKEXEC_UID", "0");
        EXPECT_EQ(QXLocalPaths::currentConsoleUser(), QStringLiteral("bob"));
    }
    ScopedEnv pkexec("PKEXEC_UID", "0");
    EXPECT_EQ(QXLocalPaths::currentConsoleUser(), QStringLiteral("root"));
}

TEST_F(QXLocalPathsTest, userIdOverrideAndReset) {
    QXLocalPaths::setUserIdForTesting(0);
    EXPECT_TRUE(QXLocalPaths::isSuperUser());
    QXLocalPaths::setUserIdForTesting(std::nullopt);
    EXPECT_EQ(QXLocalPaths::userId(), geteuid());
}

TEST_F(QXLocalPathsTest, systemDirectoryTable) {
    const struct {
        QString path;
        bool loose, exact;
    } cases[] = {
        {QStringLiteral("/"), true, true},
        {QStringLiteral("/a"), false, false},
        {QString(), false, false},
        {QStringLiteral("/u/"), false, false}, // cut to "/", which only step one protects
        {home, true, true},
        {home + QStringLiteral("/file.txt"), false, false},
        {home + QStringLiteral("/"), false, false}, // the trailing-slash cut eats a character
        {data, true, true},
        {data + QStringLiteral("/Preferences"), true, true},
        {data + QStringLiteral("/Logs"), false, false},
        {home + QStringLiteral("/Desktop"), true, true},
        {QStringLiteral("/usr"), true, false},
        {QStringLiteral("/usr/x"), true, false},
        {QStringLiteral("/usrdata"), true, false},
        {QStringLiteral("/usr/share"), true, true},
        {QStringLiteral("/usr/local/share/doc"), true, true},
        {QStringLiteral("/var/tmp"), true, false},
        {QStringLiteral("/private/var/db"), true, false},
        {QStringLiteral("/System/Library/Fonts"), true, false},
        {QStringLiteral("/Systems"), true, false},
        {QStringLiteral("/opt"), true, true},
        {QStringLiteral("/opt/"), false, false},
        {QStringLiteral("/optx"), false, false},
        {QStringLiteral("/etc/xdg"), true, true},
        {QStringLiteral("/Users/Shared"), true, true},
        {QStringLiteral("/Users/Shared/"), false, false},
        {QStringLiteral("/Volumes"), true, true},
        {QStringLiteral("/tmp"), false, false},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(QXLocalPaths::isPathSystemDirectory(c.path), c.loose) << qPrintable(c.path);
        EXPECT_EQ(QXLocalPaths::isPathSystemDirectory(c.path, true), c.exact) << qPrintable(c.path);
    }
}

TEST_F(QXLocalPathsTest, superUserProtectsTheConsoleUsersHomeNotItsOwn) {
    becomeRootFromAlice();
    EXPECT_TRUE(QXLocalPaths::isPathSystemDirectory(alice.path()));
    EXPECT_TRUE(QXLocalPaths::isPathSystemDirectory(alice.path() + QStringLiteral("/.cache")));
    EXPECT_FALSE(QXLocalPaths::isPathSystemDirectory(home));
}

TEST_F(QXLocalPathsTest, timeMachineVolumesNeedTheExactComponent) {
    EXPECT_TRUE(QXLocalPaths::isPathOnTimeMachineVolume(
        QStringLiteral("/Volumes/TM/Backups.backupdb/mac/x.jpg")));
    EXPECT_TRUE(
        QXLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Volumes/Backups.backupdb")));
    EXPECT_FALSE(
        QXLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/Volumes/TM/Backups.backupdbx")));
    EXPECT_FALSE(QXLocalPaths::isPathOnTimeMachineVolume(QStringLiteral("/home/Backups.backupdb")));
}

TEST_F(QXLocalPathsTest, uuidsAreUpperCaseUniqueAndTempFilesAreNotCreated) {
    QSet<QString> seen;
    for (int i = 0; i < 100; ++i) {
        const QString id = QXLocalPaths::uuid();
        EXPECT_EQ(id.size(), 36);
        EXPECT_EQ(id, id.toUpper());
        EXPECT_FALSE(id.contains(u'{'));
        seen.insert(id);
    }
    EXPECT_EQ(seen.size(), 100);
    const QString temp = QXLocalPaths::tempFile();
    EXPECT_TRUE(temp.startsWith(QDir::tempPath() + u'/'));
    EXPECT_FALSE(QFileInfo::exists(temp));
}

} // namespace
