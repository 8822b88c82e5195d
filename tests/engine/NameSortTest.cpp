#include "MyDocument.h"
#include "RecordingView.h"

#include <QDir>
#include <QSettings>
#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {
QStringList displayed(const MyDocument& doc) {
    QStringList out;
    for (const auto& f : doc.fileArray())
        out.append(f->displayName());
    return out;
}

class ShowFullPaths {
public:
    explicit ShowFullPaths(int value) { set(value); }
    ~ShowFullPaths() { QSettings(u"Corvane"_s, u"Seqmate"_s).remove(u"showFullSourcePaths"_s); }
    static void set(int value) {
        QSettings defaults(u"Corvane"_s, u"Seqmate"_s);
        defaults.setValue(u"showFullSourcePaths"_s, value);
        defaults.sync();
    }
};

TEST(MyDocumentSort, NamesSortNaturallyWithTheFolderBreakingTies) {
    ShowFullPaths names(0);
    MyDocument doc;
    for (const QString& p : {u"/s/b/shot.10.exr"_s, u"/s/a/shot.2.exr"_s, u"/s/b/shot.2.exr"_s,
                             u"/s/a10/shot.1.exr"_s, u"/s/a2/shot.1.exr"_s})
        doc.addFileToList(p);
    doc.sortByName();
    // Equal names go by folder, naturally too: a2 before a10.
    EXPECT_EQ(displayed(doc),
              QStringList({u"/s/a2/shot.1.exr"_s, u"/s/a10/shot.1.exr"_s, u"/s/a/shot.2.exr"_s,
                           u"/s/b/shot.2.exr"_s, u"/s/b/shot.10.exr"_s}));
    doc.sortByName(true);
    EXPECT_EQ(displayed(doc).first(), u"/s/b/shot.10.exr"_s);
    EXPECT_EQ(displayed(doc).last(), u"/s/a2/shot.1.exr"_s);
    // The look-up index follows the new positions.
    EXPECT_EQ(doc.fileInQueue(u"/s/b/shot.10.exr"_s), doc.itemAt(0));
}

TEST(MyDocumentSort, FullPathsSortByTheWholePath) {
    ShowFullPaths full(1);
    MyDocument doc;
    const QString home = QDir::homePath();
    for (const QString& p : QStringList{home + u"/z/a.1"_s, u"/s/x10/b.1"_s, u"/s/x9/c.1"_s})
        doc.addFileToList(p);
    doc.sortByName();
    EXPECT_EQ(displayed(doc), QStringList({u"/s/x9/c.1"_s, u"/s/x10/b.1"_s, u"~/z/a.1"_s}));
}

TEST(MyDocumentSort, ReloadsClearsTheSelectionAndRefreshesOnlyRenumbering) {
    ShowFullPaths names(0);
    RecordingView view;
    MyDocument doc(&view);
    for (int i : {3, 1, 2})
        doc.addFileToList(u"/s/f.%1.exr"_s.arg(i));
    doc.setSelectedTag(21);
    doc.sortByName();
    doc.waitForPreviews();
    EXPECT_EQ(view.spinnerEvents.count(u"preview:start"_s), 0);
    EXPECT_EQ(view.reloadsWaited, 1);
    EXPECT_EQ(view.selectionCleared, 1);
    doc.setSelectedTag(7);
    doc.sortByName(true);
    doc.waitForPreviews();
    EXPECT_EQ(view.spinnerEvents.count(u"preview:start"_s), 1);
    EXPECT_EQ(doc.objectValue(MyDocument::Column::Filename, 0), u"f.3.exr"_s);
    EXPECT_EQ(doc.itemAt(3), nullptr);
    EXPECT_EQ(doc.itemAt(-1), nullptr);
}
} // namespace
