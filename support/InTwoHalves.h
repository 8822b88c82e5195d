#pragma once

#include <QtGlobal>
#include <exception>
#include <thread>

// Below this many items a second thread costs more than it saves.
inline constexpr qsizetype kTwoHalvesMinimum = 4096;

// Runs work(from, to) over [0, count) in two halves on a machine with two
// cores or more: the second half on a thread of its own, the first on the
// caller's. Below `minimum` items all of it runs on the caller's. Both halves always run to their
// end; the first exception, in list order, is then thrown again.
template <typename Work> void inTwoHalves(qsizetype count, qsizetype minimum, const Work& work) {
    if (count < minimum || std::thread::hardware_concurrency() < 2) {
        work(qsizetype(0), count);
        return;
    }
    const qsizetype half = count / 2;
    std::exception_ptr second;
    std::thread other([&] {
        try {
            work(half, count);
        } catch (...) {
            second = std::current_exception();
        }
    });
    std::exception_ptr first;
    try {
        work(qsizetype(0), half);
    } catch (...) {
        first = std::current_exception();
    }
    other.join();
    if (first) std::rethrow_exception(first);
    if (second) std::rethrow_exception(second);
}
