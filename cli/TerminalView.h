#pragma once

#include "DocumentView.h"

#include <QMutex>
#include <cstdio>

// The command line's DocumentView: alerts are printed (message, then the
// informative text), the progress sheet is a bar on standard error when that
// is a terminal, and blocking questions take the answer they were given.
class TerminalView : public DocumentView {
public:
    TerminalView();
    void reloadTable(bool) override {}
    void setSpinner(Spinner, bool) override {}
    void setRenameEnabled(bool) override {}
    void startProgress(int maximum) override;
    void incrementProgress() override;
    void endProgress() override;
    int alert(const AlertRequest& request) override;

    // The answer to questions with two buttons (the rename confirmation).
    void setConfirmAnswer(int answer) { m_confirmAnswer = answer; }
    // Alerts are printed unless quiet (the JSON output must stay clean).
    void setQuiet(bool quiet) { m_quiet = quiet; }
    bool progressShown() const { return m_barEnabled; }

private:
    void drawBar();
    QMutex m_mutex;
    int m_confirmAnswer = AlertDefault;
    bool m_quiet = false;
    bool m_barEnabled = false;
    int m_max = 0;
    int m_value = 0;
    int m_lastDrawn = -1;
};
