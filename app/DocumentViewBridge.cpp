#include "DocumentViewBridge.h"

#include "DocumentWindow.h"
#include "MyDocument.h"
#include "ProgressSheet.h"
#include "QXAlert.h"

#include <QApplication>
#include <QThread>

#include <chrono>
#include <future>

namespace {
// How often a waiting engine thread looks up from its wait.
constexpr auto kWaitSlice = std::chrono::milliseconds(10);

bool onMainThread() {
    return QThread::currentThread() == QCoreApplication::instance()->thread();
}

QString orNull(const QString& s) {
    return s.isEmpty() ? QString() : s;
}
} // namespace

DocumentViewBridge::DocumentViewBridge(DocumentWindow& window) : m_window(window) {}

DocumentViewBridge::~DocumentViewBridge() {
    shutDown();
}

template <class F> void DocumentViewBridge::post(F f) {
    if (onMainThread()) {
        f();
        return;
    }
    // The window is the context: a post that arrives after it closed is dropped.
    QMetaObject::invokeMethod(&m_window, std::move(f), Qt::QueuedConnection);
}

template <class F> void DocumentViewBridge::runAndWait(F f) {
    if (onMainThread()) {
        f();
        return;
    }
    auto done = std::make_shared<std::promise<void>>();
    std::future<void> future = done->get_future();
    QMetaObject::invokeMethod(
        &m_window,
        [f = std::move(f), done]() mutable {
            f();
            done->set_value();
        },
        Qt::QueuedConnection);
    // A dropped post breaks the promise, which also ends the wait.
    while (future.wait_for(kWaitSlice) != std::future_status::ready)
        if (giveUp()) return;
}

bool DocumentViewBridge::giveUp() const {
    return m_closing.load() || (m_document && m_document->processingCancelled());
}

void DocumentViewBridge::reloadTable(bool wait) {
    auto reload = [this] { m_window.reloadTable(); };
    if (wait)
        runAndWait(reload);
    else
        post(reload);
}

void DocumentViewBridge::setSpinner(Spinner which, bool running) {
    post([this, which, running] { m_window.setSpinnerRunning(which, running); });
}

void DocumentViewBridge::setRenameEnabled(bool) {
    // The window works it out with every other enabled state.
    post([this] { m_window.updateActions(); });
}

void DocumentViewBridge::clearSelection() {
    post([this] { m_window.clearSelection(); });
}

void DocumentViewBridge::settingsChanged() {
    post([this] { emit m_window.settingsChanged(); });
}

void DocumentViewBridge::taskChanged(int tag, const QString& blankDescription) {
    post([this, tag, blankDescription] { emit m_window.taskChanged(tag, blankDescription); });
}

void DocumentViewBridge::startProgress(int maximum) {
    m_progress.store(0);
    m_commitRunning.store(true);
    runAndWait([this, maximum] {
        if (m_closing.load()) return;
        delete m_progressSheet;
        auto* sheet = new ProgressSheet(&m_window, m_progress, maximum);
        QObject::connect(sheet, &ProgressSheet::cancelRequested, &m_window, [this] {
            if (m_document) m_document->cancelProgress();
        });
        m_progressSheet = sheet;
        sheet->open();
        m_window.updateActions();
    });
}

void DocumentViewBridge::incrementProgress() {
    m_progress.fetch_add(1, std::memory_order_relaxed);
}

void DocumentViewBridge::endProgress() {
    runAndWait([this] {
        if (ProgressSheet* sheet = m_progressSheet) {
            sheet->refresh();
            sheet->hide();
            sheet->deleteLater();
        }
        m_progressSheet = nullptr;
        m_commitRunning.store(false);
        m_window.commitEnded();
    });
    // Given up (the window is closing): the commit still ends here.
    m_commitRunning.store(false);
}

QWidget* DocumentViewBridge::alertParent(AlertRequest::Parent parent) const {
    if (parent == AlertRequest::Parent::ProgressSheet && m_progressSheet)
        return m_progressSheet.data();
    return &m_window;
}

int DocumentViewBridge::showAlert(const AlertRequest& r, QXAlert* alert) {
    return QXAlert::alertSheetWithMessageText(
        r.messageText, orNull(r.defaultButton), orNull(r.alternateButton), orNull(r.otherButton),
        r.informativeText, alertParent(r.parent), nullptr, QString(), r.block, alert);
}

int DocumentViewBridge::alert(const AlertRequest& request) {
    if (m_closing.load()) return request.block ? AlertAlternate : -1;
    if (onMainThread()) {
        if (!request.block) return showAlert(request, nullptr);
        QXAlert alert;
        m_openAlerts.append(&alert);
        ++m_mainAlertDepth;
        const int answer = showAlert(request, &alert);
        --m_mainAlertDepth;
        m_openAlerts.removeAll(&alert);
        m_window.mainThreadAlertEnded();
        return answer;
    }
    auto answer = std::make_shared<std::promise<int>>();
    std::future<int> future = answer->get_future();
    post([this, request, answer] {
        auto* alert = new QXAlert(&m_window);
        m_openAlerts.append(alert);
        QObject::connect(alert, &QXAlert::ended, alert, [this, alert, answer](int code) {
            m_openAlerts.removeAll(alert);
            answer->set_value(code);
            alert->deleteLater();
        });
        showAlert({request.messageText, request.informativeText, request.defaultButton,
                   request.alternateButton, request.otherButton, request.parent, false},
                  alert);
    });
    if (!request.block) return -1;
    // Only the window's closing ends this wait early: an answer the user
    // still has to give is worth waiting for, even after Cancel.
    while (future.wait_for(kWaitSlice) != std::future_status::ready)
        if (m_closing.load()) return AlertAlternate;
    try {
        return future.get();
    } catch (const std::future_error&) {
        return AlertAlternate; // the window went before the sheet was shown
    }
}

void DocumentViewBridge::requestAttention() {
    post([this] { QApplication::alert(&m_window); });
}

ProgressSheet* DocumentViewBridge::progressSheet() const {
    return m_progressSheet.data();
}

void DocumentViewBridge::answerOpenSheets() {
    const QList<QPointer<QXAlert>> open = m_openAlerts;
    for (const QPointer<QXAlert>& alert : open)
        if (alert) alert->abandon(AlertAlternate);
}

void DocumentViewBridge::shutDown() {
    m_closing.store(true);
    if (QCoreApplication::instance() && onMainThread()) answerOpenSheets();
}
