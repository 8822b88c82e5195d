#pragma once

#include <QList>
#include <QMutex>
#include <QPair>
#include <QString>
#include <sys/types.h>

class MyDocument;

// A folder entry as listed: its name and whether it leads to a folder.
struct DirEntry {
    QString name;
    bool isDir;
};

// The walk of one added path, depth first, each folder's entries in natural
// name order. Folders are listed without the document's lock; the lock is
// taken for each run of files appended, so a long add never blocks readers.
class FolderWalker {
public:
    FolderWalker(MyDocument& doc, QMutex& mutex) : m_doc(doc), m_mutex(mutex) {}
    // Adds what the walk skipped to the document's count.
    ~FolderWalker();
    FolderWalker(const FolderWalker&) = delete;
    FolderWalker& operator=(const FolderWalker&) = delete;

    void add(const QString& rawPath, bool preserveFolders);

    // A folder's visible entries, in natural name order: digit runs
    // by their value (shot.2 before shot.10), letters by the user's locale.
    // Names that are not valid UTF-8 cannot be renamed faithfully through
    // QString: they are left out, logged and counted in skipped.
    static QList<DirEntry> listFolder(const QString& folder, qsizetype* skipped = nullptr);
    // Entries in that same order, sorted in place.
    static void sortNaturally(QList<DirEntry>& entries);
    static bool isFolder(const QString& path);

private:
    void descend(const QString& folder);
    void appendRun(const QString& folder, const QList<DirEntry>& entries, qsizetype from,
                   qsizetype to);
    MyDocument& m_doc;
    QMutex& m_mutex;
    QList<QPair<dev_t, ino_t>> m_stack; // folders being descended, against link loops
    qsizetype m_skipped = 0;
};
