#pragma once

#include <QString>

// A proposed name must name one entry of the item's own folder: a task can
// build one that does not ("./" or "../" as a prefix, a "/" from a find and
// replace), and renaming to it would move the file elsewhere or not at all.
namespace ProposedName {
// Why name is not a file name, in words for a log line or a tool tip; empty
// when it is one (an empty name is the caller's own case).
inline QString problem(const QString& name) {
    if (name.contains(u'/')) return QStringLiteral("it contains \"/\"");
    if (name == u'.' || name == QLatin1String(".."))
        return QStringLiteral("\".\" and \"..\" name folders");
    // The system would see the name end at the first null character.
    if (name.contains(QChar(u'\0'))) return QStringLiteral("it contains a null character");
    return QString();
}
} // namespace ProposedName
