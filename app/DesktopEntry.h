#pragma once

#include <QHash>
#include <QString>
#include <QStringList>

// The parts of a freedesktop desktop entry ("*.desktop") needed to start the
// application it describes: the [Desktop Entry] group's keys and its Exec
// line split into a program and its arguments.
class DesktopEntry {
public:
    // Reads the file; false when it cannot be read or has no [Desktop Entry] group.
    bool load(const QString& path);
    // The value of a key of the [Desktop Entry] group, its escapes resolved.
    QString value(const QString& key) const;
    // The Exec line as program and arguments, with the field codes (%f, %U,
    // ...) dropped and "%%" made "%". Empty when the line is missing or malformed.
    QStringList command() const;
    // Whether the entry describes an application that can be started: type
    // "Application", not hidden, its TryExec program present, with a command.
    bool isLaunchable() const;

    // The quoting rules of the Exec key, for a line whose general escapes
    // were already resolved; empty when a quote is left open.
    static QStringList splitExec(const QString& exec);

    // The entry of that file name in the XDG application folders, the user's
    // first; "" when none exists.
    static QString locate(const QString& fileName);

private:
    QHash<QString, QString> m_values;
};
