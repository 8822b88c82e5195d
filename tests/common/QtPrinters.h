#pragma once

// How failed expectations show Qt strings: as text, not as the bytes of the
// object; GoogleTest prints a QStringList as a container of them. Included in
// every test source by the build, so that each one picks up the same printer.
#include <QString>
#include <ostream>

inline void PrintTo(const QString& s, std::ostream* os) {
    *os << '"' << s.toStdString() << '"';
}
