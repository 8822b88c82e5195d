// Undoing a journal, and finding what interrupted commits and undos left behind.
#include "RenameJournal.h"

#include "FileMover.h"
#include "QXFileItem.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace {
using Kind = RenameJournal::Kind;
using Step = RenameJournal::Step;

bool isMove(Kind kind) {
    return kind != Kind::MakeDir && kind != Kind::RemoveDir && kind != Kind::Trash;
}

// The trash keeps "<trash>/files/NAME" with "<trash>/info/NAME.trashinfo" beside it.
QString trashInfoPath(const QString& pathInTrash) {
    const QFileInfo fi(pathInTrash);
    return QFileInfo(fi.path()).path() + QStringLiteral("/info/") + fi.fileName() +
           QStringLiteral(".trashinfo");
}

bool folderIsEmpty(const QString& dir) {
    return QDir(dir)
        .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System)
        .isEmpty();
}

// Journals are named uniquely: the name alone tells an undo's journal which
// journal it undid, wherever the folder was reached from.
QString journalName(const QString& path) {
    return QXFileItem::lastPathComponent(path);
}

// For each move, the place its file stood before the journal began: the
// chain of earlier moves into its source, followed back. Moves not marked
// done count too: the disk can judge them only one at a time, as the undo
// reaches them.
QStringList firstPlaces(const QList<Step>& steps) {
    QStringList first(steps.size());
    QHash<QString, qsizetype> lastInto;
    for (qsizetype i = 0; i < steps.size(); ++i) {
        const Step& s = steps[i];
        if (s.state == RenameJournal::State::Failed || !isMove(s.kind)) continue;
        const auto earlier = lastInto.constFind(s.from);
        first[i] = earlier == lastInto.constEnd() ? s.from : first[*earlier];
        lastInto.insert(s.to, i);
    }
    return first;
}

// The moves (from, to) that earlier undos of the journal made before they
// were cut short or refused a step. An undo records one move at a time, so
// at most its last one is unmarked, and counted as made: a file not at its
// source any more is the case that matters.
QSet<std::pair<QString, QString>> movesOfEarlierUndos(const QString& path) {
    QSet<std::pair<QString, QString>> out;
    for (const QString& other : RenameJournal::list()) {
        const auto c = RenameJournal::read(other);
        if (!c || journalName(c->undoes) != journalName(path)) continue;
        for (const Step& s : c->steps)
            if (s.kind == Kind::Undo && s.state != RenameJournal::State::Failed)
                out.insert({s.from, s.to});
    }
    return out;
}
} // namespace

RenameJournal::UndoReport RenameJournal::undo(const QString& path, QString* error) {
    UndoReport report;
    // The journal stays locked while it is undone, as a commit keeps its own:
    // no recovery elsewhere takes it for interrupted, and no second undo runs.
    struct Guard {
        int fd;
        ~Guard() {
            if (fd >= 0) ::close(fd);
        }
    } guard{::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC)};
    if (guard.fd >= 0 && ::flock(guard.fd, LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK) {
        if (error)
            *error = QStringLiteral("%1 is in use by a rename that is still running").arg(path);
        return report;
    }
    const auto contents = read(path, error);
    if (!contents) return report;
    if (!contents->undoneBy.isEmpty()) {
        if (error)
            *error = QStringLiteral("%1 was already undone by %2").arg(path, contents->undoneBy);
        return report;
    }
    const QList<Step>& steps = contents->steps;
    const QStringList first = firstPlaces(steps);
    const auto reversedBefore = movesOfEarlierUndos(path);

    RenameJournal journal;
    bool journalTried = false;
    // 0 when the undo's journal cannot take the step: then nothing more moves.
    auto record = [&](Kind kind, const QString& from, const QString& to,
                      const QString& finalPath = QString()) -> qint64 {
        if (!journalTried) {
            journalTried = true;
            if (journal.create(nullptr, QFileInfo(path).absoluteFilePath()))
                report.undoJournal = journal.path();
        }
        const qint64 n = journal.begin(kind, from, to, finalPath);
        if (n == 0) report.journalError = journal.error();
        return n;
    };
    // Moves a file back unless it has left the place the journal gave it.
    // unmarked: the move was never marked done, and is judged by the disk.
    // finalPath: where the file ends up when this is one of several moves back.
    auto moveBack = [&](const QString& now, const QString& back, bool unmarked,
                        const QString& finalPath = QString()) -> bool {
        if (!FileMover::exists(now)) {
            if (reversedBefore.contains({now, back})) {
                ++report.alreadyUndone;
                return true;
            }
            report.refused.append(
                QStringLiteral("Not undone: %1 is no longer at %2").arg(back, now));
            return false;
        }
        if (FileMover::exists(back)) {
            report.refused.append(
                QStringLiteral("Not undone: %1 cannot go back to %2, which is taken")
                    .arg(now, back));
            return false;
        }
        const qint64 n = record(Kind::Undo, now, back, finalPath);
        if (n == 0) return false;
        const QString failure = FileMover::move(now, back);
        if (!failure.isEmpty()) {
            journal.failed(n, failure);
            report.refused.append(QStringLiteral("Not undone: %1 could not be moved to %2. %3")
                                      .arg(now, back, failure));
            return false;
        }
        journal.done(n);
        ++report.undone;
        report.messages.append(
            QStringLiteral("%1 -> %2").arg(now, back) +
            (unmarked ? QStringLiteral(" (the move was not marked done)") : QString()));
        return true;
    };

    for (qsizetype i = steps.size() - 1; i >= 0 && report.journalError.isEmpty(); --i) {
        const Step& s = steps[i];
        // Judged only now: a move not marked done whose file moved on is seen
        // as made once the later moves are undone.
        if (!stepHappened(s)) continue;
        switch (s.kind) {
        case Kind::MakeDir:
            if (!FileMover::exists(s.from)) break;
            if (!folderIsEmpty(s.from)) {
                report.messages.append(
                    QStringLiteral("Left %1 in place: it is not empty").arg(s.from));
            } else if (const qint64 n = record(Kind::RemoveDir, s.from, QString())) {
                const QString failure = FileMover::removeDirectory(s.from);
                if (failure.isEmpty())
                    journal.done(n);
                else
                    journal.failed(n, failure);
            }
            break;
        case Kind::RemoveDir:
            if (FileMover::makePath(s.from).isEmpty()) ++report.undone;
            break;
        case Kind::Trash:
            if (s.where.isEmpty()) {
                report.refused.append(
                    QStringLiteral(
                        "Not undone: %1 went to the trash; the journal does not say where")
                        .arg(s.from));
            } else if (moveBack(s.where, s.from, false)) {
                QFile::remove(trashInfoPath(s.where));
            }
            break;
        default:
            moveBack(s.to, s.from, s.state == State::Pending,
                     first[i] == s.from ? QString() : first[i]);
            break;
        }
    }
    journal.complete();
    if (report.refused.isEmpty() && report.journalError.isEmpty())
        appendUndone(path, report.undoJournal.isEmpty() ? QStringLiteral("-") : report.undoJournal);
    return report;
}

QList<RenameJournal::Interrupted> RenameJournal::interrupted() {
    // All of them first: an undo's journal is judged by the journal it undid.
    QList<Contents> all;
    QHash<QString, qsizetype> byName;
    for (const QString& path : list()) {
        if (inUse(path)) continue; // a run still going on is no interrupted one
        if (auto contents = read(path)) {
            byName.insert(journalName(path), all.size());
            all.append(std::move(*contents));
        }
    }
    QList<Interrupted> out;
    for (Contents& contents : all) {
        if (!contents.undoneBy.isEmpty()) continue;
        QString undoWith = contents.path;
        if (!contents.undoes.isEmpty()) {
            // Finishing the undo means undoing its journal again, never this one.
            const auto original = byName.constFind(journalName(contents.undoes));
            if (original != byName.constEnd()) {
                if (!all[*original].undoneBy.isEmpty()) continue; // finished since
                undoWith = all[*original].path;
            } else {
                undoWith = contents.undoes;
            }
        }
        Interrupted r;
        const QList<Step>& steps = contents.steps;
        QList<bool> happened;
        happened.reserve(steps.size());
        for (const Step& s : steps) {
            happened.append(stepHappened(s));
            if (s.state == State::Done)
                ++r.done;
            else if (s.state == State::Pending) {
                ++r.pending;
                r.inProgress.append(QStringLiteral("%1 -> %2 (%3)")
                                        .arg(s.from, s.to.isEmpty() ? QStringLiteral("?") : s.to,
                                             happened.last() ? QStringLiteral("made")
                                                             : QStringLiteral("not made")));
            }
        }
        // A file put under a temporary name (a dated one too, when the run was
        // cut short) whose next move never came.
        QHash<QString, qsizetype> lastMoveFrom;
        for (qsizetype i = 0; i < steps.size(); ++i)
            if (happened[i] && isMove(steps[i].kind)) lastMoveFrom.insert(steps[i].from, i);
        for (qsizetype i = 0; i < steps.size(); ++i) {
            const Step& s = steps[i];
            const bool intermediate = s.kind == Kind::Temp ||
                                      (s.kind == Kind::Aside && !contents.complete) ||
                                      (s.kind == Kind::Undo && !s.finalPath.isEmpty());
            if (!happened[i] || !intermediate) continue;
            const bool movedOn = lastMoveFrom.value(s.to, -1) > i;
            if (movedOn || !FileMover::exists(s.to)) continue;
            if (s.kind == Kind::Temp)
                r.temporaryFiles.append(
                    QStringLiteral("%1 (was %2, to become %3)").arg(s.to, s.from, s.finalPath));
            else if (s.kind == Kind::Undo)
                r.temporaryFiles.append(
                    QStringLiteral("%1 (was %2, to go back to %3)").arg(s.to, s.from, s.finalPath));
            else
                r.temporaryFiles.append(
                    QStringLiteral("%1 (moved aside from %2)").arg(s.to, s.from));
        }
        if (contents.complete && r.temporaryFiles.isEmpty()) continue;
        r.undoWith = undoWith;
        r.contents = std::move(contents);
        out.append(std::move(r));
    }
    return out;
}
