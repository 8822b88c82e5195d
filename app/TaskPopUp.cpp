#include "TaskPopUp.h"

#include <QComboBox>

namespace {
struct Entry {
    int tag; // 0 marks a separator between groups
    const char* title;
};

// Grouped as a user looks for them: case, characters, affixes and extension,
// positions, find and replace, frame numbers, conform, gap check.
constexpr Entry kEntries[] = {
    {20, "Make Uppercase"},
    {21, "Make Lowercase"},
    {24, "Capitalize Words"},
    {23, "Uppercase Extension"},
    {22, "Lowercase Extension"},
    {0, nullptr},
    {17, "Spaces to Underscores"},
    {18, "Strip Non-Alphanumeric Characters"},
    {19, "Trim Spaces"},
    {0, nullptr},
    {12, "Add Prefix"},
    {13, "Add Suffix"},
    {10, "Change Extension"},
    {11, "Remove Extension"},
    {0, nullptr},
    {25, "Insert Text at Position"},
    {26, "Replace Character Range"},
    {14, "Remove Characters from Start"},
    {15, "Remove Characters from End"},
    {16, "Remove Character Range"},
    {0, nullptr},
    {1, "Find and Replace"},
    {0, nullptr},
    {7, "Renumber Frames"},
    {3, "Offset Frame Numbers"},
    {5, "Pad Frame Numbers"},
    {4, "Close Frame Gaps"},
    {6, "Reverse Frame Numbers"},
    {9, "Remove Frame Numbers"},
    {0, nullptr},
    {2, "Conform to Format"},
    {0, nullptr},
    {8, "Check Frame Gaps"},
};
} // namespace

void TaskPopUp::fill(QComboBox* popUp) {
    const QSignalBlocker quiet(popUp);
    popUp->clear();
    for (const Entry& e : kEntries) {
        if (e.tag == 0)
            popUp->insertSeparator(popUp->count());
        else
            popUp->addItem(QString::fromLatin1(e.title), e.tag);
    }
    // Long enough to show every title, so a choice never reads truncated.
    popUp->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    popUp->setMaxVisibleItems(popUp->count());
}

QString TaskPopUp::title(int tag) {
    for (const Entry& e : kEntries)
        if (e.tag != 0 && e.tag == tag) return QString::fromLatin1(e.title);
    return QString();
}

int TaskPopUp::selectedTag(const QComboBox* popUp) {
    return popUp->currentData().toInt();
}

bool TaskPopUp::selectTag(QComboBox* popUp, int tag) {
    const int index = tag > 0 ? popUp->findData(tag) : -1;
    if (index < 0) return false;
    popUp->setCurrentIndex(index);
    return true;
}
