#include "BugReportWindow.h"

#include <QApplication>
#include <QClipboard>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFontDatabase>
#include <QHBoxLayout>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSaveFile>
#include <QStandardPaths>
#include <QVBoxLayout>

BugReportWindow::BugReportWindow(const QString& reportPath, QWidget* parent)
    : QWidget(parent), m_path(reportPath) {
    setWindowTitle(tr("Seqmate Bug Reporter"));
    setObjectName(QStringLiteral("bugReportWindow"));

    m_headline = new QLabel(this);
    m_headline->setObjectName(QStringLiteral("headline"));
    m_headline->setWordWrap(true);
    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("status"));
    m_status->setWordWrap(true);
    m_status->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_report = new QPlainTextEdit(this);
    m_report->setObjectName(QStringLiteral("reportText"));
    m_report->setAccessibleName(tr("Crash report"));
    m_report->setReadOnly(true);
    m_report->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
    m_report->setLineWrapMode(QPlainTextEdit::NoWrap);

    m_saveButton = new QPushButton(tr("Save…"), this);
    m_saveButton->setObjectName(QStringLiteral("saveButton"));
    m_copyButton = new QPushButton(tr("Copy to Clipboard"), this);
    m_copyButton->setObjectName(QStringLiteral("copyButton"));
    auto* close = new QPushButton(tr("Close"), this);
    close->setObjectName(QStringLiteral("closeButton"));
    close->setDefault(true);
    connect(m_saveButton, &QPushButton::clicked, this, &BugReportWindow::save);
    connect(m_copyButton, &QPushButton::clicked, this, &BugReportWindow::copy);
    connect(close, &QPushButton::clicked, this, &QWidget::close);

    auto* buttons = new QHBoxLayout;
    buttons->addWidget(m_saveButton);
    buttons->addWidget(m_copyButton);
    buttons->addStretch();
    buttons->addWidget(close);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(m_headline);
    layout->addWidget(m_report, 1);
    layout->addWidget(m_status);
    layout->addLayout(buttons);
    resize(720, 520);

    QFile file(reportPath);
    m_readable = file.open(QIODevice::ReadOnly);
    if (m_readable) {
        m_text = file.readAll();
        m_headline->setText(tr("Seqmate quit unexpectedly the last time it ran. This is the "
                               "report it left; save it or copy it and send it to support."));
        m_report->setPlainText(QString::fromUtf8(m_text));
        m_status->setText(tr("Crash report: %1").arg(reportPath));
    } else {
        m_headline->setText(
            tr("Unable to read crash report %1: %2").arg(reportPath, file.errorString()));
        m_report->hide();
        m_status->hide();
        resize(sizeHint().expandedTo(QSize(480, 0))); // no room kept for a text that is not there
    }
    m_saveButton->setEnabled(m_readable);
    m_copyButton->setEnabled(m_readable);
}

QString BugReportWindow::saveTo(const QString& path) {
    QSaveFile saved(path);
    if (saved.open(QIODevice::WriteOnly) && saved.write(m_text) == m_text.size() &&
        saved.commit()) {
        m_status->setText(tr("Saved the report to %1").arg(path));
        return path;
    }
    m_status->setText(tr("Unable to save the report to %1: %2").arg(path, saved.errorString()));
    return QString();
}

void BugReportWindow::save() {
    const QString folder = QStandardPaths::writableLocation(QStandardPaths::DesktopLocation);
    const QString path = QFileDialog::getSaveFileName(this, tr("Save Crash Report"),
                                                      folder + u'/' + QFileInfo(m_path).fileName());
    if (!path.isEmpty()) saveTo(path);
}

void BugReportWindow::copy() {
    QApplication::clipboard()->setText(QString::fromUtf8(m_text));
    m_status->setText(tr("Copied the report to the clipboard."));
}
