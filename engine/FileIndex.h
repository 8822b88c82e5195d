#pragma once

#include <QString>
#include <algorithm>
#include <unordered_map>

// The hash index behind the document's exact-path look-ups: full path hash
// to list position. It gives the same answers as a scan of the list, without
// making 100,000 additions quadratic. Positions are rebuilt after removals and
// moves; appends and renames update it in place.
class FileIndex {
public:
    void clear() {
        m_map.clear();
        m_duplicates = 0;
    }
    // Grows geometrically, so that a walk through many small folders, which
    // asks for a little more each time, does not rehash for every folder.
    void reserve(size_t n) {
        if (static_cast<float>(n) >
            m_map.max_load_factor() * static_cast<float>(m_map.bucket_count()))
            m_map.reserve(std::max(n, 2 * m_map.size()));
    }
    static quint64 hashOf(const QString& path);
    // Records path at position; counts a duplicate when the path was there.
    void insert(const QString& path, int position, bool alreadyPresent) {
        m_map.emplace(hashOf(path), position);
        if (alreadyPresent) ++m_duplicates;
    }
    void erase(const QString& path, int position);
    // Positions whose path has the same hash (the caller verifies the path).
    template <class F> void forEachCandidate(const QString& path, F&& f) const {
        auto [b, e] = m_map.equal_range(hashOf(path));
        for (auto it = b; it != e; ++it)
            if (f(it->second)) return;
    }
    // With duplicate paths, "the first in list order" needs a scan.
    bool hasDuplicates() const { return m_duplicates > 0; }

private:
    std::unordered_multimap<quint64, int> m_map;
    int m_duplicates = 0;
};
