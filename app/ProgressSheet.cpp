#include "ProgressSheet.h"

#include <QDialogButtonBox>
#include <QLabel>
#include <QProgressBar>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>

ProgressSheet::ProgressSheet(QWidget* window, const std::atomic<int>& counter, int maximum)
    : QDialog(window), m_counter(counter), m_label(new QLabel(QStringLiteral("Renaming files…"))),
      m_bar(new QProgressBar), m_timer(new QTimer(this)) {
    setObjectName(QStringLiteral("windowProgress"));
    setWindowTitle(QStringLiteral("Renaming"));
    setWindowModality(Qt::WindowModal);
    m_bar->setObjectName(QStringLiteral("progressBar"));
    m_bar->setAccessibleName(QStringLiteral("Progress"));
    m_bar->setRange(0, qMax(maximum, 0));
    m_bar->setMinimumWidth(360);
    m_bar->setFormat(QStringLiteral("%v of %m"));
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Cancel);
    buttons->button(QDialogButtonBox::Cancel)->setObjectName(QStringLiteral("progressCancel"));
    connect(buttons, &QDialogButtonBox::rejected, this, &ProgressSheet::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_label);
    layout->addWidget(m_bar);
    layout->addWidget(buttons);
    m_timer->setInterval(33);
    connect(m_timer, &QTimer::timeout, this, &ProgressSheet::refresh);
    m_timer->start();
}

void ProgressSheet::refresh() {
    m_bar->setValue(qMin(m_counter.load(std::memory_order_relaxed), m_bar->maximum()));
}

int ProgressSheet::shownValue() const {
    return m_bar->value();
}

void ProgressSheet::reject() {
    m_label->setText(QStringLiteral("Stopping after the current file…"));
    if (auto* cancel = findChild<QPushButton*>(QStringLiteral("progressCancel")))
        cancel->setEnabled(false);
    emit cancelRequested();
}
