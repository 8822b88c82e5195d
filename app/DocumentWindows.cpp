#include "DocumentWindows.h"

#include "DocumentWindow.h"
#include "MyDocument.h"
#include "PropertyList.h"
#include "QXAlert.h"
#include "QXLog.h"
#include "QXWindowController.h"

#include <QApplication>
#include <QFileDialog>
#include <QFileInfo>
#include <QMenuBar>
#include <QPointer>
#include <QSet>

namespace {
struct Registry {
    QList<DocumentWindow*> windows; // in the order they were opened
    QPointer<DocumentWindow> lastActive;
    std::function<void(QMenuBar*)> menuBarHook;
};

Registry& registry() {
    static Registry r;
    return r;
}

// Closes the windows one after another; each may ask to save first.
void closeNextThenQuit() {
    const QList<DocumentWindow*> open = DocumentWindows::all();
    if (open.isEmpty()) {
        QCoreApplication::quit();
        return;
    }
    DocumentWindow* window = open.last();
    QObject::connect(
        window, &QObject::destroyed, qApp, [] { closeNextThenQuit(); }, Qt::QueuedConnection);
    QObject::connect(window, &DocumentWindow::closeCancelled, window,
                     [window] { QObject::disconnect(window, &QObject::destroyed, qApp, nullptr); });
    window->close();
}
} // namespace

DocumentWindow* DocumentWindows::newUntitled() {
    const int number = nextUntitledNumber();
    DocumentWindow* front = frontmost();
    auto* window = new DocumentWindow;
    window->controller().setUntitledNumber(number);
    if (front) window->move(front->pos() + QPoint(28, 28)); // cascaded, not stacked
    window->documentDidLoad();
    window->show();
    return window;
}

DocumentWindow* DocumentWindows::openBatchFile(const QString& path, QString* error) {
    const QString absolute = QFileInfo(path).absoluteFilePath();
    for (DocumentWindow* window : all()) {
        if (window->controller().filePath() == absolute) {
            window->raise();
            window->activateWindow();
            return window;
        }
    }
    // The engine takes anything as a batch; a window only opens on a batch
    // file that actually reads as one.
    const QFileInfo info(absolute);
    QString problem;
    if (!info.exists())
        problem = QStringLiteral("The batch file %1 does not exist.").arg(absolute);
    else if (!info.isFile() || !info.isReadable())
        problem = QStringLiteral("The batch file %1 cannot be read.").arg(absolute);
    else if (PropertyList::readFile(absolute).typeId() != QMetaType::QVariantMap)
        problem = QStringLiteral("The file %1 is not a batch file.").arg(absolute);
    if (!problem.isEmpty()) {
        if (error) *error = problem;
        return nullptr;
    }
    auto* window = new DocumentWindow;
    window->document().readFromURL(absolute);
    window->controller().setFilePath(absolute);
    window->documentDidLoad();
    window->show();
    return window;
}

DocumentWindow* DocumentWindows::frontmost() {
    for (DocumentWindow* window : all())
        if (window->isActiveWindow()) return window;
    if (registry().lastActive) return registry().lastActive;
    return all().isEmpty() ? nullptr : all().last();
}

QList<DocumentWindow*> DocumentWindows::all() {
    return registry().windows;
}

void DocumentWindows::setMenuBarHook(std::function<void(QMenuBar*)> hook) {
    registry().menuBarHook = std::move(hook);
    if (registry().menuBarHook)
        for (DocumentWindow* window : all())
            registry().menuBarHook(window->menuBar());
}

void DocumentWindows::openPanel(QWidget* window) {
    auto* panel = new QFileDialog(window, QStringLiteral("Open Batch"));
    panel->setObjectName(QStringLiteral("openBatchPanel"));
    panel->setAttribute(Qt::WA_DeleteOnClose);
    panel->setWindowModality(Qt::WindowModal);
    panel->setFileMode(QFileDialog::ExistingFiles);
    panel->setNameFilters(
        {QStringLiteral("Seqmate batch (*.sqb *.SQB)"), QStringLiteral("All files (*)")});
    QPointer<QWidget> parent = window;
    QObject::connect(panel, &QFileDialog::filesSelected, panel, [parent](const QStringList& paths) {
        for (const QString& path : paths) {
            QString error;
            if (openBatchFile(path, &error)) continue;
            QXLog::appendLog(QStringLiteral("Error: %1").arg(error));
            QXAlert::alertSheetWithMessageText(
                QStringLiteral("The batch could not be opened."), QString(), QString(), QString(),
                QString(error).replace(u'%', QStringLiteral("%%")), parent.data(), false);
        }
    });
    panel->open();
}

void DocumentWindows::quit() {
    closeNextThenQuit();
}

int DocumentWindows::nextUntitledNumber() {
    QSet<int> used;
    for (DocumentWindow* window : all())
        if (window->controller().filePath().isEmpty())
            used.insert(window->controller().untitledNumber());
    int number = 1;
    while (used.contains(number))
        ++number;
    return number;
}

void DocumentWindows::registerWindow(DocumentWindow* window) {
    registry().windows.append(window);
    if (registry().menuBarHook) registry().menuBarHook(window->menuBar());
}

void DocumentWindows::unregisterWindow(DocumentWindow* window) {
    registry().windows.removeAll(window);
}

void DocumentWindows::noteActivated(DocumentWindow* window) {
    registry().lastActive = window;
}
