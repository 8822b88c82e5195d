#pragma once

#include <QByteArray>
#include <QWidget>

class QLabel;
class QPlainTextEdit;
class QPushButton;

// The bug reporter's window: what happened, the crash report's text, and
// buttons to save it to a file or copy it to the clipboard for support.
class BugReportWindow : public QWidget {
    Q_OBJECT
public:
    explicit BugReportWindow(const QString& reportPath, QWidget* parent = nullptr);

    bool hasReport() const { return m_readable; }
    // Writes the report's text to the path the user chose (the save dialog
    // has asked before replacing a file); the path, or "" after showing why not.
    QString saveTo(const QString& path);

private:
    void save();
    void copy();

    QString m_path;
    QByteArray m_text;
    bool m_readable = false;
    QLabel* m_headline;
    QLabel* m_status;
    QPlainTextEdit* m_report;
    QPushButton* m_saveButton;
    QPushButton* m_copyButton;
};
