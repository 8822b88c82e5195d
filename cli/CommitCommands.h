#pragma once

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

class MyDocument;
struct PreviewRows;

// The command line's commit: --apply after the preview, and the journal
// commands --undo and --recover, which need no PATH.
struct CommitOptions {
    bool apply = false;
    bool yes = false;
    bool allowConflicts = false;
    std::optional<int> conflictAction; // the stored default when absent
    std::optional<int> jobs;           // moves in flight; the stored default when absent
    std::string undo;                  // a journal to undo
    bool recover = false;
};

// Registers --apply, -y/--yes, --allow-conflicts, --conflict-action, --jobs,
// --undo, --recover.
void addCommitOptions(CLI::App& app, CommitOptions& options);

// --undo or --recover: runs it and returns the exit status; nullopt when
// neither was asked for.
std::optional<int> runJournalCommand(const CommitOptions& options);

// After the preview (its rows as printed): refuses on conflicts (3) or
// without a confirmation (2), asks on a terminal, commits with Ctrl-C
// cancelling between files, prints the summary and "journal: PATH" on
// standard error. 0 when every changed file was renamed, 1 when some were not
// (their old names on standard error).
int runCommit(MyDocument& doc, const CommitOptions& options, const PreviewRows& rows);
