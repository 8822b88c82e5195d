#include "QXAlert.h"

#include "QXConsole.h"

#include <QApplication>
#include <QCheckBox>
#include <QEventLoop>
#include <QMessageBox>
#include <QPushButton>
#include <QSettings>
#include <QThread>
#include <QTimer>

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace {
// A waiting thread looks at the answer (and at its reason to give up) this
// often: the answer reaches it at most this late.
constexpr auto kWaitSlice = std::chrono::milliseconds(10);

bool onMainThread() {
    return QCoreApplication::instance() &&
           QThread::currentThread() == QCoreApplication::instance()->thread();
}

// Runs f on the main thread, in order with other posts; dropped when the
// application is gone.
template <class F> void postToMain(F f) {
    if (QCoreApplication* app = QCoreApplication::instance())
        QMetaObject::invokeMethod(app, std::move(f), Qt::QueuedConnection);
}

QByteArray bareName(const QString& selector) {
    const QByteArray s = selector.toLatin1();
    const qsizetype paren = s.indexOf('(');
    return paren < 0 ? s : s.left(paren);
}
} // namespace

// Everything the sheet and the waiting thread share; it outlives whichever
// of the alert object, the message box and the caller goes first.
struct QXAlert::Shared {
    std::mutex mutex;
    std::condition_variable changed;
    int returnCode = 0;
    bool ended = false;
    bool shown = false;
    bool delegateCalled = false;
    bool stopTimer = false;

    // Main thread only once the request is posted.
    QPointer<QMessageBox> box;
    QPointer<QWidget> parent;
    QPointer<QObject> delegate;
    QByteArray endMessage;

    // The alert object handed to the end message; cleared when it is destroyed.
    std::recursive_mutex lifeMutex;
    QXAlert* alertObject = nullptr;
    bool ownsAlertObject = false; // made for a non-blocking call: freed at the end

    void setAnswer(int code) {
        {
            std::lock_guard lock(mutex);
            if (ended) return;
            returnCode = code;
            ended = true;
        }
        changed.notify_all();
    }
};

QXAlert::QXAlert(QObject* parent) : QObject(parent), m_shared(std::make_shared<Shared>()) {
    m_shared->alertObject = this;
}

QXAlert::~QXAlert() {
    {
        std::lock_guard lock(m_shared->mutex);
        m_shared->stopTimer = true;
    }
    m_shared->changed.notify_all();
    if (m_timer.joinable()) m_timer.join();
    std::lock_guard life(m_shared->lifeMutex);
    m_shared->alertObject = nullptr;
}

QString QXAlert::suppressionText() {
    return QStringLiteral("Do not show this message again");
}

QVariantMap QXAlert::requestDictionary(const QString& messageText, const QString& defaultButton,
                                       const QString& alternateButton, const QString& otherButton,
                                       const QString& informativeText,
                                       const QString& didEndSelector,
                                       const QString& suppressionBinding) {
    QVariantMap request;
    auto put = [&request](const char* key, const QString& value) {
        if (!value.isNull()) request.insert(QLatin1String(key), value);
    };
    put("messageText", messageText);
    put("defaultButtonTitle", defaultButton);
    put("alternateButtonTitle", alternateButton);
    put("otherButtonTitle", otherButton);
    put("informativeText", informativeText);
    put("didEndSelector", didEndSelector);
    put("suppressionBinding", suppressionBinding);
    return request;
}

QString QXAlert::formatWithoutArguments(const QString& format) {
    static const QString flags = QStringLiteral("-+ #0'");
    static const QString lengths = QStringLiteral("hlqLzjt");
    static const QString conversions = QStringLiteral("@dDiuUxXoOfFeEgGaAcCsSpn");
    QString out;
    out.reserve(format.size());
    const qsizetype n = format.size();
    qsizetype i = 0;
    while (i < n) {
        if (format[i] != u'%') {
            out.append(format[i++]);
            continue;
        }
        if (i + 1 < n && format[i + 1] == u'%') {
            out.append(u'%');
            i += 2;
            continue;
        }
        qsizetype j = i + 1;
        // An argument position ("1$") is digits followed by "$".
        qsizetype k = j;
        while (k < n && format[k].isDigit())
            ++k;
        if (k > j && k < n && format[k] == u'$') j = k + 1;
        while (j < n && flags.contains(format[j]))
            ++j;
        while (j < n && (format[j].isDigit() || format[j] == u'*'))
            ++j;
        if (j < n && format[j] == u'.') {
            ++j;
            while (j < n && (format[j].isDigit() || format[j] == u'*'))
                ++j;
        }
        while (j < n && lengths.contains(format[j]))
            ++j;
        if (j < n && conversions.contains(format[j])) {
            i = j + 1; // a directive with no argument to print
            continue;
        }
        out.append(u'%'); // starts no directive: kept as written
        ++i;
    }
    return out;
}

bool QXAlert::delegateResponds(QObject* delegate, const QString& selector) {
    if (!delegate) return false;
    const QByteArray wanted = bareName(selector) + "(QXAlert*,int)";
    return delegate->metaObject()->indexOfMethod(wanted.constData()) >= 0;
}

int QXAlert::alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                       const QString& alternateButton, const QString& otherButton,
                                       const QString& informativeText, QWidget* parentWindow,
                                       QObject* delegate, const QString& didEndSelector, bool block,
                                       QXAlert* alertObject, const QString& suppressionBinding) {
    std::unique_ptr<QXAlert> made;
    QXAlert* alert = alertObject;
    if (!alert) {
        made = std::make_unique<QXAlert>();
        alert = made.get();
    }
    const std::shared_ptr<Shared> shared = alert->m_shared;
    {
        std::lock_guard lock(shared->mutex);
        shared->ended = false;
        shared->shown = false;
        shared->delegateCalled = false;
    }
    shared->parent = parentWindow;
    QObject* receiver = delegate ? delegate : alert;
    alert->m_delegate = receiver;
    const QString endMessage =
        didEndSelector.isEmpty() ? QStringLiteral("alertDidEnd") : didEndSelector;
    if (!delegateResponds(receiver, endMessage)) {
        QXConsole::print(QStringLiteral("Alert error: delegate does not respond to selector %1")
                             .arg(endMessage));
        return -1;
    }
    shared->delegate = receiver;
    shared->endMessage = bareName(endMessage);

    if (!block && made) {
        // Nobody waits to free it: it goes with the end of its sheet.
        if (!onMainThread()) made->moveToThread(QCoreApplication::instance()->thread());
        std::lock_guard life(shared->lifeMutex);
        shared->ownsAlertObject = true;
        made.release();
    }

    const QVariantMap request =
        requestDictionary(messageText, defaultButton, alternateButton, otherButton, informativeText,
                          didEndSelector, suppressionBinding);
    if (onMainThread()) {
        showSheet(shared, request);
    } else {
        postToMain([shared, request] { showSheet(shared, request); });
        std::unique_lock lock(shared->mutex);
        while (!shared->shown && !shared->ended) {
            shared->changed.wait_for(lock, kWaitSlice);
            if (!shared->shown && alert->m_giveUp && alert->m_giveUp()) {
                lock.unlock();
                alert->abandon(-1);
                return -1;
            }
        }
    }
    if (!block) return -1;
    return alert->waitForAnswer();
}

int QXAlert::alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                       const QString& alternateButton, const QString& otherButton,
                                       const QString& informativeText, QWidget* parentWindow,
                                       bool block) {
    return alertSheetWithMessageText(messageText, defaultButton, alternateButton, otherButton,
                                     informativeText, parentWindow, nullptr, QString(), block);
}

int QXAlert::alertSheetWithMessageText(const QString& messageText, const QString& informativeText,
                                       QWidget* parentWindow) {
    return alertSheetWithMessageText(messageText, QString(), QString(), QString(), informativeText,
                                     parentWindow, true);
}

int QXAlert::timedAlertSheetWithMessageText(const QString& messageText,
                                            const QString& defaultButton,
                                            const QString& alternateButton,
                                            const QString& otherButton,
                                            const QString& informativeText, QWidget* parentWindow,
                                            int interval) {
    QXAlert alert;
    alert.m_timer =
        std::thread([&alert, interval] { alert.defaultReturnAfterTimeInterval(interval); });
    return alertSheetWithMessageText(messageText, defaultButton, alternateButton, otherButton,
                                     informativeText, parentWindow, nullptr, QString(), true,
                                     &alert);
}

int QXAlert::waitForAnswer() {
    const std::shared_ptr<Shared> shared = m_shared;
    if (onMainThread()) {
        // The window stays alive: this loop dispatches its events meanwhile.
        QEventLoop loop;
        QTimer poll;
        poll.setInterval(kWaitSlice);
        connect(&poll, &QTimer::timeout, &loop, [&] {
            if (alertEnded()) loop.quit();
        });
        poll.start();
        if (!alertEnded()) loop.exec(QEventLoop::DialogExec);
    } else {
        std::unique_lock lock(shared->mutex);
        while (!shared->ended) {
            shared->changed.wait_for(lock, kWaitSlice);
            if (!shared->ended && m_giveUp && m_giveUp()) {
                lock.unlock();
                abandon(-1);
                lock.lock();
            }
        }
    }
    // An expired or abandoned sheet is still on screen: take it away.
    const int answer = returnCode();
    if (onMainThread())
        finishSheet(shared, answer);
    else
        postToMain([shared, answer] { finishSheet(shared, answer); });
    return answer;
}

void QXAlert::showSheet(const std::shared_ptr<Shared>& shared, const QVariantMap& request) {
    {
        std::lock_guard lock(shared->mutex);
        if (shared->ended) return; // answered before it could be shown
    }
    QWidget* parent = shared->parent ? shared->parent->window() : nullptr;
    auto* box = new QMessageBox(parent);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(parent ? Qt::WindowModal : Qt::ApplicationModal);
    box->setText(request.value(QStringLiteral("messageText")).toString());
    box->setInformativeText(
        formatWithoutArguments(request.value(QStringLiteral("informativeText")).toString()));
    const QString defaultTitle = request.value(QStringLiteral("defaultButtonTitle")).toString();
    const QString alternateTitle = request.value(QStringLiteral("alternateButtonTitle")).toString();
    const QString otherTitle = request.value(QStringLiteral("otherButtonTitle")).toString();
    QPushButton* defaultBtn = box->addButton(
        defaultTitle.isEmpty() ? QStringLiteral("OK") : defaultTitle, QMessageBox::AcceptRole);
    QPushButton* alternateBtn = alternateTitle.isEmpty()
                                    ? nullptr
                                    : box->addButton(alternateTitle, QMessageBox::RejectRole);
    QPushButton* otherBtn =
        otherTitle.isEmpty() ? nullptr : box->addButton(otherTitle, QMessageBox::DestructiveRole);
    box->setDefaultButton(defaultBtn);
    box->setEscapeButton(alternateBtn ? alternateBtn : defaultBtn);
    box->setIcon(alternateBtn || otherBtn ? QMessageBox::Warning : QMessageBox::Information);

    const QString binding = request.value(QStringLiteral("suppressionBinding")).toString();
    if (!binding.isEmpty()) {
        auto* check = new QCheckBox(suppressionText(), box);
        check->setChecked(QSettings().value(binding).toBool());
        QObject::connect(check, &QCheckBox::toggled, check,
                         [binding](bool on) { QSettings().setValue(binding, on); });
        box->setCheckBox(check);
    }

    QObject::connect(box, &QDialog::finished, box, [shared, box, defaultBtn, alternateBtn] {
        QAbstractButton* clicked = box->clickedButton();
        const int code = clicked == defaultBtn     ? DefaultReturn
                         : clicked == alternateBtn ? AlternateReturn
                         : clicked                 ? OtherReturn
                                   : (alternateBtn ? AlternateReturn : DefaultReturn);
        finishSheet(shared, code);
    });
    // Its window went away with the sheet still open: the sheet was dismissed.
    QObject::connect(box, &QObject::destroyed, [shared] { finishSheet(shared, AlternateReturn); });
    shared->box = box;
    if (parent) {
        parent->raise();
        parent->activateWindow();
    }
    box->open();
    {
        std::lock_guard lock(shared->mutex);
        shared->shown = true;
    }
    shared->changed.notify_all();
}

void QXAlert::alertSheetWithDictionary(const QVariantMap& request) {
    showSheet(m_shared, request);
}

void QXAlert::finishSheet(const std::shared_ptr<Shared>& shared, int returnCode) {
    shared->setAnswer(returnCode);
    bool callDelegate = false;
    int code = 0;
    {
        std::lock_guard lock(shared->mutex);
        callDelegate = !shared->delegateCalled;
        shared->delegateCalled = true;
        code = shared->returnCode;
    }
    if (QMessageBox* box = shared->box) {
        shared->box = nullptr;
        if (box->isVisible()) box->done(code);
    }
    if (!callDelegate) return;
    std::lock_guard life(shared->lifeMutex);
    QXAlert* alert = shared->alertObject;
    if (QObject* delegate = shared->delegate; delegate && delegate != alert)
        QMetaObject::invokeMethod(delegate, shared->endMessage.constData(), Qt::DirectConnection,
                                  Q_ARG(QXAlert*, alert), Q_ARG(int, code));
    if (alert) {
        emit alert->ended(code);
        if (shared->ownsAlertObject) alert->deleteLater();
    }
}

void QXAlert::alertDidEnd(QXAlert* alert, int returnCode) {
    (alert ? alert : this)->m_shared->setAnswer(returnCode);
}

void QXAlert::defaultReturnAfterTimeInterval(int interval) {
    const std::shared_ptr<Shared> shared = m_shared;
    std::unique_lock lock(shared->mutex);
    // The interval counts from when the sheet is on screen.
    shared->changed.wait(lock, [&] { return shared->shown || shared->ended || shared->stopTimer; });
    shared->changed.wait_for(lock, std::chrono::seconds(interval),
                             [&] { return shared->ended || shared->stopTimer; });
    if (shared->ended || shared->stopTimer) return;
    shared->returnCode = DefaultReturn;
    shared->ended = true;
    lock.unlock();
    shared->changed.notify_all();
}

void QXAlert::abandon(int returnCode) {
    m_shared->setAnswer(returnCode);
    const std::shared_ptr<Shared> shared = m_shared;
    if (onMainThread())
        finishSheet(shared, returnCode);
    else
        postToMain([shared, returnCode] { finishSheet(shared, returnCode); });
}

void QXAlert::setGiveUp(std::function<bool()> giveUp) {
    m_giveUp = std::move(giveUp);
}

QMessageBox* QXAlert::alert() const {
    return m_shared->box.data();
}

int QXAlert::returnCode() const {
    std::lock_guard lock(m_shared->mutex);
    return m_shared->returnCode;
}

bool QXAlert::alertEnded() const {
    std::lock_guard lock(m_shared->mutex);
    return m_shared->ended;
}

QWidget* QXAlert::parentWindow() const {
    return m_shared->parent.data();
}
