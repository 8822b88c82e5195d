// clang-format off
// Folder kinds on Linux (macOS asks its native search paths instead):
//
// | kind                | user domain                     | local domain         | system         |
// |---------------------|---------------------------------|----------------------|----------------|
// | library             | $XDG_DATA_HOME (~/.local/share) | /usr/local/share     | /usr/share     |
// | applications        | ~/Applications                  | /opt                 | (none)         |
// | admin applications  | ~/Applications/Utilities        | /usr/local/sbin      | (none)         |
// | documents           | QStandardPaths Documents        | (none)               | (none)         |
// | desktop             | QStandardPaths Desktop          | (none)               | (none)         |
// | documentation       | $XDG_DATA_HOME/doc              | /usr/local/share/doc | /usr/share/doc |
// | caches              | $XDG_CACHE_HOME (~/.cache)      | /var/cache           | (none)         |
// | application support | $XDG_CONFIG_HOME (~/.config)    | /etc/xdg             | (none)         |
// clang-format on
//
// (none) is an empty string. Preferences = library + "/Preferences", logs = library + "/Logs".
// Trash: the freedesktop trash's "files" folder, $XDG_DATA_HOME/Trash/files; as the super-user
// userDirectory + "/.local/share/Trash/files" so that a privileged run trashes into the console
// user's trash.
//
// Super-user (uid 0) rule: a user-domain folder is re-rooted at the console user's home. The
// prefix cut off first is the process's own home folder on Linux (root's "/root", or whatever
// HOME says); on macOS it is "/var/root" or "/private/var/root". With nobody at the console the
// "console user's home" is the process's own home, so the paths stay where they were.
//
// The console user: the owner of a graphical session in utmp (a USER_PROCESS entry whose line or
// host starts with ":"), else $SUDO_USER, else the user of $PKEXEC_UID, else nobody. The console
// user's home comes from the password database; an unknown user falls back to the process's home.
#include "QXLocalPaths.h"

#include <QDir>
#include <QFileInfo>
#include <QMutex>
#include <QRandomGenerator>
#include <QStandardPaths>

#include <array>
#include <atomic>
#include <cstring>
#include <pwd.h>
#include <unistd.h>
#include <utmpx.h>
#include <vector>

namespace {

enum class Domain { User, Local, System };

// Test seams. The uid is kept as a signed 64-bit value with -1 meaning "no override".
std::atomic<qint64> g_uidOverride{-1};

struct StringOverride {
    QMutex mutex;
    bool set = false;
    QString value;

    std::optional<QString> get() {
        QMutexLocker lock(&mutex);
        if (!set) return std::nullopt;
        return value;
    }
    void put(std::optional<QString> v) {
        QMutexLocker lock(&mutex);
        set = v.has_value();
        value = v.value_or(QString());
    }
};

StringOverride& consoleUserOverride() {
    static StringOverride o;
    return o;
}
StringOverride& consoleHomeOverride() {
    static StringOverride o;
    return o;
}

QString homePath() {
    return QDir::homePath();
}

// An XDG base folder: the variable when it holds an absolute path, else the default under home.
QString xdgFolder(const char* variable, const QString& fallbackUnderHome) {
    const QString value = qEnvironmentVariable(variable);
    if (!value.isEmpty() && QDir::isAbsolutePath(value)) return QDir::cleanPath(value);
    return homePath() + fallbackUnderHome;
}

QString dataHome() {
    return xdgFolder("XDG_DATA_HOME", QStringLiteral("/.local/share"));
}

QString standardLocation(QStandardPaths::StandardLocation location) {
    return QStandardPaths::writableLocation(location);
}

// The platform's first search path of a kind in a domain, "~" expanded; empty when none.
QString searchPath(QXLocalPaths::Directory kind, Domain domain) {
    using D = QXLocalPaths::Directory;
#ifdef Q_OS_MACOS
    // macOS: the native search paths, as the system's folder layout gives them.
    const QString home = homePath();
    switch (kind) {
    case D::Application:
        return domain == Domain::User    ? home + QStringLiteral("/Applications")
               : domain == Domain::Local ? QStringLiteral("/Applications")
                                         : QStringLiteral("/System/Applications");
    case D::AdminApplication:
        return domain == Domain::User ? home + QStringLiteral("/Applications/Utilities")
                                      : QStringLiteral("/Applications/Utilities");
    case D::Library:
        return domain == Domain::User    ? home + QStringLiteral("/Library")
               : domain == Domain::Local ? QStringLiteral("/Library")
                                         : QStringLiteral("/System/Library");
    case D::Documentation:
        return domain == Domain::User    ? home + QStringLiteral("/Library/Documentation")
               : domain == Domain::Local ? QStringLiteral("/Library/Documentation")
                                         : QStringLiteral("/System/Library/Documentation");
    case D::Document:
        return domain == Domain::User ? home + QStringLiteral("/Documents") : QString();
    case D::Desktop:
        return domain == Domain::User ? home + QStringLiteral("/Desktop") : QString();
    case D::Caches:
        return domain == Domain::User    ? home + QStringLiteral("/Library/Caches")
               : domain == Domain::Local ? QStringLiteral("/Library/Caches")
                                         : QStringLiteral("/System/Library/Caches");
    case D::ApplicationSupport:
        return domain == Domain::User    ? home + QStringLiteral("/Library/Application Support")
               : domain == Domain::Local ? QStringLiteral("/Library/Application Support")
                                         : QString();
    }
    return QString();
#else
    const bool user = domain == Domain::User;
    const bool local = domain == Domain::Local;
    switch (kind) {
    case D::Application:
        return user ? homePath() + QStringLiteral("/Applications")
                    : (local ? QStringLiteral("/opt") : QString());
    case D::AdminApplication:
        return user ? homePath() + QStringLiteral("/Applications/Utilities")
                    : (local ? QStringLiteral("/usr/local/sbin") : QString());
    case D::Library:
        return user ? dataHome()
                    : (local ? QStringLiteral("/usr/local/share") : QStringLiteral("/usr/share"));
    case D::Documentation:
        return user ? dataHome() + QStringLiteral("/doc")
                    : (local ? QStringLiteral("/usr/local/share/doc")
                             : QStringLiteral("/usr/share/doc"));
    case D::Document:
        return user ? standardLocation(QStandardPaths::DocumentsLocation) : QString();
    case D::Desktop:
        return user ? standardLocation(QStandardPaths::DesktopLocation) : QString();
    case D::Caches:
        return user ? xdgFolder("XDG_CACHE_HOME", QStringLiteral("/.cache"))
                    : (local ? QStringLiteral("/var/cache") : QString());
    case D::ApplicationSupport:
        return user ? xdgFolder("XDG_CONFIG_HOME", QStringLiteral("/.config"))
                    : (local ? QStringLiteral("/etc/xdg") : QString());
    }
    return QString();
#endif
}

// Appends a path component: exactly one "/" between the parts, nothing added for an empty part.
QString appendComponent(const QString& base, const QString& component) {
    QString rest = component;
    while (rest.startsWith(u'/'))
        rest.remove(0, 1);
    if (rest.isEmpty()) return base;
    if (base.isEmpty()) return rest;
    if (base.endsWith(u'/')) return base + rest;
    return base + u'/' + rest;
}

QString nameForUid(uid_t uid) {
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
    passwd entry{};
    passwd* result = nullptr;
    if (getpwuid_r(uid, &entry, buffer.data(), buffer.size(), &result) == 0 && result)
        return QString::fromLocal8Bit(result->pw_name);
    return QString();
}

QString homeForName(const QString& name) {
    const QByteArray encoded = name.toLocal8Bit();
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
    passwd entry{};
    passwd* result = nullptr;
    if (getpwnam_r(encoded.constData(), &entry, buffer.data(), buffer.size(), &result) == 0 &&
        result && result->pw_dir && result->pw_dir[0] == '/')
        return QString::fromLocal8Bit(result->pw_dir);
    return QString();
}

// The owner of a graphical session: X11 and Wayland logins record ":0"-like lines or hosts.
QString graphicalSessionUser() {
    // The utmp iteration keeps state in the C library; one reader at a time.
    static QMutex utmpMutex;
    QMutexLocker lock(&utmpMutex);
    QString found;
    setutxent();
    while (const utmpx* entry = getutxent()) {
        if (entry->ut_type != USER_PROCESS) continue;
        const bool onDisplay = entry->ut_line[0] == ':' || entry->ut_host[0] == ':';
        if (!onDisplay) continue;
        const QString user =
            QString::fromLocal8Bit(entry->ut_user, qstrnlen(entry->ut_user, sizeof entry->ut_user));
        if (!user.isEmpty()) {
            found = user;
            break;
        }
    }
    endutxent();
    return found;
}

QString processUserName() {
    if (QString name = nameForUid(QXLocalPaths::userId()); !name.isEmpty()) return name;
    if (QString name = qEnvironmentVariable("USER"); !name.isEmpty()) return name;
    if (QString name = qEnvironmentVariable("LOGNAME"); !name.isEmpty()) return name;
    return nameForUid(geteuid());
}

} // namespace

QString QXLocalPaths::pathForDirectory(Directory kind, bool userDomain) {
    const QString first = searchPath(kind, userDomain ? Domain::User : Domain::Local);
    if (isSuperUser() && userDomain && !first.isEmpty()) {
        QString rest = first;
#ifdef Q_OS_MACOS
        if (rest.startsWith(QLatin1String("/var/root"))) rest = rest.mid(9);
        // One character fewer than the prefix: a "t" stays in front. Kept deliberately.
        if (rest.startsWith(QLatin1String("/private/var/root"))) rest = rest.mid(16);
#else
        const QString ownHome = homePath();
        if (rest.startsWith(ownHome)) rest = rest.mid(ownHome.size());
#endif
        return appendComponent(userDirectory(), rest);
    }
    return first;
}

QString QXLocalPaths::applicationDirectory(bool user) {
    return pathForDirectory(Directory::Application, user);
}

QString QXLocalPaths::adminApplicationDirectory(bool user) {
    return pathForDirectory(Directory::AdminApplication, user);
}

QString QXLocalPaths::documentDirectory(bool user) {
    return pathForDirectory(Directory::Document, user);
}

QString QXLocalPaths::libraryDirectory(bool user) {
    return pathForDirectory(Directory::Library, user);
}

QString QXLocalPaths::prefsDirectory(bool user) {
    return appendComponent(libraryDirectory(user), QStringLiteral("Preferences"));
}

QString QXLocalPaths::cacheDirectory(bool user) {
    return pathForDirectory(Directory::Caches, user);
}

QString QXLocalPaths::appSupportDirectory(bool user) {
    return pathForDirectory(Directory::ApplicationSupport, user);
}

QString QXLocalPaths::logDirectory(bool user) {
    return appendComponent(libraryDirectory(user), QStringLiteral("Logs"));
}

QString QXLocalPaths::desktopDirectory() {
    return pathForDirectory(Directory::Desktop, true);
}

QString QXLocalPaths::systemLibraryDirectory() {
    return searchPath(Directory::Library, Domain::System);
}

QString QXLocalPaths::localDocumentationDirectory() {
    return searchPath(Directory::Documentation, Domain::Local);
}

QString QXLocalPaths::userDirectory() {
    if (!isSuperUser()) return homePath();
    const QString console = currentConsoleUser();
    if (console.isEmpty()) return homePath(); // the answer for an absent user
    if (std::optional<QString> home = consoleHomeOverride().get()) return *home;
    const QString home = homeForName(console);
    return home.isEmpty() ? homePath() : home;
}

QString QXLocalPaths::username() {
    if (!isSuperUser()) return processUserName();
    return currentConsoleUser();
}

QString QXLocalPaths::currentConsoleUser() {
    if (std::optional<QString> name = consoleUserOverride().get()) return *name;
    QString name = graphicalSessionUser();
    if (name.isEmpty()) name = qEnvironmentVariable("SUDO_USER");
    if (name.isEmpty()) {
        bool ok = false;
        const uint uid = qEnvironmentVariable("PKEXEC_UID").toUInt(&ok);
        if (ok) name = nameForUid(static_cast<uid_t>(uid));
    }
    // The login screen owns the console while nobody is logged in.
    if (name == QLatin1String("loginwindow")) name.clear();
    return name;
}

QString QXLocalPaths::trashDirectory() {
#ifdef Q_OS_MACOS
    return appendComponent(userDirectory(), QStringLiteral(".Trash"));
#else
    if (isSuperUser())
        return appendComponent(userDirectory(), QStringLiteral(".local/share/Trash/files"));
    return appendComponent(dataHome(), QStringLiteral("Trash/files"));
#endif
}

QString QXLocalPaths::movieDirectory() {
    return appendComponent(userDirectory(), QStringLiteral("Movies"));
}

QString QXLocalPaths::tempDirectory() {
    return QDir::tempPath();
}

QString QXLocalPaths::uuid() {
    // A random (version 4) UUID from the process's securely seeded generator:
    // the system source reads the hardware generator per word, which is slow
    // under virtual machines, and a commit asks for one per case-only rename.
    // It is written out digit by digit, upper case, in the byte order of its
    // text form: QUuid's formatting and a case mapping took four strings per name.
    std::array<quint32, 4> words;
    QRandomGenerator::global()->fillRange(words.data(), static_cast<qsizetype>(words.size()));
    std::array<uchar, 16> bytes;
    std::memcpy(bytes.data(), words.data(), bytes.size());
    bytes[6] = static_cast<uchar>((bytes[6] & 0x0F) | 0x40); // version 4
    bytes[8] = static_cast<uchar>((bytes[8] & 0x3F) | 0x80); // RFC 4122 variant
    static constexpr char16_t hex[] = u"0123456789ABCDEF";
    QString text(36, Qt::Uninitialized);
    QChar* out = text.data();
    for (size_t i = 0; i < bytes.size(); ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) *out++ = u'-';
        *out++ = hex[bytes[i] >> 4];
        *out++ = hex[bytes[i] & 0x0F];
    }
    return text;
}

QString QXLocalPaths::tempFile() {
    return appendComponent(tempDirectory(), uuid());
}

bool QXLocalPaths::isPathSystemDirectory(const QString& path, bool exactMatch) {
    if (path == QLatin1String("/")) return true;
    if (path.size() < 3) return false;
    QString p = path;
    // Drops the slash and the character before it ("/Applications/" becomes "/Application").
    // Long-standing behaviour that callers depend on; keep it.
    if (p.endsWith(u'/')) p.truncate(p.size() - 2);

    // Evaluated lazily in this order; an empty answer never equals a non-empty path.
    const auto matches = [&p](const QString& candidate) {
        return !candidate.isEmpty() && p == candidate;
    };
    if (matches(applicationDirectory(true)) || matches(applicationDirectory(false)) ||
        matches(adminApplicationDirectory(true)) || matches(adminApplicationDirectory(false)) ||
        matches(documentDirectory(true)) || matches(documentDirectory(false)) ||
        matches(libraryDirectory(true)) || matches(libraryDirectory(false)) ||
        matches(prefsDirectory(true)) || matches(prefsDirectory(false)) ||
        matches(cacheDirectory(true)) || matches(cacheDirectory(false)) ||
        matches(appSupportDirectory(true)) || matches(appSupportDirectory(false)) ||
        matches(desktopDirectory()) || matches(userDirectory()) ||
        matches(systemLibraryDirectory()) || matches(localDocumentationDirectory()) ||
        matches(QStringLiteral("/Users/Shared")) || matches(QStringLiteral("/Volumes")))
        return true;

    if (exactMatch) return false;
    return p.startsWith(QLatin1String("/usr")) || p.startsWith(QLatin1String("/var")) ||
           p.startsWith(QLatin1String("/private/var")) || p.startsWith(QLatin1String("/System"));
}

bool QXLocalPaths::isPathOnTimeMachineVolume(const QString& path) {
    if (!path.startsWith(QLatin1String("/Volumes/"))) return false;
    const QStringList components = path.split(u'/', Qt::SkipEmptyParts);
    return components.contains(QStringLiteral("Backups.backupdb"));
}

QString QXLocalPaths::vendorPreferencesPath() {
    return prefsDirectory(true) + QStringLiteral("/") + vendorPrefix() +
           QStringLiteral("global.plist");
}

uid_t QXLocalPaths::userId() {
    const qint64 forced = g_uidOverride.load(std::memory_order_relaxed);
    if (forced >= 0) return static_cast<uid_t>(forced);
    return geteuid();
}

void QXLocalPaths::setUserIdForTesting(std::optional<uid_t> uid) {
    g_uidOverride.store(uid ? static_cast<qint64>(*uid) : -1, std::memory_order_relaxed);
}

void QXLocalPaths::setConsoleUserForTesting(std::optional<QString> name) {
    consoleUserOverride().put(std::move(name));
}

void QXLocalPaths::setConsoleUserHomeForTesting(std::optional<QString> home) {
    consoleHomeOverride().put(std::move(home));
}
