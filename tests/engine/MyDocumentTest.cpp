#include "MyDocument.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "RecordingView.h"
#include "TempTree.h"

#include <QDir>
#include <QFile>
#include <QSettings>
#include <gtest/gtest.h>
#include <unistd.h>

namespace {
// A fresh log in the private home: as an ordinary user, so that it does not
// go to the machine-wide folder the super-user writes to.
class FreshLog {
public:
    FreshLog() {
        QXLocalPaths::setUserIdForTesting(1000);
        QXLog::createNewLog(QStringLiteral("Seqmate"));
    }
    ~FreshLog() {
        QXLog::finishWriting();
        QXLocalPaths::setUserIdForTesting(std::nullopt);
    }
    QString text() const {
        QXLog::finishWriting();
        QFile f(QXLog::currentLogPath());
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }
};

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

TEST(MyDocumentList, FolderAddsEveryVisibleFileAtAnyDepthButNotItself) {
    TempTree t;
    t.file(QStringLiteral("seq/a.0001.exr"));
    t.file(QStringLiteral("seq/sub/deeper/b.0001.exr"));
    t.file(QStringLiteral("seq/.DS_Store"));
    t.file(QStringLiteral("seq/.hidden/c.exr"));
    t.file(QStringLiteral("seq/sub/.d.exr"));
    t.dir(QStringLiteral("seq/empty"));
    MyDocument doc;
    doc.addFileToList(t(QStringLiteral("seq")));
    QStringList got = paths(doc.fileArray());
    got.sort();
    EXPECT_EQ(got, QStringList({t(QStringLiteral("seq/a.0001.exr")),
                                t(QStringLiteral("seq/sub/deeper/b.0001.exr"))}));
    doc.addFileToList(t(QStringLiteral("seq")));
    EXPECT_EQ(doc.fileCount(), 2); // nothing new the second time
    doc.addFileToList(t(QStringLiteral("seq/.DS_Store")));
    EXPECT_EQ(doc.fileCount(), 2); // hidden files are never added, even by name
}

TEST(MyDocumentList, FoldersGoDepthFirstInListingOrder) {
    TempTree t;
    t.file(QStringLiteral("f/x/1.txt"));
    t.file(QStringLiteral("f/x/y/2.txt"));
    t.file(QStringLiteral("f/z.txt"));
    MyDocument doc;
    doc.addFileToList(t(QStringLiteral("f")));
    const QStringList got = names(doc.fileArray());
    ASSERT_EQ(got.size(), 3);
    // Everything below x stands together, y's file among x's files.
    const qsizetype one = got.indexOf(QStringLiteral("1.txt"));
    const qsizetype two = got.indexOf(QStringLiteral("2.txt"));
    EXPECT_EQ(std::abs(one - two), 1);
}

TEST(MyDocumentList, DuplicatesAreRefusedByEveryRoute) {
    TempTree t;
    const QString a = t.file(QStringLiteral("d/a.txt"));
    MyDocument doc;
    doc.addItemsOnThread({a, a, t(QStringLiteral("d")), a});
    EXPECT_EQ(doc.fileCount(), 1);
    doc.addFileToList(a, false, false);
    EXPECT_EQ(doc.fileCount(), 1);
    // A differently spelled path to the same file is another item.
    doc.addFileToList(t(QStringLiteral("d/./a.txt")));
    EXPECT_EQ(doc.fileCount(), 2);
    EXPECT_EQ(doc.fileInQueue(a)->fullPath(), a);
    EXPECT_FALSE(doc.fileInQueue(t(QStringLiteral("d/A.txt")))); // case-sensitive
}

TEST(MyDocumentList, MissingPathsBecomeItemsAndBadFoldersAddNothing) {
    TempTree t;
    t.file(QStringLiteral("blocker")); // a file where a folder is expected
    MyDocument doc;
    doc.addFileToList(t(QStringLiteral("nowhere/shot.0001.exr")));
    ASSERT_EQ(doc.fileCount(), 1);
    EXPECT_EQ(doc.fileArray().first()->paddingLength(), 4u);
    doc.addFileToList(t(QStringLiteral("blocker/inside.txt")));
    EXPECT_EQ(doc.fileCount(), 2); // a path that does not exist is still an item
}

TEST(MyDocumentList, LinkLoopsEndAndInvalidNamesAreLogged) {
    TempTree t;
    t.file(QStringLiteral("loop/a.txt"));
    ASSERT_EQ(::symlink(t(QStringLiteral("loop")).toUtf8().constData(),
                        t(QStringLiteral("loop/back")).toUtf8().constData()),
              0);
    const QByteArray bad = QFile::encodeName(t(QStringLiteral("loop/"))) + "bad\xff.txt";
    FILE* f = std::fopen(bad.constData(), "w");
    ASSERT_TRUE(f);
    std::fclose(f);
    const QString long255 = QString(251, u'x') + QStringLiteral(".txt");
    t.file(QStringLiteral("loop/") + long255);

    FreshLog log;
    MyDocument doc;
    doc.addFileToList(t(QStringLiteral("loop")));
    ::unlink(bad.constData()); // a name the temporary folder cannot remove by itself
    QStringList got = names(doc.fileArray());
    got.sort();
    EXPECT_EQ(got, QStringList({QStringLiteral("a.txt"), long255}));
    const QString text = log.text();
    EXPECT_TRUE(text.contains(QStringLiteral("the name is not valid UTF-8")));
    EXPECT_TRUE(text.contains(QStringLiteral("leads back into a folder being added")));
}

TEST(MyDocumentList, AddItemsOnThreadReportsTheListTotal) {
    TempTree t;
    FreshLog log;
    RecordingView view;
    MyDocument doc(&view);
    doc.addItemsOnThread({t.file(QStringLiteral("a.txt")), t.file(QStringLiteral("b.txt"))});
    doc.addItemsInBackground({t.file(QStringLiteral("c.txt"))});
    doc.waitForPreviews();
    EXPECT_EQ(doc.fileCount(), 3);
    EXPECT_TRUE(view.renameEnabled);
    EXPECT_EQ(view.spinnerEvents.mid(0, 2),
              QStringList({QStringLiteral("add:start"), QStringLiteral("add:stop")}));
    const QString text = log.text();
    EXPECT_TRUE(text.contains(QStringLiteral(" - 2 item(s) added")));
    EXPECT_TRUE(
        text.contains(QStringLiteral(" - 3 item(s) added"))); // the total, not the one added
}

TEST(MyDocumentList, ImportFoldersKeepsFoldersWhole) {
    TempTree t;
    t.file(QStringLiteral("plates/a.exr"));
    MyDocument doc;
    doc.importFolders({t(QStringLiteral("plates"))});
    doc.waitForPreviews();
    ASSERT_EQ(doc.fileCount(), 1);
    EXPECT_TRUE(doc.fileArray().first()->isDir());
    EXPECT_EQ(doc.fileArray().first()->fileName(), QStringLiteral("plates"));
}

TEST(MyDocumentList, RemoveAndSorts) {
    MyDocument doc;
    for (const char* n : {"s.0003.exr", "s.0001.exr", "plain.exr", "s.0002.exr"})
        doc.addFileToList(QStringLiteral("/tmp/x/") + QString::fromLatin1(n));
    MyDocument allNumbered;
    for (const char* n : {"t.10.exr", "t.9.exr", "t.0100.exr", "t.1.exr"})
        allNumbered.addFileToList(QStringLiteral("/tmp/x/") + QString::fromLatin1(n));
    EXPECT_EQ(names(allNumbered.sortFilesByFrameOrder()),
              QStringList({QStringLiteral("t.1.exr"), QStringLiteral("t.9.exr"),
                           QStringLiteral("t.10.exr"), QStringLiteral("t.0100.exr")}));
    EXPECT_EQ(names(doc.sortFilesByPreviewFilename()).first(), QStringLiteral("plain.exr"));
    EXPECT_EQ(names(*MyDocument::reverseArray(doc.fileArray())).first(),
              QStringLiteral("s.0002.exr"));

    doc.remove({0, 2});
    EXPECT_EQ(names(doc.fileArray()),
              QStringList({QStringLiteral("s.0001.exr"), QStringLiteral("s.0002.exr")}));
    EXPECT_TRUE(doc.fileInQueue(QStringLiteral("/tmp/x/s.0002.exr")));
    EXPECT_FALSE(doc.fileInQueue(QStringLiteral("/tmp/x/s.0003.exr")));
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

TEST(MyDocumentTable, DropsRefreshOnlyTheRenumberPreview) {
    RecordingView view;
    MyDocument doc(&view);
    for (int i = 1; i <= 3; ++i)
        doc.addFileToList(QStringLiteral("/tmp/y/f.%1.exr").arg(i));
    doc.setSelectedTag(21);
    EXPECT_TRUE(doc.acceptRowDrop({2}, 0));
    doc.waitForPreviews();
    EXPECT_EQ(view.spinnerEvents.count(QStringLiteral("preview:start")), 0);
    EXPECT_EQ(names(doc.fileArray()).first(), QStringLiteral("f.3.exr"));
    EXPECT_EQ(doc.fileInQueue(QStringLiteral("/tmp/y/f.3.exr")), doc.fileArray().first());
    doc.setSelectedTag(7);
    EXPECT_TRUE(doc.acceptRowDrop({0}, 3));
    doc.waitForPreviews();
    EXPECT_EQ(view.spinnerEvents.count(QStringLiteral("preview:start")), 1);
    EXPECT_GE(view.selectionCleared, 2);
    EXPECT_FALSE(doc.acceptFileDrop(QStringLiteral("not a list")));
}

TEST(MyDocumentTable, CellValuesFollowTheDefaults) {
    MyDocument doc;
    doc.addFileToList(QDir::homePath() + QStringLiteral("/plates/a.0001.exr"));
    QSettings defaults(QStringLiteral("Corvane"), QStringLiteral("Seqmate"));
    defaults.setValue(QStringLiteral("showFullSourcePaths"), 0);
    defaults.sync();
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Filename, 0), QStringLiteral("a.0001.exr"));
    defaults.setValue(QStringLiteral("showFullSourcePaths"), 1);
    defaults.sync();
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Filename, 0),
              QStringLiteral("~/plates/a.0001.exr"));
    defaults.remove(QStringLiteral("showFullSourcePaths"));
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Preview, 0), QStringLiteral("a.0001.exr"));
    EXPECT_EQ(doc.toolTip(0), QString());
    doc.fileArray().first()->previewObject()->setIsConflicting(true);
    EXPECT_EQ(doc.toolTip(0),
              QStringLiteral("The proposed filename conflicts with another file in the list."));
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Filename, 7), QString());
}
} // namespace
