#include "PreviewPipeline.h"
#include "MyDocument.h"
#include "RecordingView.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <numeric>
#include <random>
#include <thread>

using namespace Qt::Literals::StringLiterals;

namespace {
FileList numbered(MyDocument& doc, int count, const QString& folder = u"/p"_s) {
    for (int i = 1; i <= count; ++i)
        doc.addFileToList(u"%1/Shot.%2.exr"_s.arg(folder).arg(i, 4, 10, QLatin1Char('0')));
    return doc.fileArray();
}

QString previewName(const FileItemPtr& item) {
    return item->previewObject()->fileName();
}

TEST(PreviewPipeline, BatchArithmetic) {
    using B = QList<QPair<int, int>>;
    EXPECT_EQ(PreviewPipeline::batches(0), B());
    EXPECT_EQ(PreviewPipeline::batches(50), B({{0, 50}}));
    EXPECT_EQ(PreviewPipeline::batches(99), B({{0, 99}}));
    EXPECT_EQ(PreviewPipeline::batches(100), B({{0, 50}, {50, 50}}));
    EXPECT_EQ(PreviewPipeline::batches(149), B({{0, 50}, {50, 99}}));
    EXPECT_EQ(PreviewPipeline::batches(150), B({{0, 50}, {50, 50}, {100, 50}}));
}

// 149 items: batches of 50 and 99.
TEST(PreviewPipeline, PreviewsEveryItemBatchByBatchAndLeavesItemsAlone) {
    RecordingView view;
    MyDocument doc(&view);
    doc.changeTask(21); // an empty list: nothing to compute
    doc.waitForPreviews();
    EXPECT_TRUE(view.spinnerEvents.isEmpty());
    const FileList files = numbered(doc, 149);
    doc.changeTask(21);
    doc.waitForPreviews();
    for (const auto& f : files) {
        EXPECT_TRUE(previewName(f).startsWith(u"shot."_s));
        EXPECT_TRUE(f->fileName().startsWith(u"Shot."_s));
    }
    EXPECT_EQ(view.spinnerEvents, QStringList({u"preview:start"_s, u"preview:stop"_s}));
    EXPECT_TRUE(view.renameEnabled);
    // Reversing is local to each batch; renumbering goes on across them.
    doc.changeTask(6);
    doc.waitForPreviews();
    EXPECT_EQ(previewName(files[0]), u"Shot.0050.exr"_s);
    EXPECT_EQ(previewName(files[49]), u"Shot.0001.exr"_s);
    EXPECT_EQ(previewName(files[50]), u"Shot.0149.exr"_s);
    EXPECT_EQ(previewName(files[148]), u"Shot.0051.exr"_s);
    doc.setFieldText(Outlet::reorderStartFrameField, u"101"_s);
    doc.changeTask(7);
    doc.waitForPreviews();
    EXPECT_EQ(previewName(files[0]), u"Shot.0101.exr"_s);
    EXPECT_EQ(previewName(files[50]), u"Shot.0151.exr"_s);
    EXPECT_EQ(previewName(files[148]), u"Shot.0249.exr"_s);
}

TEST(PreviewPipeline, ConflictsWithinAFolderOnly) {
    MyDocument doc;
    doc.addFileToList(u"/a/x.1.exr"_s);
    doc.addFileToList(u"/a/x.2.exr"_s);
    doc.addFileToList(u"/b/x.3.exr"_s);
    doc.addFileToList(u"/a/y.1.exr"_s);
    doc.changeTask(9); // remove frame numbers: x.exr three times, y.exr once
    doc.waitForPreviews();
    const FileList f = doc.fileArray();
    EXPECT_TRUE(f[0]->previewObject()->isConflicting());
    EXPECT_TRUE(f[1]->previewObject()->isConflicting());
    EXPECT_FALSE(f[2]->previewObject()->isConflicting()); // another folder
    EXPECT_FALSE(f[3]->previewObject()->isConflicting());
    EXPECT_TRUE(doc.rowIsConflicting(0));
    // Names that differ only in case are no conflict.
    MyDocument cased;
    cased.addFileToList(u"/c/A.jpg"_s);
    cased.addFileToList(u"/c/a.JPG"_s);
    cased.changeTask(22);
    cased.waitForPreviews();
    EXPECT_FALSE(cased.rowIsConflicting(0));
}

// Enough items to search on two threads: the flags must be the ones the plain
// definition gives (a stable sort by preview name, neighbours with the same
// full path flagged).
TEST(PreviewPipeline, ConflictsOfALargeListMatchTheSortedNeighbours) {
    MyDocument doc;
    std::mt19937 random(7);
    for (int i = 0; i < 6000; ++i)
        doc.addFileToList(u"/%1/N%2.%3.exr"_s.arg(QChar(char16_t(u'a' + random() % 3)))
                              .arg(random() % 2000)
                              .arg(i, 5, 10, QLatin1Char('0')));
    doc.changeTask(9); // remove frame numbers: about three of each name
    doc.waitForPreviews();
    const FileList files = doc.fileArray();
    ASSERT_EQ(files.size(), 6000);

    QList<qsizetype> order(files.size());
    std::iota(order.begin(), order.end(), 0);
    std::stable_sort(order.begin(), order.end(), [&](qsizetype a, qsizetype b) {
        return previewName(files[a]) < previewName(files[b]);
    });
    QList<bool> expected(files.size(), false);
    for (qsizetype k = 1; k < order.size(); ++k) {
        if (files[order[k - 1]]->previewObject()->fullPath() ==
            files[order[k]]->previewObject()->fullPath())
            expected[order[k - 1]] = expected[order[k]] = true;
    }
    qsizetype flagged = 0;
    for (qsizetype i = 0; i < files.size(); ++i) {
        EXPECT_EQ(files[i]->previewObject()->isConflicting(), expected[i]) << i;
        flagged += expected[i];
    }
    EXPECT_GT(flagged, 1000); // the case is not empty
    EXPECT_LT(flagged, 6000);
}

// Every batch that runs posts one table reload; slowing those down keeps the
// older request's batches waiting in the queue when the newer one arrives.
class SlowBatchView : public RecordingView {
public:
    void reloadTable(bool wait) override {
        RecordingView::reloadTable(wait);
        if (!wait) std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
};

TEST(PreviewPipeline, NewerRequestsCancelWhatIsStillQueued) {
    SlowBatchView view;
    MyDocument doc(&view);
    const FileList files = numbered(doc, 5000); // 100 batches
    doc.setSelectedTag(20);
    doc.generatePreviews();
    std::this_thread::sleep_for(std::chrono::milliseconds(40));
    doc.setSelectedTag(21);
    doc.generatePreviewsOnThread(); // supersedes the first request
    doc.waitForPreviews();
    EXPECT_LT(view.reloadsPosted.load(), 190); // some of the first 100 never ran
    EXPECT_GE(view.reloadsPosted.load(), 100);
    EXPECT_EQ(previewName(files.last()), files.last()->fileName().toLower());
}

TEST(PreviewPipeline, DestroyingTheDocumentStopsItsThreads) {
    for (int round = 0; round < 5; ++round) {
        auto doc = std::make_unique<MyDocument>();
        numbered(*doc, 500);
        doc->changeTask(20);
        doc->changeTask(21);
        doc.reset(); // joins the preview threads; ASan would see a use after free
    }
    SUCCEED();
}

TEST(PreviewPipeline, RenameConfirmationCountsChangedNames) {
    RecordingView view;
    MyDocument doc(&view);
    doc.addFileToList(u"/r/lower.jpg"_s);
    doc.addFileToList(u"/r/Upper.jpg"_s);
    doc.changeTask(21);
    doc.waitForPreviews();
    view.answers = {DocumentView::AlertAlternate};
    doc.process();
    ASSERT_EQ(view.alerts.size(), 1);
    EXPECT_EQ(view.alerts[0].messageText, u"Are you sure you wish to rename 1 file?"_s);
    EXPECT_EQ(view.alerts[0].informativeText, u"This cannot be undone."_s);
    EXPECT_EQ(view.alerts[0].defaultButton, u"Rename"_s);
    EXPECT_EQ(view.alerts[0].alternateButton, u"Cancel"_s);
    doc.waitForPreviews();
    EXPECT_TRUE(view.progressEvents.isEmpty()); // cancelled: no commit started

    doc.changeTask(20);
    doc.waitForPreviews();
    view.answers = {DocumentView::AlertAlternate};
    doc.process();
    EXPECT_EQ(view.alerts[1].messageText, u"Are you sure you wish to rename 2 files?"_s);

    doc.changeTask(0);
    doc.waitForPreviews();
    doc.changeTask(22); // extensions already lower case: nothing changes
    doc.waitForPreviews();
    doc.process();
    EXPECT_EQ(view.alerts[2].messageText, u"No files need renaming"_s);
    EXPECT_EQ(view.alerts[2].informativeText, u"You have not made any changes to the filenames."_s);
}
} // namespace
