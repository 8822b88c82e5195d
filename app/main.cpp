// The desktop program: a second launch hands its paths to the running one;
// otherwise the application controller starts up and opens them.
#include "AppController.h"
#include "DocumentWindows.h"
#include "SingleInstance.h"
#include "WindowsHost.h"

#include <QApplication>

int main(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setOrganizationName(QStringLiteral("Corvane"));
    QApplication::setApplicationName(AppController::applicationName());
    QApplication::setApplicationDisplayName(AppController::applicationName());
    QStringList paths = QApplication::arguments();
    paths.removeFirst();

    SingleInstance instance;
    if (instance.handOver(paths)) return 0;

    WindowsHost host;
    AppController controller(host);
    DocumentWindows::setMenuBarHook([&controller](QMenuBar* bar) { controller.addMenus(bar); });
    instance.listen();
    QObject::connect(&instance, &SingleInstance::filesReceived, &controller,
                     &AppController::reopen);
    controller.launch(paths);
    return QApplication::exec();
}
