#include "TroubleshootingFrontEnd.h"

#include "QXLog.h"

#include <QApplication>
#include <QDesktopServices>
#include <QMessageBox>
#include <QThread>
#include <QUrl>

TroubleshootingFrontEnd::TroubleshootingFrontEnd(std::function<QWidget*()> parent)
    : m_parent(std::move(parent)) {}

namespace {

void showBox(QWidget* parent, const QString& messageText, const QString& informativeText) {
    QMessageBox box(QMessageBox::Information, QApplication::applicationDisplayName(), messageText,
                    QMessageBox::Ok, parent);
    box.setObjectName(QStringLiteral("troubleshootingAlert"));
    box.setInformativeText(informativeText);
    box.setWindowModality(Qt::ApplicationModal);
    box.exec();
}

} // namespace

void TroubleshootingFrontEnd::showAlertPanel(const QString& messageText,
                                             const QString& informativeText) {
    QCoreApplication* app = QCoreApplication::instance();
    if (!app) return;
    if (QThread::currentThread() == app->thread()) {
        showBox(m_parent ? m_parent() : nullptr, messageText, informativeText);
        return;
    }
    // The posted call must not reach back into this object: the utilities may drop it meanwhile.
    QMetaObject::invokeMethod(
        app,
        [parent = m_parent, messageText, informativeText] {
            showBox(parent ? parent() : nullptr, messageText, informativeText);
        },
        Qt::QueuedConnection);
}

void TroubleshootingFrontEnd::openWithDefaultApplication(const QString& path) {
    if (!QDesktopServices::openUrl(QUrl::fromLocalFile(path)))
        QXLog::appendLog(QStringLiteral("Unable to open %1").arg(path));
}
