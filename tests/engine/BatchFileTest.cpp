#include "MyDocument.h"
#include "PropertyList.h"
#include "QXLog.h"
#include "RecordingView.h"
#include "TempTree.h"

#include <QFile>
#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {
QVariantMap readRoot(const QString& path) {
    return PropertyList::readFile(path).toMap();
}

TEST(BatchFile, PadTaskSavesAndReopens) {
    TempTree t;
    MyDocument doc;
    doc.addFileToList(u"/shots/a.0001.exr"_s);
    doc.addFileToList(u"/shots/b.0001.exr"_s);
    doc.setSelectedTag(5);
    doc.setFieldText(Outlet::padLengthField, u"6"_s);
    const QString file = t(u"batch.sqb"_s);
    ASSERT_TRUE(doc.writeToURL(file));

    const QVariantMap root = readRoot(file);
    EXPECT_EQ(root.value(u"version"_s).toString(), u"1.0"_s);
    EXPECT_EQ(root.value(u"selectedAction"_s).toInt(), 5);
    EXPECT_EQ(root.value(u"files"_s).toStringList(),
              QStringList({u"/shots/a.0001.exr"_s, u"/shots/b.0001.exr"_s}));
    EXPECT_EQ(root.value(u"settings"_s).toMap().value(u"padLength"_s).toULongLong(), 6u);

    RecordingView view;
    MyDocument reopened(&view);
    ASSERT_TRUE(reopened.readFromURL(file));
    EXPECT_EQ(reopened.fileCount(), 2);
    reopened.windowControllerDidLoadNib();
    reopened.waitForPreviews();
    EXPECT_EQ(reopened.selectedTag(), 5);
    EXPECT_EQ(reopened.settingsForm().fieldText(Outlet::padLengthField), u"6"_s);
    EXPECT_TRUE(reopened.batchFileDict().isEmpty()); // consumed by the window
    EXPECT_GE(view.settingsChanges, 1);
    EXPECT_EQ(view.lastTag, 5);
    EXPECT_FALSE(doc.writeToURL(t(u"no/such/folder/b.sqb"_s)));
}

TEST(BatchFile, NegativeOffsetTravelsAsItsUnsignedBits) {
    TempTree t;
    MyDocument doc;
    doc.setSelectedTag(3);
    doc.setFieldText(Outlet::offsetField, u"-3"_s);
    const QString file = t(u"offset.sqb"_s);
    ASSERT_TRUE(doc.writeToURL(file));
    MyDocument reopened;
    reopened.readFromURL(file);
    reopened.setSelectedTag(3);
    reopened.setSettingsFromDictionary(reopened.batchFileDict().value(u"settings"_s).toMap());
    EXPECT_EQ(reopened.settingsForm().fieldText(Outlet::offsetField), u"18446744073709551613"_s);
    // Read back signed by the task, it is -3 again.
    EXPECT_EQ(
        static_cast<qint64>(reopened.dictionaryFromSettings().value(u"offset"_s).toULongLong()),
        -3);
}

TEST(BatchFile, SettingsDictionaryByTask) {
    MyDocument doc;
    doc.setFieldText(Outlet::findStringField, u"a"_s);
    doc.setFieldText(Outlet::replaceStringField, u"b"_s);
    doc.setCheckState(Outlet::findRegExCheck, 1);
    doc.setSelectedTag(1);
    const QVariantMap find = doc.dictionaryFromSettings();
    EXPECT_EQ(find.keys(), QStringList({u"find"_s, u"includeExtension"_s, u"matchCase"_s,
                                        u"regex"_s, u"replace"_s}));
    EXPECT_EQ(find.value(u"regex"_s).toInt(), 1);
    EXPECT_EQ(find.value(u"matchCase"_s).toInt(), 0);
    for (int tag : {0, 4, 6, 8, 9, 11, 17, 18, 19, 20, 21, 22, 23, 24, 27}) {
        doc.setSelectedTag(tag);
        EXPECT_TRUE(doc.dictionaryFromSettings().isEmpty()) << tag;
    }
    // Shared keys belong to the selected task's own fields.
    doc.setFieldText(Outlet::removeCharRangeStartField, u"1"_s);
    doc.setFieldText(Outlet::replaceRangeStartPosition, u"7"_s);
    doc.setSelectedTag(16);
    EXPECT_EQ(doc.dictionaryFromSettings().value(u"rangeStart"_s).toString(), u"1"_s);
    doc.setSelectedTag(26);
    EXPECT_EQ(doc.dictionaryFromSettings().value(u"rangeStart"_s).toString(), u"7"_s);
    // Missing keys restore as empty text and unchecked boxes.
    doc.setSelectedTag(1);
    doc.setSettingsFromDictionary({});
    EXPECT_EQ(doc.settingsForm().fieldText(Outlet::findStringField), QString());
    EXPECT_EQ(doc.settingsForm().checkState(Outlet::findRegExCheck), 0);
}

TEST(BatchFile, BadFilesGiveAnEmptyBatch) {
    TempTree t;
    const QByteArray xmlHead =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
    const QByteArray contents[] = {
        "this is not a property list",
        xmlHead + "<dict><key>files</key><array><string>/a/b",
        xmlHead + "<dict><key>files</key><string>/a/b</string><key>selectedAction</key>"
                  "<string>x</string><key>settings</key><array/></dict></plist>",
        xmlHead + "<array><string>/a/b</string></array></plist>",
        "",
    };
    for (const QByteArray& content : contents) {
        SCOPED_TRACE(content.toStdString());
        MyDocument doc;
        QString problem;
        EXPECT_TRUE(doc.readFromURL(t.file(u"bad.sqb"_s, content), &problem));
        EXPECT_FALSE(problem.isEmpty()); // said to a caller who asks
        EXPECT_EQ(doc.fileCount(), 0);
        doc.windowControllerDidLoadNib();
        doc.waitForPreviews();
    }
    MyDocument missing;
    QString problem;
    EXPECT_TRUE(missing.readFromURL(t(u"absent.sqb"_s), &problem));
    EXPECT_EQ(missing.fileCount(), 0);
    EXPECT_TRUE(problem.startsWith(u"not a property list"_s)) << problem.toStdString();
}

// A hundred thousand paths, one of them twice, and a number among them.
TEST(BatchFile, PathListIsTakenAsItStands) {
    TempTree t;
    QVariantList files = {u"/big/shot.000001.exr"_s, 42};
    for (int i = 0; i < 100000; ++i)
        files.append(u"/big/shot.%1.exr"_s.arg(i, 6, 10, QLatin1Char('0')));
    QVariantMap root;
    root.insert(u"files"_s, files);
    ASSERT_TRUE(PropertyList::writeFile(t(u"big.sqb"_s), root));
    MyDocument doc;
    EXPECT_TRUE(doc.readFromURL(t(u"big.sqb"_s)));
    EXPECT_EQ(doc.fileCount(), 100001); // twice listed, twice an item; the number is skipped
    EXPECT_EQ(doc.fileInQueue(u"/big/shot.000001.exr"_s), doc.fileArray().first());
    EXPECT_TRUE(doc.fileInQueue(u"/big/shot.099999.exr"_s));
}

} // namespace
