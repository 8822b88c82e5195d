#include "QXFileManager.h"

#include "QXAuthorization.h"
#include "QXLog.h"
#include "QXTask.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zip.h>

namespace fs = std::filesystem;

namespace {

QByteArray native(const QString& path) {
    return QFile::encodeName(path);
}
fs::path fsPath(const QString& path) {
    return fs::path(native(path).toStdString());
}

// Something is there, a dangling link included.
bool existsAt(const QString& path) {
    if (path.isEmpty()) return false;
    struct stat st;
    return ::lstat(native(path).constData(), &st) == 0;
}

QString systemReason(int err) {
    return QString::fromLocal8Bit(std::strerror(err));
}

QString describe(const char* verb, const QString& source, const QString& destination,
                 const QString& reason) {
    return QStringLiteral("Could not %1 %2 to %3: %4")
        .arg(QLatin1String(verb), source, destination, reason);
}

void setError(QString* error, const QString& text) {
    if (error) *error = text;
}

// The descriptor the flag ioctls need; links and special files have no flags of ours.
int openForFlags(const QString& path) {
    struct stat st;
    if (path.isEmpty() || ::lstat(native(path).constData(), &st) != 0) return -1;
    if (!S_ISREG(st.st_mode) && !S_ISDIR(st.st_mode)) return -1;
    return ::open(native(path).constData(),
                  O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC | O_NOCTTY);
}

bool readFlags(const QString& path, int& flags) {
    const int fd = openForFlags(path);
    if (fd < 0) return false;
    const bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    ::close(fd);
    return ok;
}

bool setImmutable(const QString& path, bool on) {
    const int fd = openForFlags(path);
    if (fd < 0) return false;
    int flags = 0;
    bool ok = ::ioctl(fd, FS_IOC_GETFLAGS, &flags) == 0;
    if (ok && ((flags & FS_IMMUTABLE_FL) != 0) != on) {
        flags = on ? (flags | FS_IMMUTABLE_FL) : (flags & ~FS_IMMUTABLE_FL);
        ok = ::ioctl(fd, FS_IOC_SETFLAGS, &flags) == 0;
    }
    ::close(fd);
    return ok;
}

void setImmutableInside(const QString& folder, bool on) {
    QDirIterator it(folder, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext())
        setImmutable(it.next(), on);
}

// The freedesktop trash, through Qt. Qt 6.4 needs the data folder to exist:
// without it, it "trashes" into the current folder and still reports success.
bool moveToTrash(const QString& path) {
    QDir().mkpath(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation));
    return QFile::moveToTrash(path);
}

// --- zip writing -----------------------------------------------------------

bool addToZip(zip_t* za, const QString& path, const QString& entry, QString* error) {
    const QByteArray file = native(path);
    struct stat st;
    if (::lstat(file.constData(), &st) != 0) {
        setError(error, QStringLiteral("%1: %2").arg(path, systemReason(errno)));
        return false;
    }
    const QByteArray name = entry.toUtf8();
    zip_int64_t index = -1;
    if (S_ISLNK(st.st_mode)) {
        // A link is stored as a link: its target as the data, the type in the attributes.
        QByteArray target(static_cast<qsizetype>(st.st_size > 0 ? st.st_size : PATH_MAX), '\0');
        const ssize_t n =
            ::readlink(file.constData(), target.data(), static_cast<size_t>(target.size()));
        if (n < 0) {
            setError(error, QStringLiteral("%1: %2").arg(path, systemReason(errno)));
            return false;
        }
        void* copy = std::malloc(static_cast<size_t>(n) + 1);
        if (!copy) return false;
        std::memcpy(copy, target.constData(), static_cast<size_t>(n));
        zip_source_t* src = zip_source_buffer(za, copy, static_cast<zip_uint64_t>(n), 1);
        if (!src) {
            std::free(copy);
        } else if ((index = zip_file_add(za, name.constData(), src, ZIP_FL_ENC_UTF_8)) < 0) {
            zip_source_free(src);
        }
    } else if (S_ISDIR(st.st_mode)) {
        index = zip_dir_add(za, name.constData(), ZIP_FL_ENC_UTF_8);
    } else if (S_ISREG(st.st_mode)) {
        zip_source_t* src = zip_source_file(za, file.constData(), 0, 0);
        if (src && (index = zip_file_add(za, name.constData(), src, ZIP_FL_ENC_UTF_8)) < 0)
            zip_source_free(src);
    } else {
        return true; // sockets, pipes and devices have no place in an archive
    }
    if (index < 0) {
        setError(error, QString::fromUtf8(zip_strerror(za)));
        return false;
    }
    const zip_uint32_t attributes = static_cast<zip_uint32_t>(st.st_mode) << 16;
    zip_file_set_external_attributes(za, static_cast<zip_uint64_t>(index), 0, ZIP_OPSYS_UNIX,
                                     attributes);
    zip_file_set_mtime(za, static_cast<zip_uint64_t>(index), st.st_mtime, 0);

    if (S_ISDIR(st.st_mode)) {
        const QStringList children = QDir(path).entryList(
            QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System, QDir::Name);
        for (const QString& child : children)
            if (!addToZip(za, QXFileManager::joinPath(path, child), entry + u'/' + child, error))
                return false;
    }
    return true;
}

bool writeZip(const QString& source, const QString& archive, QString* error) {
    int code = 0;
    zip_t* za = zip_open(native(archive).constData(), ZIP_CREATE | ZIP_TRUNCATE, &code);
    if (!za) {
        zip_error_t ze;
        zip_error_init_with_code(&ze, code);
        setError(error, QString::fromUtf8(zip_error_strerror(&ze)));
        zip_error_fini(&ze);
        return false;
    }
    QString parent = source;
    while (parent.size() > 1 && parent.endsWith(u'/'))
        parent.chop(1);
    if (!addToZip(za, parent, QXFileManager::lastPathComponent(parent), error)) {
        zip_discard(za);
        return false;
    }
    if (zip_close(za) != 0) {
        setError(error, QString::fromUtf8(zip_strerror(za)));
        zip_discard(za);
        return false;
    }
    return true;
}

} // namespace

// ---------------------------------------------------------------------------
// Path pieces

QString QXFileManager::lastPathComponent(const QString& path) {
    QString p = path;
    while (p.size() > 1 && p.endsWith(u'/'))
        p.chop(1);
    return p.mid(p.lastIndexOf(u'/') + 1);
}

QString QXFileManager::pathExtension(const QString& path) {
    const QString name = lastPathComponent(path);
    const qsizetype dot = name.lastIndexOf(u'.');
    return dot > 0 ? name.mid(dot + 1) : QString();
}

QString QXFileManager::deletingPathExtension(const QString& path) {
    QString p = path;
    while (p.size() > 1 && p.endsWith(u'/'))
        p.chop(1);
    const QString ext = pathExtension(p);
    return ext.isEmpty() ? p : p.left(p.size() - ext.size() - 1);
}

QString QXFileManager::joinPath(const QString& folder, const QString& name) {
    if (folder.isEmpty()) return name;
    if (folder.endsWith(u'/')) return folder + name;
    return folder + u'/' + name;
}

// ---------------------------------------------------------------------------
// Plain operations

bool QXFileManager::moveItem(const QString& source, const QString& destination, QString* error) {
    if (!existsAt(source)) {
        setError(error, describe("move", source, destination, systemReason(ENOENT)));
        return false;
    }
    const QByteArray from = native(source), to = native(destination);
    if (::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE) == 0)
        return true;
    int err = errno;
    if (err == EINVAL || err == ENOSYS) {
        // A file system without the no-replace rename: test, then rename.
        if (existsAt(destination)) {
            err = EEXIST;
        } else if (::rename(from.constData(), to.constData()) == 0) {
            return true;
        } else {
            err = errno;
        }
    }
    if (err == EXDEV) {
        // Another volume: copy, then remove the original.
        QString copyError;
        if (!copyItem(source, destination, &copyError)) {
            setError(error, describe("move", source, destination, copyError));
            return false;
        }
        std::error_code ec;
        fs::remove_all(fsPath(source), ec);
        if (ec) {
            setError(error, describe("move", source, destination,
                                     QString::fromLocal8Bit(ec.message().c_str())));
            return false;
        }
        return true;
    }
    setError(error, describe("move", source, destination, systemReason(err)));
    return false;
}

bool QXFileManager::copyItem(const QString& source, const QString& destination, QString* error) {
    if (!existsAt(source)) {
        setError(error, describe("copy", source, destination, systemReason(ENOENT)));
        return false;
    }
    if (existsAt(destination)) {
        setError(error, describe("copy", source, destination, systemReason(EEXIST)));
        return false;
    }
    std::error_code ec;
    fs::copy(fsPath(source), fsPath(destination),
             fs::copy_options::recursive | fs::copy_options::copy_symlinks, ec);
    if (ec) {
        setError(error, describe("copy", source, destination,
                                 QString::fromLocal8Bit(ec.message().c_str())));
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Operations with fallback

bool QXFileManager::moveFile(const QString& source, const QString& destination, bool shouldAuth) {
    unlockFile(destination);
    unlockFolder(joinPath(destination, lastPathComponent(source)));

    QString error;
    if (source.toLower() == destination.toLower()) {
        // A change of case only goes through a free name first, for file
        // systems that see both spellings as the same file.
        // Where the two spellings are different names, the free name is the
        // destination itself and one move does it.
        const QString between = uniqueFilename(destination);
        if (moveItem(source, between, &error) &&
            (between == destination || moveItem(between, destination, &error)))
            return true;
    }
    if (moveItem(source, destination, &error)) return true;
    QXLog::appendLog(QStringLiteral("Error moving file: %1. Authorizing...").arg(error));
    if (!shouldAuth) return false;
    return QXAuthorization::sharedController().authMoveFile(source, destination);
}

bool QXFileManager::copyFile(const QString& source, const QString& destination, bool shouldAuth) {
    if (source.isEmpty()) {
        QXLog::appendLogAndPrint(QStringLiteral("Error copying file: source path is nil"));
        return false;
    }
    if (destination.isEmpty()) {
        QXLog::appendLogAndPrint(
            QStringLiteral("Error copying file %1: destination path is nil").arg(source));
        return false;
    }
    unlockFile(QFileInfo(destination).path());
    QString error;
    if (copyItem(source, destination, &error)) return true;
    QXLog::appendLog(QStringLiteral("Error copying file: %1. Authorizing...").arg(error));
    if (!shouldAuth) return false;
    return QXAuthorization::sharedController().authCopyFile(source, destination);
}

bool QXFileManager::createDirectory(const QString& path, bool shouldAuth) {
    std::error_code ec;
    QString error;
    if (path.isEmpty()) {
        error = systemReason(ENOENT);
    } else {
        fs::create_directories(fsPath(path), ec);
        if (!ec && isDirectoryAtPath(path)) return true;
        error = QStringLiteral("Could not create %1: %2")
                    .arg(path,
                         ec ? QString::fromLocal8Bit(ec.message().c_str()) : systemReason(ENOTDIR));
    }
    QXLog::appendLog(QStringLiteral("Error creating folder: %1. Authorizing...").arg(error));
    if (!shouldAuth) return false;
    return QXAuthorization::sharedController().authCreateDir(path);
}

bool QXFileManager::removeFile(const QString& path, bool shouldAuth) {
    unlockFile(path);
    if (!existsAt(path)) return true;
    std::error_code ec;
    fs::remove_all(fsPath(path), ec);
    if (!ec) return true;
    QXLog::appendLog(QStringLiteral("Error removing file: %1. Authorizing...")
                         .arg(QStringLiteral("Could not remove %1: %2")
                                  .arg(path, QString::fromLocal8Bit(ec.message().c_str()))));
    if (!shouldAuth) return false;
    return QXAuthorization::sharedController().authRemoveFile(path);
}

bool QXFileManager::trashFile(const QString& path, bool shouldAuth) {
    unlockFile(path);
    if (!existsAt(path)) return true;
    if (moveToTrash(path)) return true;
    if (!shouldAuth) return false;
    return QXAuthorization::sharedController().authTrashFile(path);
}

bool QXFileManager::trashDirectoryContents(const QString& path, bool shouldAuth) {
    bool failed = false;
    const QStringList entries =
        QDir(path).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    for (const QString& entry : entries)
        if (!trashFile(joinPath(path, entry), shouldAuth)) failed = true;
    return !failed;
}

bool QXFileManager::compressFile(const QString& source, const QString& archive) {
    if (existsAt(archive)) moveToTrash(archive);
    QString error;
    if (!writeZip(source, archive, &error))
        QXLog::appendLog(
            QStringLiteral("Unable to compress %1 to %2: %3").arg(source, archive, error));
    return fileExistsAtPath(archive);
}

bool QXFileManager::touchFile(const QString& path, bool setCreationDate) {
    (void)setCreationDate; // no settable creation date on Linux; touch covers the rest
    if (!existsAt(path)) return false;
    const QString touch = QStringLiteral("/usr/bin/touch");
    const QStringList args = {QStringLiteral("-c"), path};
    if (::access(native(path).constData(), W_OK) == 0) {
        QXTask::runTask(touch, args, 5.0);
        return true;
    }
    return QXAuthorization::sharedController().authExecTask(touch, args, false) == 0;
}

// ---------------------------------------------------------------------------
// Names and sizes

QString QXFileManager::uniqueFilename(const QString& path) {
    const QString base = deletingPathExtension(path);
    const QString ext = pathExtension(path);
    QString candidate = path;
    for (int n = 2; existsAt(candidate); ++n) {
        candidate = base + QStringLiteral(" %1").arg(n);
        if (!ext.isEmpty()) candidate += u'.' + ext;
    }
    return candidate;
}

QString QXFileManager::validateFilename(const QString& name) {
    if (name == QLatin1String(".")) return QString();
    QString result = name;
    if (result.startsWith(u'.')) result.remove(0, 1);
    result = result.trimmed();
    result.remove(u'/');
    result.remove(u':');
    return result;
}

QString QXFileManager::formatFileSize(double bytes) {
    constexpr double k = 0.0009765625; // 1/1024
    if (bytes < 1024) return QString::asprintf("%0.0f B", bytes);
    if (bytes < 1048576) return QString::asprintf("%0.2f KB", bytes * k);
    if (bytes < 1073741824) return QString::asprintf("%0.2f MB", bytes * k * k);
    return QString::asprintf("%0.2f GB", bytes * k * k * k);
}

bool QXFileManager::fileExistsAtPath(const QString& path) {
    return !path.isEmpty() && QFileInfo::exists(path);
}

bool QXFileManager::isDirectoryAtPath(const QString& path) {
    return !path.isEmpty() && QFileInfo(path).isDir();
}

// ---------------------------------------------------------------------------
// The locked attribute

bool QXFileManager::lockFile(const QString& path) {
    return setImmutable(path, true) && isFileLocked(path);
}

void QXFileManager::unlockFile(const QString& path) {
    setImmutable(path, false);
}

bool QXFileManager::isFileLocked(const QString& path) {
    int flags = 0;
    return readFlags(path, flags) && (flags & FS_IMMUTABLE_FL) != 0;
}

bool QXFileManager::supportsLocking(const QString& path) {
    int flags = 0;
    return readFlags(path, flags);
}

void QXFileManager::lockFolder(const QString& path) {
    setImmutableInside(path, true);
}

void QXFileManager::unlockFolder(const QString& path) {
    setImmutableInside(path, false);
}
