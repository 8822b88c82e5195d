#pragma once

#include <QString>
#include <functional>

// The system console of the framework: standard error, one line per message.
// Tests install a sink to read what was printed.
namespace QXConsole {
void print(const QString& message);
// Replaces the output channel; an empty function restores standard error.
void setSink(std::function<void(const QString&)> sink);
} // namespace QXConsole
