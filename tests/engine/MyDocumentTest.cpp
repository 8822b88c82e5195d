#include "FolderWalker.h"
#include "TaskTestSupport.h"

#include <QDir>
#include <QSettings>
#include <algorithm>
#include <unistd.h>

namespace {
class MyDocumentList : public LoggedTest {};

QStringList names(const FileList& files) {
    QStringList out;
    for (const auto& f : files)
        out.append(f->fileName());
    return out;
}

QStringList paths(const FileList& files) {
    QStringList out;
    for (const auto& f : files)
        out.append(f->fullPath());
    return out;
}

// A folder large enough to be taken in on two threads: every visible file
// once, in natural name order after those already there, each found by its path.
TEST_F(MyDocumentList, LargeFolderAddsEachFileOnceInNaturalOrder) {
    TempTree t;
    for (int i = 0; i < 5000; ++i)
        t.file(u"big/f%1.txt"_s.arg(i));
    t.file(u"big/.hidden"_s);
    const QString early = t(u"big/f4999.txt"_s), earlier = t(u"big/f7.txt"_s);
    MyDocument doc;
    doc.addFileToList(early);
    doc.addFileToList(earlier);
    doc.addFileToList(t(u"big"_s));

    QStringList expected = {early, earlier};
    for (int i = 0; i < 5000; ++i) {
        const QString path = t(u"big/f%1.txt"_s.arg(i));
        if (path != early && path != earlier) expected.append(path);
    }
    EXPECT_EQ(paths(doc.fileArray()), expected);
    for (qsizetype i = 0; i < expected.size(); i += 97) {
        const FileItemPtr found = doc.fileInQueue(expected[i]);
        ASSERT_TRUE(found) << qPrintable(expected[i]);
        EXPECT_EQ(found->fullPath(), expected[i]);
    }
}

// Folders are entries like files: depth first, each folder's entries in
// natural order (numbers by value, then case, then a fixed order for names
// the collator holds equal). Hidden entries and the folders themselves stay out.
TEST_F(MyDocumentList, FolderAddsEveryVisibleFileDepthFirstInNaturalOrder) {
    TempTree t;
    for (const char* name :
         {"f/shot.10.exr", "f/shot.9.exr", "f/x/1.txt", "f/x/y/2.txt", "f/shot.1.exr", "f/z.txt",
          "f/Shot.1.exr", "f/x/10.txt", "f/.DS_Store", "f/.hidden/c.exr", "f/x/.d.exr"})
        t.file(QString::fromUtf8(name));
    t.dir(u"f/empty"_s);
    const QString nfc = u"f/\u00e9.txt"_s, nfd = u"f/e\u0301.txt"_s;
    t.file(nfc);
    t.file(nfd);
    MyDocument doc;
    doc.addFileToList(t(u"f"_s));
    // The two spellings of é come first, in binary order among equals.
    const QStringList expected = {t(nfd),
                                  t(nfc),
                                  t(u"f/shot.1.exr"_s),
                                  t(u"f/Shot.1.exr"_s),
                                  t(u"f/shot.9.exr"_s),
                                  t(u"f/shot.10.exr"_s),
                                  t(u"f/x/1.txt"_s),
                                  t(u"f/x/10.txt"_s),
                                  t(u"f/x/y/2.txt"_s),
                                  t(u"f/z.txt"_s)};
    EXPECT_EQ(paths(doc.fileArray()), expected);
    doc.addFileToList(t(u"f/.DS_Store"_s)); // hidden files are never added, even by name
    EXPECT_EQ(doc.fileCount(), 10);
    // A path that does not exist is still an item, under a file too.
    doc.addFileToList(t(u"f/z.txt/inside.txt"_s));
    EXPECT_EQ(doc.fileCount(), 11);
}

TEST_F(MyDocumentList, DuplicatesAreRefusedByEveryRoute) {
    TempTree t;
    const QString a = t.file(u"d/a.txt"_s);
    MyDocument doc;
    doc.addItemsOnThread({a, a, t(u"d"_s), a});
    EXPECT_EQ(doc.fileCount(), 1);
    doc.addFileToList(a, false, false);
    EXPECT_EQ(doc.fileCount(), 1);
    // A differently spelled path to the same file is another item.
    doc.addFileToList(t(u"d/./a.txt"_s));
    EXPECT_EQ(doc.fileCount(), 2);
    EXPECT_EQ(doc.fileInQueue(a)->fullPath(), a);
    EXPECT_FALSE(doc.fileInQueue(t(u"d/A.txt"_s))); // case-sensitive
}

TEST_F(MyDocumentList, LinkLoopsEndAndInvalidNamesAreLogged) {
    TempTree t;
    t.file(u"loop/a.txt"_s);
    ASSERT_EQ(::symlink(t(u"loop"_s).toUtf8().constData(), t(u"loop/back"_s).toUtf8().constData()),
              0);
    const QByteArray bad = QFile::encodeName(t(u"loop/"_s)) + "bad\xff.txt";
    FILE* f = std::fopen(bad.constData(), "w");
    ASSERT_TRUE(f);
    std::fclose(f);
    const QString long255 = QString(251, u'x') + u".txt"_s;
    t.file(u"loop/"_s + long255);
    const QString bom = u"\uFEFFbom.txt"_s; // valid UTF-8, and its mark is part of the name
    t.file(u"loop/"_s + bom);

    MyDocument doc;
    doc.addFileToList(t(u"loop"_s));
    ::unlink(bad.constData()); // a name the temporary folder cannot remove by itself
    QStringList got = names(doc.fileArray());
    got.sort();
    EXPECT_EQ(got, QStringList({u"a.txt"_s, long255, bom}));
    const QString text = logText();
    EXPECT_TRUE(text.contains(u"the name is not valid UTF-8"_s));
    EXPECT_TRUE(text.contains(u"leads back into a folder being added"_s));
}

TEST_F(MyDocumentList, AddItemsOnThreadReportsTheListTotalAndFoldersStayWhole) {
    TempTree t;
    t.file(u"plates/a.exr"_s);
    RecordingView view;
    MyDocument doc(&view);
    doc.addItemsOnThread({t.file(u"a.txt"_s), t.file(u"b.txt"_s)});
    doc.addItemsInBackground({t.file(u"c.txt"_s)});
    doc.waitForPreviews();
    EXPECT_EQ(doc.fileCount(), 3);
    EXPECT_TRUE(view.renameEnabled);
    EXPECT_EQ(view.spinnerEvents.mid(0, 2), QStringList({u"add:start"_s, u"add:stop"_s}));
    EXPECT_EQ(logCount(u"2 item(s) added"_s), 1);
    EXPECT_EQ(logCount(u"3 item(s) added"_s), 1); // the total, not the one added
    doc.importFolders({t(u"plates"_s)});
    doc.waitForPreviews();
    ASSERT_EQ(doc.fileCount(), 4);
    EXPECT_TRUE(doc.fileArray().last()->isDir());
    EXPECT_EQ(doc.fileArray().last()->fileName(), u"plates"_s);
}

TEST_F(MyDocumentList, RemoveAndSorts) {
    MyDocument doc;
    for (const char* n : {"s.0003.exr", "s.0001.exr", "plain.exr", "s.0002.exr"})
        doc.addFileToList(u"/tmp/x/"_s + QString::fromLatin1(n));
    MyDocument allNumbered;
    for (const char* n : {"t.10.exr", "t.9.exr", "t.0100.exr", "t.1.exr"})
        allNumbered.addFileToList(u"/tmp/x/"_s + QString::fromLatin1(n));
    EXPECT_EQ(names(allNumbered.sortFilesByFrameOrder()),
              QStringList({u"t.1.exr"_s, u"t.9.exr"_s, u"t.10.exr"_s, u"t.0100.exr"_s}));
    EXPECT_EQ(names(doc.sortFilesByPreviewFilename()).first(), u"plain.exr"_s);

    doc.remove({0, 2});
    EXPECT_EQ(names(doc.fileArray()), QStringList({u"s.0001.exr"_s, u"s.0002.exr"_s}));
    EXPECT_TRUE(doc.fileInQueue(u"/tmp/x/s.0002.exr"_s));
    EXPECT_FALSE(doc.fileInQueue(u"/tmp/x/s.0003.exr"_s));
    doc.remove({});
    EXPECT_EQ(doc.fileCount(), 2);
    doc.waitForPreviews();
}

struct MoveCase {
    int count;
    QList<int> rows;
    int drop;
    QList<int> expected;
};

TEST(MyDocumentTable, RowMovesFollowTheDropRules) {
    const MoveCase cases[] = {
        {5, {0}, 3, {1, 2, 0, 3, 4}},                                  // just before the target
        {5, {3, 4}, 0, {3, 4, 0, 1, 2}}, {5, {1}, 5, {0, 2, 3, 4, 1}}, // below the last row: append
        {5, {1, 2}, 2, {0, 3, 4, 1, 2}}, // onto its own block: to the end
        {5, {4, 0}, 2, {1, 0, 4, 2, 3}}, // kept in list order
        {3, {}, 1, {0, 1, 2}},
    };
    for (const auto& c : cases)
        EXPECT_EQ(MyDocument::moveRows(c.count, c.rows, c.drop), c.expected) << c.drop;
}

TEST(MyDocumentTable, CellValuesFollowTheDefaults) {
    MyDocument doc;
    doc.addFileToList(QDir::homePath() + u"/plates/a.0001.exr"_s);
    QSettings defaults(u"Corvane"_s, u"Seqmate"_s);
    defaults.setValue(u"showFullSourcePaths"_s, 0);
    defaults.sync();
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Filename, 0), u"a.0001.exr"_s);
    defaults.setValue(u"showFullSourcePaths"_s, 1);
    defaults.sync();
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Filename, 0), u"~/plates/a.0001.exr"_s);
    defaults.remove(u"showFullSourcePaths"_s);
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Preview, 0), u"a.0001.exr"_s);
    doc.fileArray().first()->previewObject()->setIsConflicting(true);
    EXPECT_EQ(doc.toolTip(0), u"The proposed filename conflicts with another file in the list."_s);
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Filename, 7), QString());
}

QStringList sortedByName(const QStringList& paths, int fullPaths, bool descending = false) {
    QSettings defaults(u"Corvane"_s, u"Seqmate"_s);
    defaults.setValue(u"showFullSourcePaths"_s, fullPaths);
    defaults.sync();
    MyDocument doc;
    for (const QString& p : paths)
        doc.addFileToList(p);
    doc.sortByName(descending);
    defaults.remove(u"showFullSourcePaths"_s);
    EXPECT_EQ(doc.fileInQueue(doc.itemAt(0)->fullPath()), doc.itemAt(0)); // index follows
    QStringList out;
    for (const auto& f : doc.fileArray())
        out.append(f->displayName());
    return out;
}

TEST(MyDocumentSort, ByWhatTheNameColumnShowsInNaturalOrder) {
    const QStringList names = {u"/s/b/shot.10.exr"_s, u"/s/a/shot.2.exr"_s, u"/s/b/shot.2.exr"_s,
                               u"/s/a10/shot.1.exr"_s, u"/s/a2/shot.1.exr"_s};
    // Equal names go by folder, naturally too: a2 before a10.
    const QStringList ascending = {u"/s/a2/shot.1.exr"_s, u"/s/a10/shot.1.exr"_s,
                                   u"/s/a/shot.2.exr"_s, u"/s/b/shot.2.exr"_s,
                                   u"/s/b/shot.10.exr"_s};
    EXPECT_EQ(sortedByName(names, 0), ascending);
    EXPECT_EQ(sortedByName(names, 0, true), QStringList(ascending.rbegin(), ascending.rend()));
    const QStringList full = {QDir::homePath() + u"/z/a.1"_s, u"/s/x10/b.1"_s, u"/s/x9/c.1"_s};
    EXPECT_EQ(sortedByName(full, 1), QStringList({u"/s/x9/c.1"_s, u"/s/x10/b.1"_s, u"~/z/a.1"_s}));
}

// Sorting and dropping rows reload the table and clear the selection; of the
// previews only the renumbering one depends on the order, so only it is redone.
TEST(MyDocumentSort, SortsAndDropsRefreshOnlyTheRenumberPreview) {
    RecordingView view;
    MyDocument doc(&view);
    for (int i : {3, 1, 2})
        doc.addFileToList(u"/s/f.%1.exr"_s.arg(i));
    doc.setSelectedTag(21);
    doc.sortByName();
    EXPECT_EQ(view.reloadsWaited, 1);
    EXPECT_EQ(view.selectionCleared, 1);
    EXPECT_TRUE(doc.acceptRowDrop({2}, 0));
    doc.waitForPreviews();
    EXPECT_EQ(view.spinnerEvents.count(u"preview:start"_s), 0);
    EXPECT_EQ(view.selectionCleared, 2);
    EXPECT_EQ(doc.fileInQueue(u"/s/f.3.exr"_s), doc.fileArray().first());
    doc.setSelectedTag(7);
    doc.sortByName(true);
    doc.waitForPreviews();
    EXPECT_EQ(view.spinnerEvents.count(u"preview:start"_s), 1);
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Filename, 0), u"f.3.exr"_s);
    EXPECT_TRUE(doc.acceptRowDrop({0}, 3));
    doc.waitForPreviews();
    EXPECT_EQ(view.spinnerEvents.count(u"preview:start"_s), 2);
    EXPECT_EQ(doc.itemAt(3), nullptr);
    EXPECT_FALSE(doc.acceptFileDrop(u"not a list"_s));
}
} // namespace
