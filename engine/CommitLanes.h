#pragma once

#include <QList>
#include <QString>

// Which items of a commit may be renamed at the same time as which others.
//
// A move stays inside its item's folder, so items of different folders never
// meet, with these exceptions, whose items share a lane (and are renamed one
// after another, in list order):
//  - a folder item re-points every item whose folder starts with its path (a
//    plain prefix, siblings "shots2" of "shots" included), and its rename is
//    an entry of its own containing folder;
//  - whatever stands at an item's new name may be moved out of the way, and a
//    folder in the way takes the items inside it along;
//  - the conflict actions create and fill "Conflicting files" beside a file,
//    so that folder belongs to the folder above it.
class CommitLanes {
public:
    struct Item {
        QString folder;  // containerDir
        QString oldPath; // fullPath
        QString newPath; // folder + "/" + the proposed name
        bool isDir = false;
    };
    // The lane of each item, numbered from 0 in the order of each lane's first item.
    static QList<int> assign(const QList<Item>& items);
};
