#include "TerminalView.h"

#include <QTextStream>
#include <unistd.h>

TerminalView::TerminalView() = default;

void TerminalView::startProgress(int maximum) {
    QMutexLocker lock(&m_mutex);
    m_barEnabled = ::isatty(STDERR_FILENO) != 0;
    m_max = maximum;
    m_value = 0;
    m_lastDrawn = -1;
    drawBar();
}

void TerminalView::incrementProgress() {
    QMutexLocker lock(&m_mutex);
    ++m_value;
    drawBar();
}

void TerminalView::endProgress() {
    QMutexLocker lock(&m_mutex);
    if (m_barEnabled) std::fputs("\n", stderr);
    m_barEnabled = false;
}

void TerminalView::drawBar() {
    if (!m_barEnabled || m_max <= 0) return;
    const int percent = static_cast<int>(100LL * m_value / m_max);
    if (percent == m_lastDrawn && m_value != m_max) return; // at most a hundred redraws
    m_lastDrawn = percent;
    constexpr int width = 40;
    const int filled = width * percent / 100;
    std::fprintf(stderr, "\r[%.*s%*s] %3d%% (%d/%d)", filled,
                 "########################################", width - filled, "", percent, m_value,
                 m_max);
    std::fflush(stderr);
}

int TerminalView::alert(const AlertRequest& request) {
    if (!m_quiet) {
        // Reports over the progress sheet (the failure summary) go to stderr.
        FILE* out = request.parent == AlertRequest::Parent::ProgressSheet ? stderr : stdout;
        QMutexLocker lock(&m_mutex);
        if (m_barEnabled) std::fputs("\n", stderr);
        std::fprintf(out, "%s\n", request.messageText.toLocal8Bit().constData());
        if (!request.informativeText.isEmpty())
            std::fprintf(out, "%s\n", request.informativeText.toLocal8Bit().constData());
        std::fflush(out);
    }
    if (!request.block) return -1;
    return request.alternateButton.isEmpty() ? AlertDefault : m_confirmAnswer;
}
