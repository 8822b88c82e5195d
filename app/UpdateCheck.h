#pragma once

#include <QString>
#include <QStringList>

// The check for software updates after launch: the maker's update program,
// found as the desktop entry "com.corvane.SoftwareUpdate.desktop" in the XDG
// application folders, is started detached with "-checkpath" and our own path.
class UpdateCheck {
public:
    static QString entryName();
    // False when the vendor-wide preferences hold "SUCheckAtStartup" as a
    // number equal to false; a missing file or key means the check runs.
    static bool isEnabled();
    // The command that asks the update program to check on the program at
    // that path; empty when no update program is installed.
    static QStringList command(const QString& programPath);
    // Starts the check when it is enabled and installed, without waiting;
    // true when a program was started.
    static bool run(const QString& programPath);
};
