#pragma once

#include <QString>
#include <optional>
#include <sys/types.h>

// Where things are: the user's and the machine's well-known folders, unique
// temporary names, the trash, the logged-in user, and protected system folders.
// Stateless; on Linux the folder kinds map as the README's table says.
class QXLocalPaths {
public:
    enum class Directory {
        Application,
        AdminApplication,
        Library,
        Documentation,
        Document,
        Desktop,
        Caches,
        ApplicationSupport,
    };

    static QString pathForDirectory(Directory kind, bool userDomain);
    static QString applicationDirectory(bool user);
    static QString adminApplicationDirectory(bool user);
    static QString documentDirectory(bool user);
    static QString libraryDirectory(bool user);
    static QString prefsDirectory(bool user);
    static QString cacheDirectory(bool user);
    static QString appSupportDirectory(bool user);
    static QString logDirectory(bool user);
    static QString desktopDirectory();
    static QString systemLibraryDirectory();
    static QString localDocumentationDirectory();
    static QString userDirectory();
    static QString username();
    static QString currentConsoleUser(); // empty when nobody is at the console
    static QString trashDirectory();
    static QString movieDirectory();
    static QString tempDirectory();
    static QString uuid();
    static QString tempFile();
    static bool isPathSystemDirectory(const QString& path, bool exactMatch = false);
    static bool isPathOnTimeMachineVolume(const QString& path);

    // The vendor-wide preferences file ("com.corvane.global.plist" in the
    // user's preferences folder), shared by the maker's applications.
    static QString vendorPreferencesPath();
    static QString vendorPrefix() { return QStringLiteral("com.corvane."); }

    // Test seams: the effective user id and the console user (an empty name means nobody is
    // at the console; nullopt restores the real answers).
    static uid_t userId();
    static void setUserIdForTesting(std::optional<uid_t> uid);
    static void setConsoleUserForTesting(std::optional<QString> name);
    // The console user's home folder, instead of the password database's answer.
    static void setConsoleUserHomeForTesting(std::optional<QString> home);
    static bool isSuperUser() { return userId() == 0; }
};
