#pragma once

#include <QMultiHash>
#include <QString>
#include <algorithm>

// The hash index behind the document's exact-path look-ups: full path hash
// to list position. It gives the same answers as a scan of the list, without
// making 100,000 additions quadratic. Positions are rebuilt after removals and
// moves; appends and renames update it in place.
class FileIndex {
public:
    void clear() {
        m_first.clear();
        m_more.clear();
        m_duplicates = 0;
    }
    // Grows geometrically, so that a walk through many small folders, which
    // asks for a little more each time, does not rehash for every folder.
    void reserve(size_t n) {
        const auto wanted = static_cast<qsizetype>(n);
        if (wanted > m_first.capacity()) m_first.reserve(std::max(wanted, 2 * m_first.size()));
    }
    // Every call takes the path's hash, so that a look-up followed by an
    // insert hashes the path once.
    static quint64 hashOf(const QString& path);
    // Records a path at position; counts a duplicate when the path was there.
    void insert(quint64 pathHash, int position, bool alreadyPresent) {
        if (m_first.contains(pathHash))
            m_more.insert(pathHash, position);
        else
            m_first.insert(pathHash, position);
        if (alreadyPresent) ++m_duplicates;
    }
    void erase(quint64 pathHash, int position);
    // Positions whose path has the same hash (the caller verifies the path).
    template <class F> void forEachCandidate(quint64 pathHash, F&& f) const {
        const auto first = m_first.constFind(pathHash);
        if (first == m_first.cend() || f(*first) || m_more.isEmpty()) return;
        auto [b, e] = m_more.equal_range(pathHash);
        for (auto it = b; it != e; ++it)
            if (f(*it)) return;
    }
    // With duplicate paths, "the first in list order" needs a scan.
    bool hasDuplicates() const { return m_duplicates > 0; }

private:
    // One position per hash in a flat table: nearly every path. Positions under
    // a hash already taken (a duplicate path or a rare collision) go to m_more,
    // so the common look-up costs one probe and no node of its own.
    QHash<quint64, int> m_first;
    QMultiHash<quint64, int> m_more;
    int m_duplicates = 0;
};
