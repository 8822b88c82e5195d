// The header sort of the file table: the list itself in natural name order.
#include "MyDocument.h"

#include "FileIndex.h"
#include "Preferences.h"

#include <QCollator>

#include <algorithm>
#include <vector>

void MyDocument::sortByName(bool descending) {
    const bool fullPaths = Preferences::showFullSourcePaths();
    // The C locale (a bare environment) compares code points and ignores the
    // numeric mode, so it sorts with English rules instead.
    QLocale locale;
    if (locale.language() == QLocale::C) locale = QLocale(QLocale::English);
    QCollator collator(locale);
    collator.setNumericMode(true);
    {
        QMutexLocker lock(&m_mutex);
        // Sort keys once per item: 100,000 items sort in a fraction of the
        // time that collator comparisons of the strings would take.
        struct Key {
            QCollatorSortKey name;
            QCollatorSortKey folder;
            qsizetype index;
        };
        std::vector<Key> keys;
        keys.reserve(static_cast<size_t>(m_files.size()));
        for (qsizetype i = 0; i < m_files.size(); ++i) {
            const QXFileItem& item = *m_files[i];
            if (fullPaths)
                keys.push_back({collator.sortKey(item.displayName()), collator.sortKey({}), i});
            else
                keys.push_back(
                    {collator.sortKey(item.fileName()), collator.sortKey(item.containerDir()), i});
        }
        std::stable_sort(keys.begin(), keys.end(), [descending](const Key& a, const Key& b) {
            int c = a.name.compare(b.name);
            if (c == 0) c = a.folder.compare(b.folder);
            return descending ? c > 0 : c < 0;
        });
        FileList sorted;
        sorted.reserve(m_files.size());
        for (const Key& k : keys)
            sorted.append(m_files[k.index]);
        m_files = sorted;
        rebuildIndexLocked();
    }
    view().reloadTable(true);
    view().clearSelection();
    // As with a row drop: only renumbering depends on the list's order.
    if (selectedTag() == 7) generatePreviews();
}
