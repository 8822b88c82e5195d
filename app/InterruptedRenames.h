#pragma once

#include <QObject>
#include <QPointer>
#include <QStringList>

#include <thread>

class QWidget;

// At launch: renames that a crash or a kill cut short, found in the journal
// folder, are reported on a sheet that offers to restore the original names
// (the journal's undo) or to leave the files as they are. A rename left as
// it is is not reported again.
class InterruptedRenames : public QObject {
    Q_OBJECT
public:
    explicit InterruptedRenames(QObject* parent = nullptr);
    // Waits for an undo still under way: files are never left half restored.
    ~InterruptedRenames() override;

    // Shows the sheet on the window when there is something to report;
    // false (and no sheet) when there is not.
    bool offer(QWidget* window);

    // The journals the user chose to leave alone (QSettings).
    static const QString leftJournalsKey;

signals:
    // The sheet was answered and any undo it started has ended.
    void finished();

private:
    void answered(int returnCode);
    void restore();
    void restored(int undone, const QStringList& problems);

    QPointer<QWidget> m_window;
    QStringList m_journals; // the interrupted renames shown on the sheet
    QStringList m_undoWith; // the journal whose undo restores each
    std::thread m_undo;
};
