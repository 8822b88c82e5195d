#include "FileMover.h"

#include <QDir>
#include <QFile>
#include <QHash>
#include <QMutex>
#include <QReadWriteLock>
#include <QSet>
#include <QStandardPaths>

#include <array>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <linux/fs.h>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <system_error>
#include <unistd.h>

#ifndef RENAME_NOREPLACE
#define RENAME_NOREPLACE (1 << 0)
#endif

namespace {
QMutex hookMutex;
std::shared_ptr<const FileMover::FaultHook> hookPtr;
std::atomic<bool> hookActive{false};
std::atomic<quint64> operationCount{0};
std::atomic<bool> forceFallback{false};
std::atomic<bool> kernelLacksRenameat2{false};

std::shared_ptr<const FileMover::FaultHook> currentHook() {
    if (!hookActive.load(std::memory_order_acquire)) return nullptr;
    QMutexLocker lock(&hookMutex);
    return hookPtr;
}

// Runs the hook before an operation: its number, and an errno to fail with.
int before(FileMover::Op op, const QString& from, const QString& to, quint64* number) {
    *number = 0;
    const auto hook = currentHook();
    if (!hook) return 0;
    *number = operationCount.fetch_add(1) + 1;
    return (*hook)({op, FileMover::Phase::Before, from, to, *number});
}

void after(FileMover::Op op, const QString& from, const QString& to, quint64 number) {
    if (number == 0) return;
    if (const auto hook = currentHook()) (*hook)({op, FileMover::Phase::After, from, to, number});
}

// What file systems refused once, by device (st_dev): on a mount without
// rename flags or hard links (SMB refuses both, NFS the flag) each refused
// call is a round trip, paid once per mount rather than once per file. Only
// refusals are kept, so a device wrongly thought capable just takes the
// fallback once more. Read by every thread of a commit at once.
class Refusals {
public:
    enum Kind { RenameFlags = 1, HardLinks = 2 };
    bool any() const { return m_any.load(std::memory_order_acquire); }
    bool refuses(dev_t device, Kind kind) const {
        if (!any()) return false;
        QReadLocker lock(&m_lock);
        return (m_refused.value(quint64(device)) & kind) != 0;
    }
    void remember(dev_t device, Kind kind) {
        QWriteLocker lock(&m_lock);
        m_refused[quint64(device)] |= kind;
        m_any.store(true, std::memory_order_release);
    }
    void forget() {
        QWriteLocker lock(&m_lock);
        m_refused.clear();
        m_any.store(false, std::memory_order_release);
    }

private:
    mutable QReadWriteLock m_lock;
    QHash<quint64, int> m_refused;
    std::atomic<bool> m_any{false};
};
Refusals refusals;
std::atomic<int> simulatedRefusals{0}; // Refusals::Kind bits a test file system refuses
std::atomic<int> refusedAttempts{0};   // calls it refused

bool simulatedRefusal(Refusals::Kind kind) {
    if ((simulatedRefusals.load(std::memory_order_relaxed) & kind) == 0) return false;
    refusedAttempts.fetch_add(1);
    return true;
}

// The fallback's check and rename are two calls: a lock per target folder
// (held through the whole fallback, links too) keeps two threads of this
// process from both finding a name free and the second replacing the first
// one's file. The kernel lets one rename at a time
// into a folder anyway, so moves into different folders still overlap. Folder
// paths are folded to ASCII lower case, as a case-blind mount (SMB) sees them.
QMutex& targetFolderLock(QByteArrayView folder) {
    static std::array<QMutex, 256> locks; // 16 moves in flight seldom share one
    size_t hash = 0;
    for (const char c : folder)
        hash = hash * 31 + size_t(std::tolower(static_cast<unsigned char>(c)));
    return locks[hash % locks.size()];
}

bool renameat2Usable() {
    return !forceFallback.load(std::memory_order_relaxed) &&
           !kernelLacksRenameat2.load(std::memory_order_relaxed);
}

// A path as its folder and the name in it ("/a/b": "/a" and "b"; "/b": "/" and "b").
struct Entry {
    QByteArrayView folder;
    const char* name = nullptr;
};
std::optional<Entry> entryOf(const QByteArray& path) {
    const char* const text = path.constData();
    const auto* found = static_cast<const char*>(::memrchr(text, '/', size_t(path.size())));
    if (!found || found + 1 == text + path.size()) return std::nullopt;
    const qsizetype slash = found - text;
    return Entry{QByteArrayView(text, slash == 0 ? 1 : slash), found + 1};
}

// One move's names: full paths, or the two leaves in an open folder (dir).
struct MovePaths {
    const QByteArray& from;
    const QByteArray& to;
    int dir = -1;
    const char* fromName = nullptr;
    const char* toName = nullptr;
    dev_t device = 0; // the held folder's file system, when asked (else 0)

    int at() const { return dir >= 0 ? dir : AT_FDCWD; }
    const char* source() const { return dir >= 0 ? fromName : from.constData(); }
    const char* target() const { return dir >= 0 ? toName : to.constData(); }
    QByteArrayView targetFolder() const {
        const auto e = entryOf(to);
        return e ? e->folder : QByteArrayView(to);
    }
};

int statAt(int dir, const char* name, struct stat* st) {
    return ::fstatat(dir, name, st, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

// The answer of renameat2 with RENAME_NOREPLACE: 0 or the errno value.
int renameNoReplace(const MovePaths& p) {
    if (simulatedRefusal(Refusals::RenameFlags)) return EINVAL;
    if (::syscall(SYS_renameat2, p.at(), p.source(), p.at(), p.target(), RENAME_NOREPLACE) == 0)
        return 0;
    const int e = errno;
    if (e == ENOSYS) kernelLacksRenameat2.store(true);
    return e;
}

// Where renameat2 is missing (ENOSYS) or the file system refuses the flag
// (EINVAL): a file is hard-linked to its new name, which fails when the name
// is taken, then unlinked from the old one (link: the source is no folder and
// the file system may take links); a folder, or a file on a file system
// without hard links, is checked with lstat immediately before rename(2).
// flagRefused: renameat2 said EINVAL, which is also what a folder moved into
// itself gets; only a move that then goes through shows that the file system
// refused the flag.
int fallbackMove(const MovePaths& p, dev_t device, bool link, bool flagRefused) {
    QMutexLocker lock(&targetFolderLock(p.targetFolder()));
    const auto moved = [&] {
        if (flagRefused) refusals.remember(device, Refusals::RenameFlags);
        return 0;
    };
    if (link) {
        errno = EPERM;
        if (!simulatedRefusal(Refusals::HardLinks) &&
            ::linkat(p.at(), p.source(), p.at(), p.target(), 0) == 0) {
            if (::unlinkat(p.at(), p.source(), 0) == 0) return moved();
            const int e = errno;
            ::unlinkat(p.at(), p.target(), 0); // the old name stays; take the new link back
            return e;
        }
        const int e = errno;
        if (e != EPERM && e != EOPNOTSUPP && e != EMLINK) return e;
        // EMLINK is this file's link count, not the file system. (EPERM is
        // also a file of another user's under protected_hardlinks: the
        // lstat and rename below serve it as well.)
        if (e != EMLINK) refusals.remember(device, Refusals::HardLinks);
    }
    struct stat target {};
    if (const int e = statAt(p.at(), p.target(), &target); e != ENOENT) return e ? e : EEXIST;
    if (::renameat(p.at(), p.source(), p.at(), p.target()) != 0) return errno;
    return moved();
}

// Only once some file system has refused a call does a move ask which one it
// is on: from its held folder (asked once per folder), else by an lstat of
// its source, which also tells a folder from a file for the fallback. On a
// mount that refuses both the flag and links, a move is then one lstat and
// one rename, as in a plain loop.
int moveNoReplace(const MovePaths& p) {
    struct stat source {};
    bool known = false; // source holds the lstat of p's source
    bool haveDevice = p.device != 0;
    dev_t device = p.device;
    const auto lookAtSource = [&]() -> int {
        if (known) return 0;
        if (statAt(p.at(), p.source(), &source) != 0) return errno;
        known = true;
        if (!haveDevice) device = source.st_dev;
        haveDevice = true;
        return 0;
    };
    bool flagRefused = false;
    if (renameat2Usable()) {
        if (refusals.any() && !haveDevice)
            if (const int e = lookAtSource()) return e;
        if (!haveDevice || !refusals.refuses(device, Refusals::RenameFlags)) {
            const int e = renameNoReplace(p);
            if (e != ENOSYS && e != EINVAL) return e;
            flagRefused = e == EINVAL;
        }
    }
    if (!haveDevice)
        if (const int e = lookAtSource()) return e;
    const bool links = !refusals.refuses(device, Refusals::HardLinks);
    if (links)
        if (const int e = lookAtSource()) return e;
    return fallbackMove(p, device, links && !S_ISDIR(source.st_mode), flagRefused);
}

QSet<quint64> parseNumbers(const QByteArray& text) {
    QSet<quint64> out;
    for (const QByteArray& part : text.split(',')) {
        bool ok = false;
        const quint64 n = part.trimmed().toULongLong(&ok);
        if (ok) out.insert(n);
    }
    return out;
}
} // namespace

void FileMover::setFaultHook(FaultHook hook) {
    QMutexLocker lock(&hookMutex);
    operationCount.store(0);
    if (hook) {
        hookPtr = std::make_shared<const FaultHook>(std::move(hook));
        hookActive.store(true, std::memory_order_release);
    } else {
        hookPtr.reset();
        hookActive.store(false, std::memory_order_release);
    }
}

void FileMover::installFaultsFromEnvironment() {
    const qint64 delay = qEnvironmentVariableIntValue("SEQMATE_FAULT_MOVE_DELAY_US");
    const QSet<quint64> failing = parseNumbers(qgetenv("SEQMATE_FAULT_FAIL"));
    const QString match = qEnvironmentVariable("SEQMATE_FAULT_FAIL_MATCH");
    const quint64 stopAfter = qgetenv("SEQMATE_FAULT_STOP_AFTER").toULongLong();
    if (delay <= 0 && failing.isEmpty() && match.isEmpty() && stopAfter == 0) return;
    setFaultHook([=](const FaultPoint& p) -> int {
        if (p.phase == Phase::After) {
            if (p.number == stopAfter)
                for (;;)
                    ::pause(); // a process killed mid-commit, on demand
            return 0;
        }
        if (delay > 0) ::usleep(static_cast<useconds_t>(delay));
        if (failing.contains(p.number)) return EIO;
        if (!match.isEmpty() && p.op == Op::Move && p.from.contains(match)) return EIO;
        return 0;
    });
}

void FileMover::setForceFallbackForTesting(bool force) {
    forceFallback.store(force);
}

void FileMover::simulateRefusalsForTesting(bool renameFlags, bool hardLinks) {
    simulatedRefusals.store((renameFlags ? Refusals::RenameFlags : 0) |
                            (hardLinks ? Refusals::HardLinks : 0));
    refusedAttempts.store(0);
    refusals.forget();
}

int FileMover::refusedAttemptsForTesting() {
    return refusedAttempts.load();
}

QString FileMover::errorText(int error) {
    return QString::fromStdString(std::generic_category().message(error));
}

bool FileMover::exists(const QString& path) {
    struct stat st {};
    return ::lstat(nativePath(path).constData(), &st) == 0;
}

QString FileMover::move(const QString& from, const QString& to, int* errorCode) {
    return move(from, to, nativePath(from), nativePath(to), errorCode);
}

QString FileMover::move(const QString& from, const QString& to, const QByteArray& nativeFrom,
                        const QByteArray& nativeTo, int* errorCode, Folder* folder) {
    quint64 number = 0;
    int e = before(Op::Move, from, to, &number);
    if (e == 0) {
        MovePaths paths{nativeFrom, nativeTo};
        if (folder) {
            const auto a = entryOf(nativeFrom), b = entryOf(nativeTo);
            // A move between folders may move the held one or a folder above it;
            // a folder that cannot be opened is left to the full paths, which say why.
            if (!a || !b || a->folder != b->folder) {
                folder->close();
            } else {
                paths.dir = folder->open(a->folder);
                paths.fromName = a->name;
                paths.toName = b->name;
                if (paths.dir >= 0 && refusals.any()) paths.device = folder->device().value_or(0);
            }
        }
        e = moveNoReplace(paths);
    }
    if (errorCode) *errorCode = e;
    if (e != 0) return errorText(e);
    after(Op::Move, from, to, number);
    return QString();
}

int FileMover::Folder::open(QByteArrayView path) {
    if (m_fd >= 0 && m_path == path) return m_fd;
    close();
    m_path = path.toByteArray(); // for its terminating zero
    m_fd = ::open(m_path.constData(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    if (m_fd < 0) m_path.clear();
    return m_fd;
}

void FileMover::Folder::close() {
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
    m_path.clear();
    m_device.reset();
}

std::optional<dev_t> FileMover::Folder::device() {
    struct stat st {};
    if (!m_device && m_fd >= 0 && ::fstat(m_fd, &st) == 0) m_device = st.st_dev;
    return m_device;
}

QString FileMover::moveToTrash(const QString& path, QString* pathInTrash) {
    quint64 number = 0;
    if (const int e = before(Op::Trash, path, QString(), &number)) return errorText(e);
    // Without the data folder Qt puts the trash in the current folder and reports success.
    QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
    if (!exists(path)) return errorText(ENOENT);
    QString trashed;
    if (!QFile::moveToTrash(path, &trashed) || exists(path))
        return QStringLiteral("The item could not be moved to the trash.");
    if (pathInTrash) *pathInTrash = trashed;
    after(Op::Trash, path, QString(), number);
    return QString();
}

QString FileMover::makePath(const QString& dir) {
    quint64 number = 0;
    if (const int e = before(Op::MakeDirectory, dir, QString(), &number)) return errorText(e);
    const QString clean = QDir::cleanPath(dir);
    qsizetype start = clean.startsWith(u'/') ? 1 : 0;
    for (;;) {
        const qsizetype slash = clean.indexOf(u'/', start);
        const QString part = slash < 0 ? clean : clean.left(slash);
        const QByteArray native = nativePath(part);
        if (!part.isEmpty() && ::mkdir(native.constData(), 0777) != 0) {
            const int e = errno;
            struct stat st {};
            if (e != EEXIST) return errorText(e);
            if (::stat(native.constData(), &st) != 0 || !S_ISDIR(st.st_mode))
                return errorText(ENOTDIR);
        }
        if (slash < 0) break;
        start = slash + 1;
    }
    after(Op::MakeDirectory, dir, QString(), number);
    return QString();
}

QString FileMover::removeDirectory(const QString& dir) {
    quint64 number = 0;
    if (const int e = before(Op::RemoveDirectory, dir, QString(), &number)) return errorText(e);
    if (::rmdir(nativePath(dir).constData()) != 0) return errorText(errno);
    after(Op::RemoveDirectory, dir, QString(), number);
    return QString();
}
