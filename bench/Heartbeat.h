#pragma once
// The longest gap between two ticks of a timer on the main thread: how long
// the main thread went without answering while the measured work ran.
#include <QElapsedTimer>
#include <QTimer>

#include <algorithm>

class Heartbeat {
public:
    explicit Heartbeat(int intervalMs = 5) {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setInterval(intervalMs);
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const qint64 now = m_clock.nsecsElapsed();
            m_longest = std::max(m_longest, now - m_last);
            m_last = now;
        });
    }
    void start() {
        m_clock.start();
        m_last = 0;
        m_longest = 0;
        m_timer.start();
    }
    double longestMs() const { return double(m_longest) / 1e6; }
    double stop() {
        m_timer.stop();
        return longestMs();
    }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = 0, m_longest = 0;
};
