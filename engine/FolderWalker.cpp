#include "FolderWalker.h"

#include "FileIndex.h"
#include "InTwoHalves.h"
#include "MyDocument.h"
#include "QXLog.h"

#include <QCollator>
#include <QFile>
#include <QStringDecoder>

#include <algorithm>
#include <array>
#include <dirent.h>
#include <sys/stat.h>
#include <vector>

namespace {
bool statFolder(const QString& path, bool* isDir, dev_t* dev, ino_t* ino) {
    struct stat st {};
    if (::stat(QFile::encodeName(path).constData(), &st) != 0) return false;
    *isDir = S_ISDIR(st.st_mode);
    *dev = st.st_dev;
    *ino = st.st_ino;
    return true;
}

// Natural order as the user's file manager shows it: numeric mode, and the
// user's locale, but for the C locale, which knows no numeric mode.
QCollator makeCollator() {
    QLocale locale;
    if (locale.language() == QLocale::C) locale = QLocale(QLocale::English, QLocale::UnitedStates);
    QCollator collator(locale);
    collator.setNumericMode(true);
    collator.setCaseSensitivity(Qt::CaseSensitive);
    return collator;
}
} // namespace

QList<DirEntry> FolderWalker::listFolder(const QString& folder, qsizetype* skipped) {
    QList<DirEntry> out;
    const QByteArray native = QFile::encodeName(folder);
    DIR* dir = ::opendir(native.constData());
    if (!dir) return out; // an unreadable folder adds nothing
    while (dirent* e = ::readdir(dir)) {
        const char* raw = e->d_name;
        if (raw[0] == '.') continue; // ".", ".." and hidden entries, never added
        // A byte-order mark is part of a name, not a marker to drop.
        QStringDecoder decoder(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless |
                                                         QStringDecoder::Flag::ConvertInitialBom);
        const QString name = decoder(QByteArrayView(raw));
        if (decoder.hasError()) {
            QXLog::appendLog(
                QStringLiteral("Skipped %1/%2: the name is not valid UTF-8").arg(folder, name));
            if (skipped) ++*skipped;
            continue;
        }
        bool isDir = e->d_type == DT_DIR;
        if (e->d_type == DT_UNKNOWN || e->d_type == DT_LNK) {
            struct stat st {};
            const QByteArray full = native + '/' + raw;
            isDir = ::stat(full.constData(), &st) == 0 && S_ISDIR(st.st_mode);
        }
        out.append({name, isDir});
    }
    ::closedir(dir);
    sortNaturally(out);
    return out;
}

namespace {
bool isAsciiDigit(QChar c) {
    return c >= u'0' && c <= u'9';
}

// The end of the digit run that starts at i.
qsizetype digitRunEnd(const QString& s, qsizetype i) {
    while (i < s.size() && isAsciiDigit(s[i]))
        ++i;
    return i;
}

// Whether b is a with other ASCII digit runs in the same places, all ASCII.
bool sameButDigits(const QString& a, const QString& b) {
    qsizetype i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (b[j].unicode() >= 0x80) return false;
        if (isAsciiDigit(a[i]) && isAsciiDigit(b[j])) {
            i = digitRunEnd(a, i);
            j = digitRunEnd(b, j);
        } else if (a[i] != b[j]) {
            return false;
        } else {
            ++i;
            ++j;
        }
    }
    return i == a.size() && j == b.size();
}

// A sequence name's digit runs by value, in order: frame names have a few
// short ones, which fit here; longer names take the collator's way.
struct RunValues {
    static constexpr int kMaxRuns = 6;
    std::array<quint64, kMaxRuns> values{};
    qsizetype index = 0;
};

bool readRuns(const QString& name, RunValues& out) {
    int runs = 0;
    for (qsizetype i = 0; i < name.size();) {
        if (!isAsciiDigit(name[i])) {
            ++i;
            continue;
        }
        const qsizetype end = digitRunEnd(name, i);
        while (i + 1 < end && name[i] == u'0') // leading zeros count for nothing
            ++i;
        if (runs == RunValues::kMaxRuns || end - i > 19) return false;
        quint64 value = 0;
        for (; i < end; ++i)
            value = value * 10 + (name[i].unicode() - u'0');
        out.values[static_cast<size_t>(runs++)] = value;
    }
    return true;
}

// The common case, a folder of one sequence (plate_v03.0001.exr, ...): every
// name ASCII and the same but for its digit runs. Then the collator's order
// (numeric mode, leading zeros aside) is the order of the runs' values, found
// without a sort key per name.
bool sortSequence(QList<DirEntry>& entries) {
    const QString& first = entries.first().name;
    for (QChar c : first)
        if (c.unicode() >= 0x80) return false;
    std::vector<RunValues> keys(static_cast<size_t>(entries.size()));
    for (qsizetype i = 0; i < entries.size(); ++i) {
        RunValues& k = keys[static_cast<size_t>(i)];
        k.index = i;
        if (!sameButDigits(first, entries[i].name) || !readRuns(entries[i].name, k)) return false;
    }
    std::sort(keys.begin(), keys.end(), [&entries](const RunValues& a, const RunValues& b) {
        if (a.values != b.values) return a.values < b.values;
        return entries[a.index].name < entries[b.index].name;
    });
    QList<DirEntry> sorted;
    sorted.reserve(entries.size());
    for (const RunValues& k : keys)
        sorted.append(std::move(entries[k.index]));
    entries = std::move(sorted);
    return true;
}
} // namespace

void FolderWalker::sortNaturally(QList<DirEntry>& entries) {
    if (entries.size() < 2 || sortSequence(entries)) return;
    // A collator per thread (it is not to be shared), and one sort key per
    // name: comparing keys is a byte comparison, comparing names is not.
    thread_local const QCollator collator = makeCollator();
    struct Keyed {
        QCollatorSortKey key;
        qsizetype index;
    };
    std::vector<Keyed> keyed;
    keyed.reserve(static_cast<size_t>(entries.size()));
    for (qsizetype i = 0; i < entries.size(); ++i)
        keyed.push_back({collator.sortKey(entries[i].name), i});
    // Names the collator holds equal (leading zeros, other normal forms) keep
    // a fixed order.
    std::sort(keyed.begin(), keyed.end(), [&entries](const Keyed& a, const Keyed& b) {
        const int c = a.key.compare(b.key);
        return c != 0 ? c < 0 : entries[a.index].name < entries[b.index].name;
    });
    QList<DirEntry> sorted;
    sorted.reserve(entries.size());
    for (const Keyed& k : keyed)
        sorted.append(std::move(entries[k.index]));
    entries = std::move(sorted);
}

bool FolderWalker::isFolder(const QString& path) {
    bool isDir = false;
    dev_t dev = 0;
    ino_t ino = 0;
    return statFolder(path, &isDir, &dev, &ino) && isDir;
}

FolderWalker::~FolderWalker() {
    m_doc.m_skippedNames.fetch_add(m_skipped);
}

void FolderWalker::add(const QString& rawPath, bool preserveFolders) {
    const QString path = QXFileItem::expandTilde(rawPath);
    if (QXFileItem::lastPathComponent(path).startsWith(u'.')) return; // hidden: never added
    bool isDir = false;
    dev_t dev = 0;
    ino_t ino = 0;
    const bool exists = statFolder(path, &isDir, &dev, &ino);
    if (exists && isDir && !preserveFolders) {
        m_stack.append({dev, ino});
        descend(path);
        m_stack.removeLast();
        return;
    }
    QMutexLocker lock(&m_mutex);
    m_doc.addPathLocked(path, true, preserveFolders);
}

void FolderWalker::descend(const QString& folder) {
    const QList<DirEntry> entries = listFolder(folder, &m_skipped);
    // Depth first, in listing order: files up to the next folder go in one run.
    qsizetype runStart = 0;
    for (qsizetype i = 0; i < entries.size(); ++i) {
        if (!entries[i].isDir) continue;
        appendRun(folder, entries, runStart, i);
        runStart = i + 1;
        const DirEntry& e = entries[i];
        if (e.name.startsWith(u'.')) continue;
        const QString sub =
            folder == u'/' ? QString(u'/' + e.name) : QString(folder + u'/' + e.name);
        bool isDir = false;
        dev_t dev = 0;
        ino_t ino = 0;
        if (!statFolder(sub, &isDir, &dev, &ino) || !isDir) continue;
        if (m_stack.contains(qMakePair(dev, ino))) {
            QXLog::appendLog(
                QStringLiteral("Skipped %1: it leads back into a folder being added").arg(sub));
            continue;
        }
        m_stack.append({dev, ino});
        descend(sub);
        m_stack.removeLast();
    }
    appendRun(folder, entries, runStart, entries.size());
}

void FolderWalker::appendRun(const QString& folder, const QList<DirEntry>& entries, qsizetype from,
                             qsizetype to) {
    if (from >= to) return;
    const QString prefix = folder == u'/' ? QString() : folder; // "/" + name, not "//" + name
    auto fullPath = [&prefix](const QString& name) -> QString { return prefix + u'/' + name; };

    // Items and path hashes need nothing of the list: they are made in two
    // halves, and only the duplicate check and the index are done in order.
    // Each half shares its own copy of the folder's text, so that no shared
    // count is touched from both cores.
    const qsizetype count = to - from;
    FileList made(count);
    std::vector<quint64> keys(static_cast<size_t>(count));
    inTwoHalves(count, kTwoHalvesMinimum, [&](qsizetype first, qsizetype last) {
        const QString dir =
            first == 0 || prefix.isEmpty() ? prefix : QString(prefix.constData(), prefix.size());
        for (qsizetype i = first; i < last; ++i) {
            const QString& name = entries[from + i].name;
            if (name.startsWith(u'.')) continue;
            keys[static_cast<size_t>(i)] = FileIndex::hashOf(fullPath(name));
            made[i] = QXFileItem::fileItemInFolder(dir, name);
        }
    });

    QMutexLocker lock(&m_mutex);
    FileIndex& index = m_doc.indexLocked();
    index.reserve(static_cast<size_t>(m_doc.m_files.size() + count));
    for (qsizetype i = 0; i < count; ++i) {
        if (!made[i]) continue;
        const quint64 key = keys[static_cast<size_t>(i)];
        bool present = false;
        index.forEachCandidate(key, [&](int pos) {
            present = m_doc.m_files[pos]->fullPath() == fullPath(entries[from + i].name);
            return present;
        });
        if (present) continue;
        index.insert(key, static_cast<int>(m_doc.m_files.size()), false);
        m_doc.m_files.append(std::move(made[i]));
    }
}
