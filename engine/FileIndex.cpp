#include "FileIndex.h"

#include <QHash>

quint64 FileIndex::hashOf(const QString& path) {
    return qHash(path, 0x5eed);
}

void FileIndex::erase(const QString& path, int position) {
    auto [b, e] = m_map.equal_range(hashOf(path));
    for (auto it = b; it != e; ++it) {
        if (it->second == position) {
            m_map.erase(it);
            return;
        }
    }
}
