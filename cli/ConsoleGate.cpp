#include "ConsoleGate.h"

#include "QXConsole.h"

#include <QMutex>
#include <cstdio>

namespace {
struct GateState {
    QMutex mutex;
    bool holding = false;
    QStringList held;
};

GateState& state() {
    static GateState s;
    return s;
}

// Standard output first: a line must never cut into a row that is still in
// its buffer.
void writeLocked(const QString& line) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s\n", line.toLocal8Bit().constData());
    std::fflush(stderr);
}
} // namespace

ConsoleGate::ConsoleGate() {
    {
        QMutexLocker lock(&state().mutex);
        state().holding = true;
    }
    QXConsole::setSink([](const QString& line) {
        GateState& s = state();
        QMutexLocker lock(&s.mutex);
        if (s.holding)
            s.held.append(line);
        else
            writeLocked(line);
    });
}

ConsoleGate::~ConsoleGate() {
    release();
    QXConsole::setSink({});
}

void ConsoleGate::release() {
    GateState& s = state();
    QMutexLocker lock(&s.mutex);
    for (const QString& line : std::as_const(s.held))
        writeLocked(line);
    s.held.clear();
    s.holding = false;
}

void ConsoleGate::dropExceptionLines() {
    GateState& s = state();
    QMutexLocker lock(&s.mutex);
    s.held.removeIf([](const QString& line) { return line.startsWith(u"Exception in "); });
}

void ConsoleGate::printError(const QString& line) {
    QMutexLocker lock(&state().mutex);
    writeLocked(line);
}
