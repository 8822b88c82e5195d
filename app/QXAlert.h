#pragma once

#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <thread>

class QMessageBox;
class QWidget;

// One alert shown as a window-modal sheet on a parent window. Callable from any
// thread: the sheet is always made and shown on the main thread; a blocking
// call returns the answer (1 default, 0 alternate, -1 other), a non-blocking
// one returns -1 and hands the answer only to the delegate's end message.
//
// The end message is an invokable method of the delegate taking
// (QXAlert* alert, int returnCode); it is named by didEndSelector, either bare
// ("sheetEnded") or with its signature.
class QXAlert : public QObject {
    Q_OBJECT
public:
    static constexpr int DefaultReturn = 1;
    static constexpr int AlternateReturn = 0;
    static constexpr int OtherReturn = -1;

    explicit QXAlert(QObject* parent = nullptr);
    // Stops a timed sheet's timer thread; a sheet still shown keeps its answer.
    ~QXAlert() override;

    // The full form. Null strings are "not given".
    static int alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                         const QString& alternateButton, const QString& otherButton,
                                         const QString& informativeText, QWidget* parentWindow,
                                         QObject* delegate, const QString& didEndSelector,
                                         bool block, QXAlert* alertObject = nullptr,
                                         const QString& suppressionBinding = QString());
    // No delegate and no end message.
    static int alertSheetWithMessageText(const QString& messageText, const QString& defaultButton,
                                         const QString& alternateButton, const QString& otherButton,
                                         const QString& informativeText, QWidget* parentWindow,
                                         bool block);
    // The platform's single button, blocking.
    static int alertSheetWithMessageText(const QString& messageText, const QString& informativeText,
                                         QWidget* parentWindow);
    // Blocking; answers 1 and closes itself after interval seconds unless answered first.
    static int timedAlertSheetWithMessageText(const QString& messageText,
                                              const QString& defaultButton,
                                              const QString& alternateButton,
                                              const QString& otherButton,
                                              const QString& informativeText, QWidget* parentWindow,
                                              int interval);

    // The request that travels to the main thread: a key only for what is given.
    static QVariantMap requestDictionary(const QString& messageText, const QString& defaultButton,
                                         const QString& alternateButton, const QString& otherButton,
                                         const QString& informativeText,
                                         const QString& didEndSelector,
                                         const QString& suppressionBinding);
    // The informative text read as a format string given no arguments: "%%"
    // is "%", a complete directive ("%@", "%d", "%1$s", "%-5.2f", "% d")
    // prints nothing, and a "%" that starts no directive is kept as written.
    static QString formatWithoutArguments(const QString& format);
    // The check box text of a sheet with a suppression binding.
    static QString suppressionText();

    // Main thread: shows the sheet described by a request dictionary.
    Q_INVOKABLE void alertSheetWithDictionary(const QVariantMap& request);
    // The default end message: stores the answer and marks the alert ended.
    Q_INVOKABLE void alertDidEnd(QXAlert* alert, int returnCode);
    // The timed sheet's timer: after interval seconds the answer becomes 1.
    // Runs on the calling thread; an earlier answer or the alert's end stops it.
    void defaultReturnAfterTimeInterval(int interval);

    // Answers the sheet without the user (its window is closing); any thread.
    void abandon(int returnCode);
    // Checked by a blocking call between its short waits: true gives up the
    // wait, which then answers -1 and closes the sheet (a window closing while
    // the main thread waits on the asking thread).
    void setGiveUp(std::function<bool()> giveUp);

    QMessageBox* alert() const; // main thread; null when not shown
    int returnCode() const;
    bool alertEnded() const;
    QObject* delegate() const { return m_delegate.data(); }
    QWidget* parentWindow() const;

signals:
    // Main thread, once the sheet is answered or has expired.
    void ended(int returnCode);

private:
    struct Shared;
    static void showSheet(const std::shared_ptr<Shared>& shared, const QVariantMap& request);
    static void finishSheet(const std::shared_ptr<Shared>& shared, int returnCode);
    static bool delegateResponds(QObject* delegate, const QString& selector);
    int waitForAnswer();

    std::shared_ptr<Shared> m_shared;
    QPointer<QObject> m_delegate;
    std::function<bool()> m_giveUp;
    std::thread m_timer;
};
