#pragma once

#include <QString>

class QComboBox;

// The task pop-up's contents: the 26 tasks under short titles, grouped by
// what they change, each item's data its task tag.
namespace TaskPopUp {
// Replaces the pop-up's items with the task list, emitting no signal: the
// first task ends up selected, and the caller applies the selection it wants.
void fill(QComboBox* popUp);
// The title shown for a tag; empty for tags that select no task.
QString title(int tag);
// The selected item's tag, 0 when none (or a separator) is selected.
int selectedTag(const QComboBox* popUp);
// Selects the item of a tag; false (and no change) when no item has it.
bool selectTag(QComboBox* popUp, int tag);
} // namespace TaskPopUp
