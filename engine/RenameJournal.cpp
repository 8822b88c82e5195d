#include "RenameJournal.h"

#include "FileMover.h"
#include "QXLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QUuid>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <initializer_list>
#include <unistd.h>

namespace {
const QByteArray header = QByteArrayLiteral("seqmate-journal\t1");

struct KindName {
    RenameJournal::Kind kind;
    const char* name;
};
constexpr KindName kindNames[] = {
    {RenameJournal::Kind::Rename, "rename"},   {RenameJournal::Kind::Temp, "temp"},
    {RenameJournal::Kind::FromTemp, "untemp"}, {RenameJournal::Kind::Aside, "aside"},
    {RenameJournal::Kind::Dated, "dated"},     {RenameJournal::Kind::Conflict, "conflict"},
    {RenameJournal::Kind::Trash, "trash"},     {RenameJournal::Kind::MakeDir, "mkdir"},
    {RenameJournal::Kind::Undo, "undo"},       {RenameJournal::Kind::RemoveDir, "rmdir"},
};

bool isMove(RenameJournal::Kind kind) {
    return kind != RenameJournal::Kind::MakeDir && kind != RenameJournal::Kind::RemoveDir &&
           kind != RenameJournal::Kind::Trash;
}

// The trash keeps "<trash>/files/NAME" with "<trash>/info/NAME.trashinfo" beside it.
QString trashInfoPath(const QString& pathInTrash) {
    const QFileInfo fi(pathInTrash);
    return QFileInfo(fi.path()).path() + QStringLiteral("/info/") + fi.fileName() +
           QStringLiteral(".trashinfo");
}

// A record's number in decimal, without an array of its own.
class Number {
public:
    explicit Number(qint64 n) : m_end(std::to_chars(m_digits, m_digits + sizeof m_digits, n).ptr) {}
    operator QByteArrayView() const { return QByteArrayView(m_digits, m_end - m_digits); }

private:
    char m_digits[24];
    char* m_end;
};

// Appends a record's pieces with one size check. The mover writes two or
// four records per file, and appending piece by piece (a check, and maybe a
// new buffer, each) was most of its own work besides the system calls.
void appendRecord(QByteArray& out, std::initializer_list<QByteArrayView> pieces) {
    qsizetype total = 0;
    for (const QByteArrayView piece : pieces)
        total += piece.size();
    const qsizetype at = out.size();
    out.resize(at + total);
    char* to = out.data() + at;
    for (const QByteArrayView piece : pieces) {
        if (piece.isEmpty()) continue;
        std::memcpy(to, piece.data(), static_cast<size_t>(piece.size()));
        to += piece.size();
    }
}

bool folderIsEmpty(const QString& dir) {
    return QDir(dir)
        .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System)
        .isEmpty();
}
} // namespace

RenameJournal::~RenameJournal() {
    flush();
    if (m_fd >= 0) ::close(m_fd);
}

QString RenameJournal::folder() {
    return QXLog::logFolder() + QStringLiteral("/Journals");
}

QString RenameJournal::kindName(Kind kind) {
    for (const KindName& k : kindNames)
        if (k.kind == kind) return QString::fromLatin1(k.name);
    return QString();
}

std::optional<RenameJournal::Kind> RenameJournal::kindFromName(const QString& name) {
    for (const KindName& k : kindNames)
        if (name == QLatin1String(k.name)) return k.kind;
    return std::nullopt;
}

QByteArray RenameJournal::encodePath(const QString& path) {
    return encodeField(path.toUtf8());
}

QByteArray RenameJournal::encodeField(const QByteArray& utf8) {
    // Control characters, DEL and the escape character itself.
    const auto escaped = [](unsigned char b) -> unsigned {
        return b < 0x20 || b == 0x7f || b == '%';
    };
    // The usual case, a path with nothing to escape, is shared as it is. The
    // test runs to the end without branching, which the compiler vectorises:
    // the commit checks three paths per file.
    const auto* bytes = reinterpret_cast<const unsigned char*>(utf8.constData());
    unsigned any = 0;
    for (qsizetype i = 0; i < utf8.size(); ++i)
        any |= escaped(bytes[i]);
    if (!any) return utf8;
    QByteArray out;
    out.reserve(utf8.size() + 8);
    static const char hex[] = "0123456789ABCDEF";
    for (qsizetype i = 0; i < utf8.size(); ++i) {
        const unsigned char b = bytes[i];
        if (escaped(b)) {
            out.append('%');
            out.append(hex[b >> 4]);
            out.append(hex[b & 0xf]);
        } else {
            out.append(char(b));
        }
    }
    return out;
}

QString RenameJournal::decodePath(const QByteArray& field) {
    return QString::fromUtf8(QByteArray::fromPercentEncoding(field));
}

bool RenameJournal::create(QString* error) {
    const QString dir = folder();
    if (!QDir().mkpath(dir)) {
        if (error) *error = QStringLiteral("Unable to create folder %1.").arg(dir);
        return false;
    }
    const QString name = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")) +
                         u'-' + QUuid::createUuid().toString(QUuid::WithoutBraces) +
                         QStringLiteral(".journal");
    const QString path = dir + u'/' + name;
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) {
        if (error) *error = FileMover::errorText(errno);
        return false;
    }
    m_fd = fd;
    m_path = path;
    m_next = 1;
    const QByteArray start =
        header + "\nbegin\t" + QDateTime::currentDateTime().toString(Qt::ISODate).toUtf8() + '\n';
    if (!writeRecord(start)) {
        if (error) *error = FileMover::errorText(errno);
        return false;
    }
    ::fdatasync(m_fd);
    // The new name itself must survive a crash too.
    const int dfd = ::open(QFile::encodeName(dir).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (dfd >= 0) {
        ::fsync(dfd);
        ::close(dfd);
    }
    return true;
}

bool RenameJournal::writeRecord(const QByteArray& line) {
    if (m_fd < 0) return false;
    const char* p = line.constData();
    auto left = static_cast<size_t>(line.size());
    while (left > 0) {
        const ssize_t n = ::write(m_fd, p, left);
        if (n < 0) {
            if (errno == EINTR) continue;
            QXLog::appendLog(QStringLiteral("Unable to write rename journal %1. %2")
                                 .arg(m_path, FileMover::errorText(errno)));
            ::close(m_fd);
            m_fd = -1;
            return false;
        }
        p += n;
        left -= static_cast<size_t>(n);
    }
    return true;
}

qint64 RenameJournal::begin(Kind kind, const QString& from, const QString& to,
                            const QString& finalPath) {
    const qint64 n = announce(kind, encodePath(from), encodePath(to),
                              finalPath.isEmpty() ? QByteArray() : encodePath(finalPath));
    flush();
    return n;
}

qint64 RenameJournal::announce(Kind kind, const QByteArray& fromField, const QByteArray& toField,
                               const QByteArray& finalField) {
    if (m_fd < 0) return 0;
    const qint64 n = m_next++;
    const char* name = "";
    for (const KindName& k : kindNames)
        if (k.kind == kind) name = k.name;
    const QByteArrayView beforeFinal = finalField.isEmpty() ? "" : "\t";
    appendRecord(m_pending, {"move\t", Number(n), "\t", name, "\t", fromField, "\t", toField,
                             beforeFinal, finalField, "\n"});
    return n;
}

void RenameJournal::withdraw(qint64 number) {
    if (m_fd < 0 || number <= 0) return;
    appendRecord(m_pending, {"fail\t", Number(number), "\tnot attempted\n"});
}

void RenameJournal::done(qint64 number, const QString& where) {
    if (m_fd < 0 || number <= 0) return;
    const QByteArray whereField = where.isEmpty() ? QByteArray() : encodePath(where);
    appendRecord(m_pending,
                 {"done\t", Number(number), where.isEmpty() ? "" : "\t", whereField, "\n"});
}

void RenameJournal::failed(qint64 number, const QString& error) {
    if (m_fd < 0 || number <= 0) return;
    // Written at once: a failed move left unmarked could later be judged made
    // by what the disk shows (its source gone, something at its target).
    appendRecord(m_pending, {"fail\t", Number(number), "\t", encodePath(error), "\n"});
    flush();
}

void RenameJournal::flush() {
    if (m_fd < 0 || m_pending.isEmpty()) return;
    writeRecord(m_pending);
    m_pending.resize(0); // keeps the buffer for the next records
}

void RenameJournal::complete() {
    if (m_fd < 0) return;
    QByteArray line;
    line.swap(m_pending);
    if (writeRecord(line + "complete\n")) ::fdatasync(m_fd);
    if (m_fd >= 0) ::close(m_fd);
    m_fd = -1;
}

std::optional<RenameJournal::Contents> RenameJournal::read(const QString& path, QString* error) {
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        if (error) *error = file.errorString();
        return std::nullopt;
    }
    QList<QByteArray> lines = file.readAll().split('\n');
    // The part after the last line break is a record cut short (or nothing).
    lines.removeLast();
    if (lines.isEmpty() || lines.first() != header) {
        if (error) *error = QStringLiteral("%1 is not a rename journal").arg(path);
        return std::nullopt;
    }
    Contents c;
    c.path = path;
    QHash<qint64, qsizetype> byNumber;
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QList<QByteArray> f = lines[i].split('\t');
        const QByteArray& tag = f.first();
        if (tag == "begin" && f.size() >= 2) {
            c.started = QDateTime::fromString(QString::fromUtf8(f[1]), Qt::ISODate);
        } else if (tag == "move" && f.size() >= 5) {
            const auto kind = kindFromName(QString::fromLatin1(f[2]));
            if (!kind) continue;
            Step s;
            s.number = f[1].toLongLong();
            s.kind = *kind;
            s.from = decodePath(f[3]);
            s.to = decodePath(f[4]);
            if (f.size() >= 6) s.finalPath = decodePath(f[5]);
            byNumber.insert(s.number, c.steps.size());
            c.steps.append(s);
        } else if ((tag == "done" || tag == "fail") && f.size() >= 2) {
            const auto it = byNumber.constFind(f[1].toLongLong());
            if (it == byNumber.constEnd()) continue;
            Step& s = c.steps[*it];
            if (tag == "done") {
                s.state = State::Done;
                if (f.size() >= 3) s.where = decodePath(f[2]);
            } else {
                s.state = State::Failed;
                if (f.size() >= 3) s.error = decodePath(f[2]);
            }
        } else if (tag == "complete") {
            c.complete = true;
        } else if (tag == "undone" && f.size() >= 2) {
            c.undoneBy = decodePath(f[1]);
        }
    }
    return c;
}

QStringList RenameJournal::list() {
    const QDir dir(folder());
    QStringList out;
    for (const QString& name :
         dir.entryList({QStringLiteral("*.journal")}, QDir::Files | QDir::Hidden, QDir::Name))
        out.append(dir.filePath(name));
    return out;
}

bool RenameJournal::appendUndone(const QString& path, const QString& undoJournal) {
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Append)) return false;
    const QByteArray line = "undone\t" + encodePath(undoJournal) + '\n';
    return f.write(line) == line.size();
}

bool RenameJournal::stepHappened(const Step& step) {
    switch (step.state) {
    case State::Done:
        return true;
    case State::Failed:
        return false;
    case State::Pending:
        break;
    }
    if (step.kind == Kind::MakeDir) return FileMover::exists(step.from);
    if (step.kind == Kind::RemoveDir) return !FileMover::exists(step.from);
    if (step.kind == Kind::Trash) return !FileMover::exists(step.from);
    return !FileMover::exists(step.from) && FileMover::exists(step.to);
}

RenameJournal::UndoReport RenameJournal::undo(const QString& path, QString* error) {
    UndoReport report;
    const auto contents = read(path, error);
    if (!contents) return report;
    if (!contents->undoneBy.isEmpty()) {
        if (error)
            *error = QStringLiteral("%1 was already undone by %2").arg(path, contents->undoneBy);
        return report;
    }
    RenameJournal journal;
    bool journalTried = false;
    auto record = [&](Kind kind, const QString& from, const QString& to) -> qint64 {
        if (!journalTried) {
            journalTried = true;
            QString why;
            if (journal.create(&why))
                report.undoJournal = journal.path();
            else
                report.messages.append(QStringLiteral("No undo journal: %1").arg(why));
        }
        return journal.begin(kind, from, to);
    };
    // Moves a file back unless it has left the place the journal gave it.
    // unmarked: the move was never marked done, and is judged by the disk.
    auto moveBack = [&](const QString& now, const QString& back, bool unmarked) -> bool {
        if (!FileMover::exists(now)) {
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
        const qint64 n = record(Kind::Undo, now, back);
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

    for (auto it = contents->steps.crbegin(); it != contents->steps.crend(); ++it) {
        const Step& s = *it;
        if (!stepHappened(s)) continue;
        switch (s.kind) {
        case Kind::MakeDir:
            if (!FileMover::exists(s.from)) break;
            if (!folderIsEmpty(s.from)) {
                report.messages.append(
                    QStringLiteral("Left %1 in place: it is not empty").arg(s.from));
            } else {
                const qint64 n = record(Kind::RemoveDir, s.from, QString());
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
            moveBack(s.to, s.from, s.state == State::Pending);
            break;
        }
    }
    journal.complete();
    if (report.refused.isEmpty())
        appendUndone(path, report.undoJournal.isEmpty() ? QStringLiteral("-") : report.undoJournal);
    return report;
}

QList<RenameJournal::Interrupted> RenameJournal::interrupted() {
    QList<Interrupted> out;
    for (const QString& path : list()) {
        auto contents = read(path);
        if (!contents || contents->complete || !contents->undoneBy.isEmpty()) continue;
        Interrupted r;
        const QList<Step>& steps = contents->steps;
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
        // A file put under a temporary or dated name whose next move never came.
        QHash<QString, qsizetype> lastMoveFrom;
        for (qsizetype i = 0; i < steps.size(); ++i)
            if (happened[i] && isMove(steps[i].kind)) lastMoveFrom.insert(steps[i].from, i);
        for (qsizetype i = 0; i < steps.size(); ++i) {
            const Step& s = steps[i];
            if (!happened[i] || (s.kind != Kind::Temp && s.kind != Kind::Aside)) continue;
            const bool movedOn = lastMoveFrom.value(s.to, -1) > i;
            if (movedOn || !FileMover::exists(s.to)) continue;
            if (s.kind == Kind::Temp)
                r.temporaryFiles.append(
                    QStringLiteral("%1 (was %2, to become %3)").arg(s.to, s.from, s.finalPath));
            else
                r.temporaryFiles.append(
                    QStringLiteral("%1 (moved aside from %2)").arg(s.to, s.from));
        }
        r.contents = std::move(*contents);
        out.append(std::move(r));
    }
    return out;
}
