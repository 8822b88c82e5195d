// What happens to a file that stands at a new name: a batch file is moved to
// a dated name, a foreign one goes where the "conflictAction" preference says.
#include "CommitRunner.h"
#include "FileMover.h"
#include "Preferences.h"
#include "QXDate.h"
#include "QXLog.h"

#include <QDateTime>

namespace {
// p without its extension, "_" and the local date and time, then the
// extension of extensionFrom (p itself unless told otherwise) when it has one.
QString datedName(const QString& p, const QString& extensionFrom) {
    const QString ext = QXFileItem::pathExtension(QXFileItem::lastPathComponent(extensionFrom));
    const QString base =
        joinPath(folderOf(p), QXFileItem::deletingPathExtension(QXFileItem::lastPathComponent(p)));
    const QString dated = base + u'_' + QXDate::datedSuffix(QDateTime::currentDateTime());
    if (ext.isEmpty()) return dated;
    return dated + u'.' + ext;
}
QString datedName(const QString& p) {
    return datedName(p, p);
}
} // namespace

// Moves whatever stands at newPath out of the way; false when item failed.
bool CommitRunner::clearTheWay(QXFileItem& item, const QString& newPath, Lane& lane) {
    // The lines of the files before this one go first.
    flushLog(lane);
    // Nothing moves unrecorded.
    {
        std::lock_guard lock(m_journalMutex);
        if (!journalLocked().isOpen()) {
            m_unrecorded = true;
            return false;
        }
    }
    if (const FileItemPtr inWay = m_doc.fileInQueue(newPath)) {
        QXLog::appendLog(
            QStringLiteral("Proposed file %1 exists, renaming old file...").arg(newPath));
        const QString dated = datedName(newPath);
        // The batch item follows its file to the dated name, even if the move then fails.
        const QString wanted = inWay->proposedFileName();
        inWay->setFileName(QXFileItem::lastPathComponent(dated));
        m_doc.noteItemPathChanged(inWay.get(), newPath);
        const QString error = move(RenameJournal::Kind::Aside, newPath, dated);
        {
            // What happened to that file, for the reports: they name what is on disk.
            std::lock_guard lock(m_resultsMutex);
            m_asides.append({newPath, dated, wanted, error});
            if (!error.isEmpty())
                m_asideFailedAt.insert(dated, QXFileItem::lastPathComponent(newPath));
        }
        if (!error.isEmpty()) {
            fail(item);
            QXLog::appendLog(QStringLiteral("Unable to assign temporary name to old file %1. %2")
                                 .arg(newPath, error));
            return false;
        }
        return true;
    }

    switch (Preferences::conflictAction()) {
    case 1: {
        const QString dated = datedName(newPath);
        const QString error = move(RenameJournal::Kind::Dated, newPath, dated);
        if (!error.isEmpty()) {
            fail(item);
            QXLog::appendLog(
                QStringLiteral("Unable to rename file %1 to %2. %3").arg(newPath, dated, error));
            return false;
        }
        return true;
    }
    case 2: {
        const qint64 n = record(RenameJournal::Kind::Trash, newPath, QString());
        if (n == 0) return false;
        QString where;
        const QString error = FileMover::moveToTrash(newPath, &where);
        if (!error.isEmpty()) {
            markFailed(n, error);
            fail(item);
            QXLog::appendLog(QStringLiteral("Unable to trash file %1").arg(newPath));
            return false;
        }
        markDone(n, where);
        return true;
    }
    case 0: {
        const QString dir = joinPath(folderOf(newPath), QStringLiteral("Conflicting files"));
        if (!FileMover::exists(dir)) {
            const qint64 n = record(RenameJournal::Kind::MakeDir, dir, QString());
            if (n == 0) return false;
            const QString error = FileMover::makePath(dir);
            if (!error.isEmpty()) {
                markFailed(n, error);
                fail(item);
                QXLog::appendLog(
                    QStringLiteral("Unable to create directory %1. %2").arg(dir, error));
                return false;
            }
            markDone(n);
        }
        QString dest = joinPath(dir, QXFileItem::lastPathComponent(newPath));
        if (FileMover::exists(dest)) dest = datedName(dest, newPath);
        const QString error = move(RenameJournal::Kind::Conflict, newPath, dest);
        if (!error.isEmpty()) {
            fail(item);
            QXLog::appendLog(
                QStringLiteral("Unable to move file %1 to %2. %3").arg(newPath, dest, error));
            return false;
        }
        return true;
    }
    default: // an unknown choice fails the file, without a word in the log
        fail(item);
        return false;
    }
}
