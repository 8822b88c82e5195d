#include "FileIndex.h"

#include <QHash>

quint64 FileIndex::hashOf(const QString& path) {
    return qHash(path, 0x5eed);
}

void FileIndex::erase(quint64 pathHash, int position) {
    const auto first = m_first.find(pathHash);
    if (first == m_first.end()) return;
    if (*first == position) {
        const auto next = m_more.find(pathHash);
        if (next == m_more.end()) {
            m_first.erase(first);
        } else { // another position under this hash takes the flat slot
            *first = *next;
            m_more.erase(next);
        }
        return;
    }
    auto [b, e] = m_more.equal_range(pathHash);
    for (auto it = b; it != e; ++it) {
        if (*it == position) {
            m_more.erase(it);
            return;
        }
    }
}
