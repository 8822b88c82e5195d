#pragma once
// Finding and answering the sheets a window shows, as a user would.
#include <QAbstractButton>
#include <QApplication>
#include <QMessageBox>
#include <QPointer>
#include <QTest>
#include <QTimer>

#include <memory>

// The modal sheet on top once one is shown (events are processed meanwhile).
inline QMessageBox* waitForSheet(int timeoutMs = 5000) {
    QMessageBox* box = nullptr;
    (void)QTest::qWaitFor(
        [&] {
            box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
            return box != nullptr;
        },
        timeoutMs);
    return box;
}

inline QAbstractButton* sheetButton(QMessageBox* box, const QString& text) {
    for (QAbstractButton* button : box->buttons())
        if (button->text() == text) return button;
    return nullptr;
}

// Presses the button with this text on the next sheet that has one, from a
// queued call: it works while the main thread sits in a blocking alert of its
// own. The sheet's "text|informative text" is kept in what it returns.
inline std::shared_ptr<QString> answerNextSheet(const QString& text) {
    auto shown = std::make_shared<QString>();
    auto* poll = new QTimer(qApp);
    poll->setInterval(5);
    QObject::connect(poll, &QTimer::timeout, poll, [poll, text, shown] {
        auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
        QAbstractButton* button = box && box->isVisible() ? sheetButton(box, text) : nullptr;
        if (!button) return;
        *shown = box->text() + u'|' + box->informativeText();
        button->click();
        poll->deleteLater();
    });
    poll->start();
    return shown;
}
