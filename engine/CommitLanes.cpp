#include "CommitLanes.h"

#include "QXFileItem.h"

#include <QHash>

#include <algorithm>
#include <vector>

namespace {
// Union-find over folder numbers.
class Groups {
public:
    int add() {
        m_parent.push_back(static_cast<int>(m_parent.size()));
        return m_parent.back();
    }
    int find(int x) {
        while (m_parent[x] != x) {
            m_parent[x] = m_parent[m_parent[x]];
            x = m_parent[x];
        }
        return x;
    }
    void join(int a, int b) {
        a = find(a);
        b = find(b);
        // The smaller number stays the root: any order gives the same groups.
        if (a != b) m_parent[std::max(a, b)] = std::min(a, b);
    }

private:
    std::vector<int> m_parent;
};
} // namespace

QList<int> CommitLanes::assign(const QList<Item>& items) {
    QHash<QString, int> folderIds;
    Groups groups;
    const auto idOf = [&](const QString& folder) {
        auto it = folderIds.constFind(folder);
        if (it != folderIds.constEnd()) return *it;
        const int id = groups.add();
        folderIds.insert(folder, id);
        return id;
    };
    std::vector<int> itemFolder(static_cast<size_t>(items.size()));
    for (qsizetype i = 0; i < items.size(); ++i)
        itemFolder[static_cast<size_t>(i)] = idOf(items[i].folder);

    // The folders in string order: those that start with a path are one run.
    std::vector<std::pair<QString, int>> sorted(folderIds.keyValueBegin(), folderIds.keyValueEnd());
    std::sort(sorted.begin(), sorted.end());
    const auto joinUnder = [&](const QString& prefix, int id) {
        auto it =
            std::lower_bound(sorted.begin(), sorted.end(), prefix,
                             [](const auto& entry, const QString& p) { return entry.first < p; });
        for (; it != sorted.end() && it->first.startsWith(prefix); ++it)
            groups.join(it->second, id);
    };
    for (const auto& [folder, id] : sorted) {
        const QString above = QXFileItem::deletingLastPathComponent(folder);
        if (QXFileItem::lastPathComponent(folder) != QLatin1String("Conflicting files")) continue;
        // Nothing of the batch in the folder above: no conflict action fills this one.
        if (const auto it = folderIds.constFind(above); it != folderIds.constEnd())
            groups.join(*it, id);
    }
    // A file meets other folders only when a folder of the batch lies below its
    // own: the usual sequence folder has none, and its files need no look-up.
    std::vector<bool> foldersBelow(sorted.size() + 1);
    for (const auto& [folder, id] : sorted) {
        const QString below = folder.endsWith(u'/') ? folder : folder + u'/';
        const auto it =
            std::lower_bound(sorted.begin(), sorted.end(), below,
                             [](const auto& entry, const QString& p) { return entry.first < p; });
        foldersBelow[static_cast<size_t>(id)] = it != sorted.end() && it->first.startsWith(below);
    }
    for (qsizetype i = 0; i < items.size(); ++i) {
        const Item& item = items[i];
        const int id = itemFolder[static_cast<size_t>(i)];
        if (!item.isDir && !foldersBelow[static_cast<size_t>(id)]) continue;
        joinUnder(item.oldPath, id);
        if (item.newPath != item.oldPath) joinUnder(item.newPath, id);
    }

    // Lanes numbered by their first item.
    QHash<int, int> laneOfRoot;
    QList<int> lanes;
    lanes.reserve(items.size());
    for (qsizetype i = 0; i < items.size(); ++i) {
        const int root = groups.find(itemFolder[static_cast<size_t>(i)]);
        const auto it = laneOfRoot.constFind(root);
        if (it != laneOfRoot.constEnd()) {
            lanes.append(*it);
        } else {
            const auto lane = static_cast<int>(laneOfRoot.size());
            laneOfRoot.insert(root, lane);
            lanes.append(lane);
        }
    }
    return lanes;
}
