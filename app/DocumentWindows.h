#pragma once

#include <QList>
#include <QString>

#include <functional>

class DocumentWindow;
class QMenuBar;
class QWidget;

// The open document windows, for the application's shell and the File menu.
// Main thread only.
class DocumentWindows {
public:
    // A new empty batch, shown: "Untitled Batch", then "Untitled Batch 2", ...
    static DocumentWindow* newUntitled();
    // The batch file in a window, shown (the window already showing it is
    // raised). nullptr and error set when the file cannot be read.
    static DocumentWindow* openBatchFile(const QString& path, QString* error);
    // The active document window, else the one active last.
    static DocumentWindow* frontmost();
    static QList<DocumentWindow*> all();
    // Run on the menu bar of every window, present and future.
    static void setMenuBarHook(std::function<void(QMenuBar*)> hook);

    // The File menu's Open…: a chooser of batch files as a sheet on window.
    static void openPanel(QWidget* window);
    // Closes every window, each with its save prompt, then quits; a
    // cancelled prompt stops it.
    static void quit();

    // The lowest number no open untitled window has.
    static int nextUntitledNumber();
    // Kept by DocumentWindow itself.
    static void registerWindow(DocumentWindow* window);
    static void unregisterWindow(DocumentWindow* window);
    static void noteActivated(DocumentWindow* window);
};
