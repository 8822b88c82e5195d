#pragma once

#include <QDialog>

#include <atomic>

class QLabel;
class QProgressBar;
class QTimer;

// The commit's progress sheet: a window-modal bar with Cancel. The count
// comes from an atomic counter that the commit thread bumps; a timer draws
// it about 30 times a second, so a fast commit costs no event per file.
class ProgressSheet : public QDialog {
    Q_OBJECT
public:
    ProgressSheet(QWidget* window, const std::atomic<int>& counter, int maximum);
    // Draws the counter now (the last value before the sheet closes).
    void refresh();
    int shownValue() const;

signals:
    void cancelRequested();

protected:
    void reject() override; // Escape cancels too, and the sheet stays until the commit ends

private:
    const std::atomic<int>& m_counter;
    QLabel* m_label;
    QProgressBar* m_bar;
    QTimer* m_timer;
};
