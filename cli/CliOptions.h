#pragma once

#include <QString>
#include <QStringList>
#include <optional>

// Task names of the command line, in tag order (tag = index + 1).
const QStringList& cliTaskNames();
// A tag 1-26 or a name; nullopt when it is neither.
std::optional<int> parseTask(const QString& text);
// The conform format as the token field holds it: "@@ Kind @@" tokens inside
// the string, free text between them.
QStringList parseFormat(const QString& format);
// A check box state from the command line: 1/0, true/false, yes/no, on/off.
std::optional<int> parseCheckState(const QString& text);
