#pragma once

#include <QString>
#include <QStringList>

// Where the framework's console lines (exceptions, log trouble) go on the
// command line. While held they are kept, so that none lands inside the table
// or the JSON; released, they go to standard error after what standard output
// holds, one whole line at a time.
class ConsoleGate {
public:
    // Installs the gate as the console's sink, holding.
    ConsoleGate();
    // Prints what is still held and gives the console back to standard error.
    ~ConsoleGate();
    ConsoleGate(const ConsoleGate&) = delete;
    ConsoleGate& operator=(const ConsoleGate&) = delete;

    // Prints the held lines and lets later ones through.
    void release();
    // Drops the held lines that report exceptions: the caller has said what
    // went wrong in one line of its own (the log keeps them all).
    void dropExceptionLines();
    // A line of the program's own on standard error, in the same order.
    static void printError(const QString& line);
};
