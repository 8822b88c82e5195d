#pragma once

#include <QString>
#include <optional>
#include <string>

// A path given on the command line, taken byte for byte. A path that is not
// valid UTF-8 cannot be named faithfully through QString: decoding it would
// turn the bad bytes into U+FFFD and name another file, so it is refused.
std::optional<QString> pathFromArgument(const std::string& argument);
// The argument for a message: valid UTF-8 as it stands, every other byte
// written \xHH.
QString escapedArgument(const std::string& argument);
