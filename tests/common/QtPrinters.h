#pragma once

// How failed expectations show Qt values: as text, not as the bytes of the
// object. Included in every test source by the build, so that each one picks
// up the same printers wherever it compares Qt values.
#include <QString>
#include <QStringList>
#include <ostream>

inline void PrintTo(const QString& s, std::ostream* os) {
    *os << '"' << s.toStdString() << '"';
}

inline void PrintTo(const QStringList& list, std::ostream* os) {
    *os << '{';
    for (qsizetype i = 0; i < list.size(); ++i) {
        if (i) *os << ", ";
        PrintTo(list[i], os);
    }
    *os << '}';
}
