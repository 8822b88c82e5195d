#pragma once

#include "DocumentView.h"

#include <QList>
#include <QPointer>

#include <atomic>

class DocumentWindow;
class MyDocument;
class ProgressSheet;
class QXAlert;
class QWidget;

// The window's DocumentView, and the one class that crosses threads. Calls
// from other threads are posted to the window (dropped once it is gone); a
// call that must wait carries a promise and waits on it in short slices, and
// gives up when the window closes, so the main thread may wait on any engine
// thread without deadlock. On the main thread every call is direct.
class DocumentViewBridge final : public DocumentView {
public:
    explicit DocumentViewBridge(DocumentWindow& window);
    ~DocumentViewBridge() override;
    void setDocument(MyDocument* document) { m_document = document; }

    void reloadTable(bool wait) override;
    void setSpinner(Spinner which, bool running) override;
    void setRenameEnabled(bool enabled) override;
    void clearSelection() override;
    void settingsChanged() override;
    void taskChanged(int tag, const QString& blankDescription) override;
    void startProgress(int maximum) override;
    void incrementProgress() override;
    void endProgress() override;
    int alert(const AlertRequest& request) override;
    void requestAttention() override;

    // Main thread. A commit is between its progress start and end.
    bool commitRunning() const { return m_commitRunning.load(); }
    // A blocking alert runs its own event loop on the main thread right now.
    bool inMainThreadAlert() const { return m_mainAlertDepth > 0; }
    ProgressSheet* progressSheet() const;
    // Answers every open sheet as its Cancel button would (0).
    void answerOpenSheets();
    // The window is going: from now on nothing waits for it.
    void shutDown();
    bool isShutDown() const { return m_closing.load(); }

private:
    template <class F> void post(F f);
    template <class F> void runAndWait(F f);
    bool giveUp() const;
    QWidget* alertParent(AlertRequest::Parent parent) const;
    int showAlert(const AlertRequest& request, QXAlert* alert);

    DocumentWindow& m_window;
    MyDocument* m_document = nullptr;
    std::atomic<bool> m_closing{false};
    std::atomic<bool> m_commitRunning{false};
    std::atomic<int> m_progress{0};
    int m_mainAlertDepth = 0;                // main thread
    QPointer<ProgressSheet> m_progressSheet; // main thread
    QList<QPointer<QXAlert>> m_openAlerts;   // main thread
};
