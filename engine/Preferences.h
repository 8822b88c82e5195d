#pragma once

#include <optional>

// The application's user defaults that the engine reads (QSettings,
// organization "Corvane", application "Seqmate").
namespace Preferences {
// What the commit does with a file that stands at a target and is not one of
// the batch's: 0 into "Conflicting files", 1 dated name in place, 2 the trash;
// any other value fails the rename. The one-run override wins when set.
int conflictAction();
void setConflictAction(int value);
// Whether the file table shows full paths ("~" for the home folder): the
// "showFullSourcePaths" default equal to 1.
bool showFullSourcePaths();
// For one run (the command line's --conflict-action); nullopt removes it.
void setConflictActionOverride(std::optional<int> value);

// How many moves the commit keeps in flight at once ("commitJobs", default
// kDefaultCommitJobs); 1 moves one file after another. A stored value below 1
// or not a number reads as the default.
constexpr int kDefaultCommitJobs = 16;
// The most either front end offers to set.
constexpr int kMaxCommitJobs = 64;
int commitJobs();
void setCommitJobs(int value);
// For one run (the command line's --jobs); nullopt removes it.
void setCommitJobsOverride(std::optional<int> value);
} // namespace Preferences
