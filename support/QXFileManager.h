#pragma once

#include <QString>

// File operations with the user's own rights first and, when they fail and
// the caller allows it, the same operation again with administrator rights
// through QXAuthorization. Stateless; callable from any thread. Failures are
// log lines ("... Authorizing...") and a false result.
//
// The locked attribute is the Linux immutable flag (FS_IMMUTABLE_FL) where the
// file system keeps it; elsewhere a file reads as not locked and locking does
// nothing. Changing the flag needs CAP_LINUX_IMMUTABLE.
class QXFileManager {
public:
    // The shouldAuth forms; the short forms allow the fallback.
    static bool moveFile(const QString& source, const QString& destination, bool shouldAuth = true);
    static bool copyFile(const QString& source, const QString& destination, bool shouldAuth = true);
    static bool createDirectory(const QString& path, bool shouldAuth = true);
    static bool removeFile(const QString& path, bool shouldAuth = true);
    static bool trashFile(const QString& path, bool shouldAuth = true);
    static bool trashDirectoryContents(const QString& path, bool shouldAuth = true);

    // Writes a zip archive of source that keeps its parent folder (entries
    // "<name>/..."), links stored as links. An existing archive is trashed
    // first. True when a file exists at the archive path afterwards.
    static bool compressFile(const QString& source, const QString& archive);

    // Updates the modification time. Linux keeps no settable creation date,
    // so setCreationDate has no further effect there.
    static bool touchFile(const QString& path, bool setCreationDate = false);

    // The first free "<name> N.<ext>" (N from 2) when something is at path.
    static QString uniqueFilename(const QString& path);
    // A name safe to use: "." gives "", one leading "." and surrounding white
    // space go, every "/" and ":" is removed.
    static QString validateFilename(const QString& name);
    // "1023 B", "1.00 KB", "1.00 MB", "1.00 GB".
    static QString formatFileSize(double bytes);

    static bool fileExistsAtPath(const QString& path); // follows links
    static bool isDirectoryAtPath(const QString& path);

    // The immutable flag of one path (errors ignored); lockFile says whether it is now set.
    static bool lockFile(const QString& path);
    static void unlockFile(const QString& path);
    static bool isFileLocked(const QString& path);
    // Whether the file system at path keeps the flag at all.
    static bool supportsLocking(const QString& path);
    // Every entry inside the folder, recursively; the folder itself is left alone.
    static void lockFolder(const QString& path);
    static void unlockFolder(const QString& path);

    // Plain operations without logging or fallback, with the system's reason
    // on failure. Neither replaces an existing destination.
    static bool moveItem(const QString& source, const QString& destination, QString* error);
    static bool copyItem(const QString& source, const QString& destination, QString* error);

    // Path pieces as the platform's path rules see them.
    static QString lastPathComponent(const QString& path);
    static QString pathExtension(const QString& path); // after the last dot, a leading dot aside
    static QString deletingPathExtension(const QString& path);
    static QString joinPath(const QString& folder, const QString& name);
};
