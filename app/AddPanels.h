#pragma once

#include <QStringList>

#include <functional>

class QWidget;

// The two choosers of the file list, as sheets on the window. chosen runs
// on the main thread with the chosen paths, only when the user chose some.
namespace AddPanels {
// Files and folders, several at once; no new folders.
void openAddItemsPanel(QWidget* window, std::function<void(const QStringList&)> chosen);
// Folders only, several at once; new folders may be made.
void openAddFoldersPanel(QWidget* window, std::function<void(const QStringList&)> chosen);
} // namespace AddPanels
