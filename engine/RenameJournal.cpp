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
#include <sys/file.h>
#include <sys/stat.h>
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

// The folder and its missing parents; 0 or the errno value. Not through
// FileMover: the journal's own folder is no step of the commit.
int makeFolders(const QByteArray& dir) {
    for (qsizetype slash = dir.indexOf('/', 1);; slash = dir.indexOf('/', slash + 1)) {
        const QByteArray part = slash < 0 ? dir : dir.left(slash);
        if (::mkdir(part.constData(), 0777) != 0 && errno != EEXIST) return errno;
        if (slash < 0) break;
    }
    struct stat st {};
    if (::stat(dir.constData(), &st) != 0) return errno;
    return S_ISDIR(st.st_mode) ? 0 : ENOTDIR;
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

bool RenameJournal::create(QString* error, const QString& undoes) {
    const QString dir = folder();
    const auto fail = [&](int code) {
        m_error = QStringLiteral("Unable to create rename journal in %1. %2")
                      .arg(dir, FileMover::errorText(code));
        if (error) *error = m_error;
        return false;
    };
    if (const int e = makeFolders(QFile::encodeName(dir))) return fail(e);
    const QString name = QDateTime::currentDateTime().toString(QStringLiteral("yyyyMMdd-HHmmss")) +
                         u'-' + QUuid::createUuid().toString(QUuid::WithoutBraces) +
                         QStringLiteral(".journal");
    const QString path = dir + u'/' + name;
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0) return fail(errno);
    // Held until the journal is closed: another program's recovery must not
    // take a live run for an interrupted one and undo it under its feet.
    ::flock(fd, LOCK_EX | LOCK_NB);
    m_fd = fd;
    m_path = path;
    m_next = 1;
    QByteArray start =
        header + "\nbegin\t" + QDateTime::currentDateTime().toString(Qt::ISODate).toUtf8() + '\n';
    if (!undoes.isEmpty()) start += "undoes\t" + encodePath(undoes) + '\n';
    if (!writeRecord(start)) {
        // Not even the header: no journal to read later.
        const int e = errno;
        ::unlink(QFile::encodeName(path).constData());
        m_path.clear();
        return fail(e);
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

bool RenameJournal::inUse(const QString& path) {
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return false;
    const bool locked = ::flock(fd, LOCK_SH | LOCK_NB) != 0 && errno == EWOULDBLOCK;
    ::close(fd);
    return locked;
}

bool RenameJournal::writeRecord(const QByteArray& line) {
    if (m_fd < 0) return false;
    const char* p = line.constData();
    auto left = static_cast<size_t>(line.size());
    while (left > 0) {
        const ssize_t n = ::write(m_fd, p, left);
        if (n < 0) {
            if (errno == EINTR) continue;
            const int e = errno;
            m_error = QStringLiteral("Unable to write rename journal %1. %2")
                          .arg(m_path, FileMover::errorText(e));
            QXLog::appendLog(m_error);
            // Closed for good: a journal with a gap in it would misreport what moved.
            ::close(m_fd);
            m_fd = -1;
            m_pending.clear();
            errno = e;
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
    return flush() ? n : 0;
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

bool RenameJournal::flush() {
    if (m_fd < 0) return false;
    if (m_pending.isEmpty()) return true;
    if (!writeRecord(m_pending)) return false;
    m_pending.resize(0); // keeps the buffer for the next records
    return true;
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
        } else if (tag == "undoes" && f.size() >= 2) {
            c.undoes = decodePath(f[1]);
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
    if (!f.open(QIODevice::ReadWrite | QIODevice::Append)) return false;
    QByteArray line = "undone\t" + encodePath(undoJournal) + '\n';
    // A record cut short (a full disk, a crash) must not swallow this one.
    if (f.size() > 0 && f.seek(f.size() - 1) && f.read(1) != "\n") line.prepend('\n');
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
