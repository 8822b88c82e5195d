#include "FileMover.h"

#include <QDir>
#include <QFile>
#include <QMutex>
#include <QSet>
#include <QStandardPaths>

#include <atomic>
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

// Where renameat2 is missing (ENOSYS) or the file system refuses the flag
// (EINVAL): a file is hard-linked to its new name, which fails when the name
// is taken, then unlinked from the old one; a folder (or a file system
// without hard links) is checked with lstat immediately before rename(2).
int fallbackMove(const char* from, const char* to) {
    struct stat st {};
    if (::lstat(from, &st) != 0) return errno;
    if (!S_ISDIR(st.st_mode)) {
        if (::link(from, to) == 0) {
            if (::unlink(from) == 0) return 0;
            const int e = errno;
            ::unlink(to); // the old name stays; take the new link back
            return e;
        }
        const int e = errno;
        if (e != EPERM && e != EOPNOTSUPP && e != EMLINK) return e;
    }
    struct stat target {};
    if (::lstat(to, &target) == 0) return EEXIST;
    if (errno != ENOENT) return errno;
    return ::rename(from, to) == 0 ? 0 : errno;
}

bool renameat2Usable() {
    return !forceFallback.load(std::memory_order_relaxed) &&
           !kernelLacksRenameat2.load(std::memory_order_relaxed);
}

// The result of a renameat2 call: 0, the error to report, or -1 when the
// fallback must answer (no renameat2, or a file system without the flag;
// EINVAL is also a folder moved into itself, which the fallback answers too).
int renameNoReplaceAt(int fromDir, const char* from, int toDir, const char* to) {
    if (::syscall(SYS_renameat2, fromDir, from, toDir, to, RENAME_NOREPLACE) == 0) return 0;
    const int e = errno;
    if (e == ENOSYS) kernelLacksRenameat2.store(true);
    return e == ENOSYS || e == EINVAL ? -1 : e;
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

// dir: an open folder holding both names (the leaves of from and to), or -1.
int moveNoReplace(const char* from, const char* to, int dir, const char* fromName,
                  const char* toName) {
    if (renameat2Usable()) {
        const int r = dir >= 0 ? renameNoReplaceAt(dir, fromName, dir, toName)
                               : renameNoReplaceAt(AT_FDCWD, from, AT_FDCWD, to);
        if (r >= 0) return r;
    }
    return fallbackMove(from, to);
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
        int dir = -1;
        const char *fromName = nullptr, *toName = nullptr;
        if (folder) {
            const auto a = entryOf(nativeFrom), b = entryOf(nativeTo);
            // A move between folders may move the held one or a folder above it;
            // a folder that cannot be opened is left to the full paths, which say why.
            if (!a || !b || a->folder != b->folder) {
                folder->close();
            } else if (renameat2Usable()) {
                dir = folder->open(a->folder);
                fromName = a->name;
                toName = b->name;
            }
        }
        e = moveNoReplace(nativeFrom.constData(), nativeTo.constData(), dir, fromName, toName);
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
