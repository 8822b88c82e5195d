#pragma once

#include "QXTroubleshootingUtils.h"

#include <QPointer>
#include <QWidget>

#include <functional>

// The log tools' alerts as message boxes and their files opened in the
// desktop's default viewer.
class TroubleshootingFrontEnd : public QXTroubleshootingFrontEnd {
public:
    // The parent of the message boxes, asked each time (the frontmost window may change).
    explicit TroubleshootingFrontEnd(std::function<QWidget*()> parent = nullptr);

    // Application-modal, as an alert panel is. From another thread the box is
    // posted to the main thread and the caller goes on.
    void showAlertPanel(const QString& messageText, const QString& informativeText) override;
    void openWithDefaultApplication(const QString& path) override;

private:
    std::function<QWidget*()> m_parent;
};
