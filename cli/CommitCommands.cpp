#include "CommitCommands.h"

#include "FileMover.h"
#include "MyDocument.h"
#include "Preferences.h"
#include "PreviewRows.h"
#include "RenameJournal.h"

#include <QFileInfo>
#include <QHash>
#include <QSet>

#include <atomic>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <iostream>
#include <unistd.h>

namespace {
void printLine(FILE* out, const QString& text) {
    std::fprintf(out, "%s\n", text.toLocal8Bit().constData());
}
void err(const QString& text) {
    printLine(stderr, text);
}

std::atomic<MyDocument*> interruptedDoc{nullptr};
volatile std::sig_atomic_t interrupted = 0;
static_assert(std::atomic<MyDocument*>::is_always_lock_free);

// Ctrl-C cancels between files, like the progress sheet's Cancel button; a
// second one ends the process (the handler resets itself).
extern "C" void onInterrupt(int) {
    interrupted = 1;
    if (MyDocument* doc = interruptedDoc.load()) doc->cancelProgress();
}

class InterruptGuard {
public:
    explicit InterruptGuard(MyDocument& doc) {
        interrupted = 0;
        interruptedDoc.store(&doc);
        struct sigaction sa {};
        sa.sa_handler = onInterrupt;
        sigemptyset(&sa.sa_mask);
        sa.sa_flags = SA_RESTART | SA_RESETHAND;
        sigaction(SIGINT, &sa, &m_previous);
    }
    ~InterruptGuard() {
        sigaction(SIGINT, &m_previous, nullptr);
        interruptedDoc.store(nullptr);
    }
    InterruptGuard(const InterruptGuard&) = delete;
    InterruptGuard& operator=(const InterruptGuard&) = delete;

private:
    struct sigaction m_previous {};
};

// Stands in front of the terminal's view during the commit: progress goes
// through to its bar, the reports are printed here, on standard error, so
// that standard output keeps only the preview.
class CommitView : public DocumentView {
public:
    CommitView(DocumentView& inner, MyDocument& doc) : m_inner(inner), m_doc(doc) {}
    void reloadTable(bool wait) override { m_inner.reloadTable(wait); }
    void setSpinner(Spinner which, bool running) override { m_inner.setSpinner(which, running); }
    void setRenameEnabled(bool enabled) override { m_inner.setRenameEnabled(enabled); }
    void startProgress(int maximum) override {
        m_inner.startProgress(maximum);
        if (interrupted) m_doc.cancelProgress(); // Ctrl-C before the first file
    }
    void incrementProgress() override { m_inner.incrementProgress(); }
    void endProgress() override { m_inner.endProgress(); }
    int alert(const AlertRequest& r) override {
        if (r.parent == AlertRequest::Parent::ProgressSheet) {
            m_inner.endProgress(); // the summary starts on a line of its own
        } else if (r.messageText == QLatin1String("Rename complete")) {
            completed = true;
        }
        err(r.messageText);
        if (!r.informativeText.isEmpty()) err(r.informativeText);
        return DocumentView::AlertDefault;
    }
    bool completed = false;

private:
    DocumentView& m_inner;
    MyDocument& m_doc;
};

QString plural(qsizetype n) {
    return n == 1 ? QString() : QStringLiteral("s");
}

// Asks the confirmation question on the terminal; true for yes.
bool confirm(int count) {
    std::fprintf(stderr, "%s [y/N] ",
                 QStringLiteral("Are you sure you wish to rename %1 file%2?")
                     .arg(count)
                     .arg(plural(count))
                     .toLocal8Bit()
                     .constData());
    std::fflush(stderr);
    std::string answer;
    if (!std::getline(std::cin, answer)) return false;
    const QString a = QString::fromLocal8Bit(answer).trimmed().toLower();
    return a == u'y' || a == QLatin1String("yes");
}

int undo(const QString& given) {
    QString path = given;
    if (!QFileInfo::exists(path) && QFileInfo::exists(RenameJournal::folder() + u'/' + given))
        path = RenameJournal::folder() + u'/' + given;
    QString error;
    const RenameJournal::UndoReport report = RenameJournal::undo(path, &error);
    if (!error.isEmpty()) {
        err(QStringLiteral("seqmate-cli: %1").arg(error));
        return 2;
    }
    for (const QString& m : report.messages)
        printLine(stdout, m);
    for (const QString& r : report.refused)
        err(r);
    if (!report.journalError.isEmpty())
        err(QStringLiteral("seqmate-cli: undo stopped: nothing moves without a journal. %1")
                .arg(report.journalError));
    const QString already = report.alreadyUndone == 0
                                ? QString()
                                : QStringLiteral(", %1 already undone").arg(report.alreadyUndone);
    printLine(stdout, QStringLiteral("%1 move%2 undone%3, %4 refused")
                          .arg(report.undone)
                          .arg(plural(report.undone), already)
                          .arg(report.refused.size()));
    if (!report.undoJournal.isEmpty()) err(QStringLiteral("journal: %1").arg(report.undoJournal));
    return report.refused.isEmpty() && report.journalError.isEmpty() ? 0 : 1;
}

int recover() {
    const QList<RenameJournal::Interrupted> found = RenameJournal::interrupted();
    if (found.isEmpty()) {
        printLine(stdout, QStringLiteral("No interrupted renames."));
        return 0;
    }
    for (const RenameJournal::Interrupted& i : found) {
        const RenameJournal::Contents& c = i.contents;
        const QString head =
            c.path + QStringLiteral(" (started %1): ")
                         .arg(c.started.toString(QStringLiteral("yyyy-MM-dd HH:mm:ss")));
        const qsizetype left = i.temporaryFiles.size();
        if (c.complete)
            printLine(stdout,
                      head + QStringLiteral("complete, %1 file%2 left under a temporary name")
                                 .arg(left)
                                 .arg(plural(left)));
        else
            printLine(stdout,
                      head +
                          (c.undoes.isEmpty()
                               ? QString()
                               : QStringLiteral("an interrupted undo of %1: ").arg(c.undoes)) +
                          QStringLiteral("%1 move%2 done, %3 not marked done")
                              .arg(i.done)
                              .arg(plural(i.done))
                              .arg(i.pending));
        for (const QString& p : i.inProgress)
            printLine(stdout, QStringLiteral("  in progress: ") + p);
        for (const QString& t : i.temporaryFiles)
            printLine(stdout, QStringLiteral("  temporary: ") + t);
        printLine(stdout, (c.undoes.isEmpty() ? QStringLiteral("  undo with: ")
                                              : QStringLiteral("  finish the undo with: ")) +
                              QStringLiteral("seqmate-cli --undo '%1'").arg(i.undoWith));
    }
    return 0;
}
} // namespace

void addCommitOptions(CLI::App& app, CommitOptions& o) {
    app.add_flag("--apply", o.apply, "rename the files on disk after the preview");
    app.add_flag("-y,--yes", o.yes, "answer yes to the confirmation question");
    app.add_flag("--allow-conflicts", o.allowConflicts,
                 "apply even when the preview flags duplicate new names");
    app.add_option("--conflict-action", o.conflictAction,
                   "a file outside the batch at a new name goes: 0 into \"Conflicting files\", "
                   "1 to a dated name, 2 to the trash (default: the stored preference)")
        ->check(CLI::Range(0, 2));
    app.add_option("--jobs", o.jobs,
                   "moves at once, each in a different folder (default: the stored preference, "
                   "16); 1 renames one file after another")
        ->type_name("N")
        ->check(CLI::Validator(
            [](std::string& value) -> std::string {
                int n = 0;
                const char* end = value.data() + value.size();
                const auto [at, error] = std::from_chars(value.data(), end, n);
                if (error == std::errc() && at == end && n >= 1 && n <= Preferences::kMaxCommitJobs)
                    return {};
                return "takes a whole number from 1 to " +
                       std::to_string(Preferences::kMaxCommitJobs) + ", not \"" + value + '"';
            },
            "", "jobs"));
    auto* undoOption =
        app.add_option("--undo", o.undo, "reverse the moves of a rename journal, last first");
    app.add_flag("--recover", o.recover,
                 "list interrupted renames and the files they left under temporary names")
        ->excludes(undoOption);
}

std::optional<int> runJournalCommand(const CommitOptions& o) {
    if (o.recover) return recover();
    if (!o.undo.empty()) {
        FileMover::installFaultsFromEnvironment(); // an undo can be tested cut short too
        return undo(QString::fromStdString(o.undo));
    }
    return std::nullopt;
}

int runCommit(MyDocument& doc, const CommitOptions& o, const PreviewRows& rows) {
    const int changed = rows.changed;
    QStringList conflicting;
    if (rows.conflicts > 0) {
        const FileList files = doc.fileArray();
        for (qsizetype i = 0; i < files.size(); ++i)
            if (rows.conflicting[i])
                conflicting.append(files[i]->fullPath() + QStringLiteral(" -> ") +
                                   rows.newNames[i]);
    }
    if (!conflicting.isEmpty() && !o.allowConflicts) {
        err(QStringLiteral("seqmate-cli: not renaming: %1 file%2 would get the same name as "
                           "another (--allow-conflicts renames anyway):")
                .arg(conflicting.size())
                .arg(plural(conflicting.size())));
        for (const QString& c : conflicting)
            err(QStringLiteral("  ") + c);
        return 3;
    }
    if (changed == 0) {
        err(QStringLiteral("No files need renaming"));
        return 0;
    }
    if (!o.yes) {
        if (!::isatty(STDIN_FILENO)) {
            err(QStringLiteral("seqmate-cli: not renaming: confirmation needed, and standard input "
                               "is not a terminal (use -y)"));
            return 2;
        }
        if (!confirm(changed)) {
            err(QStringLiteral("Nothing renamed."));
            return 1;
        }
    }

    FileMover::installFaultsFromEnvironment();
    Preferences::setConflictActionOverride(o.conflictAction);
    Preferences::setCommitJobsOverride(o.jobs);
    DocumentView& terminal = doc.view();
    CommitView view(terminal, doc);
    doc.setView(&view);
    // Nothing has touched the batch since its preview was printed: commit
    // the names the table showed rather than working them out again.
    doc.setCommitFromPreviews(true);
    {
        InterruptGuard guard(doc);
        doc.startProcessing(changed);
    }
    doc.setView(&terminal);
    Preferences::setConflictActionOverride(std::nullopt);
    Preferences::setCommitJobsOverride(std::nullopt);

    // Failed files keep their old name; files a Ctrl-C never reached too.
    const QStringList failed = doc.lastFailedNames();
    const QSet<QString> listed(failed.cbegin(), failed.cend());
    QStringList notReached;
    const MyDocument::CommitSummary summary = doc.lastCommitSummary();
    // Batch files moved out of another's way, by what is on disk now: one
    // whose own turn renamed it on from its dated name needs no word.
    QSet<QString> asidePaths;
    for (const MyDocument::MovedAside& a : summary.asides) {
        asidePaths.insert(a.to);
        if (!a.error.isEmpty())
            err(QStringLiteral("Not moved aside: %1 keeps its name (%2)")
                    .arg(QFileInfo(a.from).fileName(), a.error));
        else if (FileMover::exists(a.to))
            err(QStringLiteral("Left under a dated name: %1 (wanted %2)")
                    .arg(QFileInfo(a.to).fileName(), a.wanted));
    }
    // Without a journal nothing moved: the message said so, and a list of
    // every file would only bury it.
    const bool nothingMoved = !summary.journalError.isEmpty() && doc.lastJournalPath().isEmpty();
    // Otherwise every file is renamed or failed, and the names need no second look.
    const bool leftSome = !nothingMoved && (!summary.reachedEnd || !summary.asides.isEmpty());
    const FileList files = leftSome ? doc.fileArray() : FileList();
    for (qsizetype i = 0; i < files.size(); ++i) {
        const QString name = files[i]->fileName();
        if (name == files[i]->proposedFileName() || listed.contains(name)) continue;
        if (!asidePaths.contains(files[i]->fullPath())) notReached.append(name);
    }
    if (!notReached.isEmpty()) {
        err(QStringLiteral("%1: %2 more file%3 not renamed:")
                .arg(interrupted ? QStringLiteral("Interrupted") : QStringLiteral("Stopped"))
                .arg(notReached.size())
                .arg(plural(notReached.size())));
        for (const QString& n : notReached)
            err(n);
    }
    const QString journal = doc.lastJournalPath();
    err(QStringLiteral("journal: %1").arg(journal.isEmpty() ? QStringLiteral("none") : journal));
    const bool allRenamed = view.completed && failed.isEmpty() && notReached.isEmpty();
    return allRenamed ? 0 : 1;
}
