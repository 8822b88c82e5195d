#pragma once

#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>
#include <optional>

// A record of every move of one commit, written before each move is made, so
// that an interrupted commit can be reported and every step undone.
//
// One file per commit in the log folder's "Journals" folder, named
// "<yyyyMMdd-HHmmss>-<uuid>.journal". Text, one record per line, fields
// separated by tabs; paths are UTF-8 with "%", tab, line breaks and other
// control characters percent-encoded:
//   seqmate-journal 1                          the header
//   begin <ISO date>
//   move  <n> <kind> <from> <to> [<final>]     written before the move
//   done  <n> [<where>]                         after it succeeded (where: the trash path)
//   fail  <n> <error>                           after it failed, or was announced and not made
//   complete                                    the commit ended
//   undone <journal>                            undone by that journal
//   undoes <journal>                            (an undo's own journal) the journal it undoes
// Records are written with write(2) on an O_APPEND descriptor, always before
// the move they describe: a killed process leaves every record it wrote, since
// the data is in the page cache. A run of moves may be announced together, in
// one write, before the first of them is made; those not made after all get a
// "fail" mark before anything else moves. The "done" marks ride along with the
// next write ("fail" is written at once); a move whose mark was lost is judged
// by what the disk shows. The file is fdatasync'ed after the header
// and after the last record, not after each one: on ext4 a sync per record costs about ten times
// the rename itself (bench/commit_bench.sh measures it), and a power cut loses the file system's
// own last few seconds of renames as well.
class RenameJournal {
public:
    enum class Kind {
        Rename,   // old -> new
        Temp,     // old -> temporary name (final: the new name)
        FromTemp, // temporary name -> new
        Aside,    // a batch file in the way -> its dated name
        Dated,    // a foreign file in the way -> its dated name
        Conflict, // a foreign file in the way -> "Conflicting files"
        Trash,    // a foreign file in the way -> the trash (done carries where)
        MakeDir,  // the "Conflicting files" folder was created
        Undo,     // a move that reverses an earlier one (final: where the file ends up,
                  // when this move is one of several that take it back)
        RemoveDir // an undo removed a folder the commit had created
    };
    enum class State { Pending, Done, Failed };
    struct Step {
        qint64 number = 0;
        Kind kind = Kind::Rename;
        QString from;
        QString to;
        QString finalPath; // Temp: the name the file was meant to get
        State state = State::Pending;
        QString where; // Trash: the path in the trash
        QString error;
    };
    struct Contents {
        QString path;
        QDateTime started;
        QList<Step> steps;
        bool complete = false;
        QString undoneBy; // the journal of the undo, when undone
        QString undoes;   // for an undo's own journal: the journal it undoes
    };

    RenameJournal() = default;
    ~RenameJournal();
    RenameJournal(const RenameJournal&) = delete;
    RenameJournal& operator=(const RenameJournal&) = delete;

    static QString folder(); // QXLog::logFolder() + "/Journals"
    // Creates a new journal in folder(); false with a description on failure.
    // undoes: for an undo's own journal, the journal it undoes.
    bool create(QString* error, const QString& undoes = QString());
    // False before create(), and from the moment a record could not be
    // written: nothing may move once it is false.
    bool isOpen() const { return m_fd >= 0; }
    QString path() const { return m_path; }
    // Why the journal could not be created or written; empty when it could.
    QString error() const { return m_error; }

    // Records a step before it is made; returns its number (0 when it could
    // not be written, and the step must not be made).
    qint64 begin(Kind kind, const QString& from, const QString& to,
                 const QString& finalPath = QString());
    // Records a move in the buffer only: flush() writes it, which must come
    // before the move is made. The paths are fields made by encodeField().
    qint64 announce(Kind kind, const QByteArray& fromField, const QByteArray& toField,
                    const QByteArray& finalField = QByteArray());
    // An announced move that will not be made: a "fail" mark, written by the
    // next flush(), which must come before anything else moves.
    void withdraw(qint64 number);
    void done(qint64 number, const QString& where = QString());
    void failed(qint64 number, const QString& error);
    // The final record; syncs and closes the file.
    void complete();
    // Writes the records that wait in the buffer; false when it cannot.
    bool flush();

    static QString kindName(Kind kind);
    static std::optional<Kind> kindFromName(const QString& name);
    static QByteArray encodePath(const QString& path);
    // encodePath() of a path already in UTF-8.
    static QByteArray encodeField(const QByteArray& utf8);
    static QString decodePath(const QByteArray& field);

    // Reads a journal; a torn last line (a record cut by a crash) is ignored.
    static std::optional<Contents> read(const QString& path, QString* error = nullptr);
    // Every journal in folder(), oldest first.
    static QStringList list();
    // Whether a running commit or undo still writes the journal: its writer
    // holds a lock on it for as long as it runs, which the system drops when
    // the writer ends, killed or not.
    static bool inUse(const QString& path);
    // Marks a journal as undone by another.
    static bool appendUndone(const QString& path, const QString& undoJournal);

    // Whether the move of a step has happened, by what the disk shows now:
    // Done steps have; Pending steps have when the source is gone and the
    // destination is there.
    static bool stepHappened(const Step& step);

    // Reverses the moves of a journal, last first, recording them in a new
    // journal. A step whose file is no longer where the journal left it (or
    // whose old place is taken) is refused with a message and skipped; one
    // that an earlier, interrupted undo of the same journal already reversed
    // counts as undone. Nothing moves without the undo's own journal: when it
    // cannot be created or written, the undo stops there (journalError).
    struct UndoReport {
        QString undoJournal; // empty when nothing had to move
        int undone = 0;
        int alreadyUndone = 0; // reversed by an earlier undo that was cut short
        QStringList refused;   // one message per step refused
        QStringList messages;  // what was done, one line per step
        QString journalError;  // set when the undo stopped for want of its journal
    };
    static UndoReport undo(const QString& path, QString* error);

    // What an interrupted commit or undo left behind.
    struct Interrupted {
        Contents contents;
        int done = 0;
        int pending = 0;
        QStringList temporaryFiles; // "TMP (was OLD, to become NEW)"
        QStringList inProgress;     // moves recorded but not marked done
        // The journal whose undo puts everything back: the journal itself,
        // or for an interrupted undo the journal it was undoing (undoing the
        // undo's own journal would make the renames again).
        QString undoWith;
    };
    // The journals that need a look (never one still in use): those without "complete" that were
    // not undone (an interrupted undo only while its journal is not undone since), and complete
    // ones that left a file under a temporary name.
    static QList<Interrupted> interrupted();

private:
    bool writeRecord(const QByteArray& line);
    int m_fd = -1;
    QString m_path;
    QString m_error;
    QByteArray m_pending; // done/fail marks not yet written
    qint64 m_next = 1;
};
