#include "MyDocument.h"
#include "RecordingView.h"

#include <QDir>
#include <QSettings>
#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {
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
