#pragma once

#include <QList>
#include <QStringList>

class MyDocument;

// What a preview shows, row by row in list order: gathered once, then
// printed (as the table or as JSON) and checked before a commit.
struct PreviewRows {
    QStringList names;    // each item's name as it stands
    QStringList newNames; // the name its preview gives it (its own when it has none)
    QList<bool> conflicting;
    // Why a new name is no file name ("it contains \"/\""); empty for a good one.
    // Such an item fails at the commit and nothing moves for it.
    QStringList problems;
    int changed = 0;
    int conflicts = 0;
    int invalid = 0;

    // In two halves on a large list, where the gathering is a visible part
    // of a preview's time while the second core waits.
    static PreviewRows gather(const MyDocument& doc);
};
