#pragma once

#include <QByteArray>
#include <QString>
#include <functional>
#include <optional>
#include <sys/types.h>

// The one way the commit changes the file system. A move never replaces
// whatever already stands at its destination (renameat2 with RENAME_NOREPLACE,
// or a safe fallback where the file system lacks it). Every operation returns
// an empty string on success, else the system's description of the error.
// Safe from several threads at once; a flag or hard link a file system
// refuses is remembered for it, so it costs one round trip, not one per file.
class FileMover {
public:
    enum class Op { Move, Trash, MakeDirectory, RemoveDirectory };
    enum class Phase { Before, After };
    struct FaultPoint {
        Op op;
        Phase phase;
        QString from;   // the source (the folder for MakeDirectory/RemoveDirectory)
        QString to;     // the destination of a move; empty otherwise
        quint64 number; // the operation's running number since the hook was set, from 1
    };
    // Test seam: called before and after every operation. Before: a non-zero
    // errno value fails the operation with that error, untouched on disk.
    // After (only when the operation succeeded): the return value is ignored.
    using FaultHook = std::function<int(const FaultPoint&)>;
    static void setFaultHook(FaultHook hook); // an empty function removes it
    // The command line's test switches, read from the environment:
    //   SEQMATE_FAULT_MOVE_DELAY_US=N   sleep N microseconds before each operation
    //   SEQMATE_FAULT_FAIL=N[,M...]     fail operations N, M... with EIO
    //   SEQMATE_FAULT_FAIL_MATCH=TEXT   fail every move whose source contains TEXT
    //   SEQMATE_FAULT_STOP_AFTER=N      after operation N has succeeded, never return
    // Does nothing when none is set.
    static void installFaultsFromEnvironment();
    // Test seam: take the fallback path as if renameat2 were unsupported.
    static void setForceFallbackForTesting(bool force);
    // Test seam: act as a file system that refuses rename flags (EINVAL) and/or
    // hard links (EPERM), as SMB does, and forget what real ones refused;
    // refusedAttemptsForTesting counts the calls refused since.
    static void simulateRefusalsForTesting(bool renameFlags, bool hardLinks);
    static int refusedAttemptsForTesting();

    // The folder of the last move made through it, held open: a move within
    // that folder then names only the two entries, where full paths make the
    // system walk every folder above them for both names. For one thread and a
    // short run of moves (it closes on destruction): it acts on the folder it
    // opened, so it must not outlive changes to the folders above it.
    class Folder {
    public:
        Folder() = default;
        ~Folder() { close(); }
        Folder(const Folder&) = delete;
        Folder& operator=(const Folder&) = delete;

    private:
        friend class FileMover;
        int open(QByteArrayView path); // the descriptor, or -1
        void close();
        std::optional<dev_t> device(); // its file system, asked once
        QByteArray m_path;
        int m_fd = -1;
        std::optional<dev_t> m_device;
    };

    // A path in the system's encoding: what QFile::encodeName gives, which
    // on Linux is always UTF-8, by Qt's faster direct path.
    static QByteArray nativePath(const QString& path) { return path.toUtf8(); }

    // Renames from to to (one volume). Never overwrites. errorCode, when
    // given, receives the errno value (0 on success).
    static QString move(const QString& from, const QString& to, int* errorCode = nullptr);
    // The same, with both paths already in the system's encoding
    // (QFile::encodeName); a move within one folder goes through `folder`
    // when one is given.
    static QString move(const QString& from, const QString& to, const QByteArray& nativeFrom,
                        const QByteArray& nativeTo, int* errorCode = nullptr,
                        Folder* folder = nullptr);
    // Moves a file or folder to the user's trash; the path it got there.
    static QString moveToTrash(const QString& path, QString* pathInTrash);
    // Creates a folder and any missing parents.
    static QString makePath(const QString& dir);
    // Removes an empty folder.
    static QString removeDirectory(const QString& dir);
    // True when anything (a file, a folder, even a dangling link) stands at path.
    static bool exists(const QString& path);
    static QString errorText(int error);
};
