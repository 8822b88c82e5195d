#include "WindowsHost.h"

#include "DocumentWindow.h"
#include "DocumentWindows.h"
#include "MyDocument.h"

bool WindowsHost::openBatchFile(const QString& path, QString* error) {
    QString reason;
    if (DocumentWindows::openBatchFile(path, &reason)) return true;
    if (error) *error = reason;
    return false;
}

bool WindowsHost::hasOpenDocument() const {
    return !DocumentWindows::all().isEmpty();
}

void WindowsHost::newUntitledDocument() {
    DocumentWindows::newUntitled();
}

void WindowsHost::addToFrontmost(const QStringList& paths) {
    DocumentWindow* window = DocumentWindows::frontmost();
    if (!window) window = DocumentWindows::newUntitled();
    window->document().addItemsInBackground(paths);
}

QWidget* WindowsHost::frontmostWindow() const {
    return DocumentWindows::frontmost();
}
