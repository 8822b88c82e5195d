#include "MyDocument.h"
#include "PropertyList.h"
#include "QXLog.h"
#include "RecordingView.h"
#include "TempTree.h"

#include <QFile>
#include <gtest/gtest.h>

namespace {
QVariantMap readRoot(const QString& path) {
    return PropertyList::readFile(path).toMap();
}

TEST(BatchFile, PadTaskSavesAndReopens) {
    TempTree t;
    MyDocument doc;
    doc.addFileToList(QStringLiteral("/shots/a.0001.exr"));
    doc.addFileToList(QStringLiteral("/shots/b.0001.exr"));
    doc.setSelectedTag(5);
    doc.setFieldText(Outlet::padLengthField, QStringLiteral("6"));
    const QString file = t(QStringLiteral("batch.sqb"));
    ASSERT_TRUE(doc.writeToURL(file));

    const QVariantMap root = readRoot(file);
    EXPECT_EQ(root.value(QStringLiteral("version")).toString(), QStringLiteral("1.0"));
    EXPECT_EQ(root.value(QStringLiteral("selectedAction")).toInt(), 5);
    EXPECT_EQ(
        root.value(QStringLiteral("files")).toStringList(),
        QStringList({QStringLiteral("/shots/a.0001.exr"), QStringLiteral("/shots/b.0001.exr")}));
    EXPECT_EQ(root.value(QStringLiteral("settings"))
                  .toMap()
                  .value(QStringLiteral("padLength"))
                  .toULongLong(),
              6u);

    RecordingView view;
    MyDocument reopened(&view);
    ASSERT_TRUE(reopened.readFromURL(file));
    EXPECT_EQ(reopened.fileCount(), 2);
    reopened.windowControllerDidLoadNib();
    reopened.waitForPreviews();
    EXPECT_EQ(reopened.selectedTag(), 5);
    EXPECT_EQ(reopened.settingsForm().fieldText(Outlet::padLengthField), QStringLiteral("6"));
    EXPECT_TRUE(reopened.batchFileDict().isEmpty()); // consumed by the window
    EXPECT_GE(view.settingsChanges, 1);
    EXPECT_EQ(view.lastTag, 5);
}

TEST(BatchFile, NegativeOffsetTravelsAsItsUnsignedBits) {
    TempTree t;
    MyDocument doc;
    doc.setSelectedTag(3);
    doc.setFieldText(Outlet::offsetField, QStringLiteral("-3"));
    const QString file = t(QStringLiteral("offset.sqb"));
    ASSERT_TRUE(doc.writeToURL(file));
    EXPECT_TRUE(QString::fromUtf8(t.read(QStringLiteral("offset.sqb")))
                    .contains(QStringLiteral("<integer>18446744073709551613</integer>")));
    MyDocument reopened;
    reopened.readFromURL(file);
    reopened.setSelectedTag(3);
    reopened.setSettingsFromDictionary(
        reopened.batchFileDict().value(QStringLiteral("settings")).toMap());
    EXPECT_EQ(reopened.settingsForm().fieldText(Outlet::offsetField),
              QStringLiteral("18446744073709551613"));
    // Read back signed by the task, it is -3 again.
    EXPECT_EQ(static_cast<qint64>(
                  reopened.dictionaryFromSettings().value(QStringLiteral("offset")).toULongLong()),
              -3);
}

TEST(BatchFile, SettingsDictionaryByTask) {
    MyDocument doc;
    doc.setFieldText(Outlet::findStringField, QStringLiteral("a"));
    doc.setFieldText(Outlet::replaceStringField, QStringLiteral("b"));
    doc.setCheckState(Outlet::findRegExCheck, 1);
    doc.setSelectedTag(1);
    const QVariantMap find = doc.dictionaryFromSettings();
    EXPECT_EQ(find.keys(), QStringList({QStringLiteral("find"), QStringLiteral("includeExtension"),
                                        QStringLiteral("matchCase"), QStringLiteral("regex"),
                                        QStringLiteral("replace")}));
    EXPECT_EQ(find.value(QStringLiteral("regex")).toInt(), 1);
    EXPECT_EQ(find.value(QStringLiteral("matchCase")).toInt(), 0);
    for (int tag : {0, 4, 6, 8, 9, 11, 17, 18, 19, 20, 21, 22, 23, 24, 27}) {
        doc.setSelectedTag(tag);
        EXPECT_TRUE(doc.dictionaryFromSettings().isEmpty()) << tag;
    }
    // Shared keys belong to the selected task's own fields.
    doc.setFieldText(Outlet::removeCharRangeStartField, QStringLiteral("1"));
    doc.setFieldText(Outlet::replaceRangeStartPosition, QStringLiteral("7"));
    doc.setSelectedTag(16);
    EXPECT_EQ(doc.dictionaryFromSettings().value(QStringLiteral("rangeStart")).toString(),
              QStringLiteral("1"));
    doc.setSelectedTag(26);
    EXPECT_EQ(doc.dictionaryFromSettings().value(QStringLiteral("rangeStart")).toString(),
              QStringLiteral("7"));
    // Missing keys restore as empty text and unchecked boxes.
    doc.setSelectedTag(1);
    doc.setSettingsFromDictionary({});
    EXPECT_EQ(doc.settingsForm().fieldText(Outlet::findStringField), QString());
    EXPECT_EQ(doc.settingsForm().checkState(Outlet::findRegExCheck), 0);
}

TEST(BatchFile, ConformFormatIsSavedButNotRestored) {
    TempTree t;
    MyDocument doc;
    doc.setSelectedTag(2);
    doc.setTokens({QStringLiteral("@@ Filename @@"), QStringLiteral("_v1.")});
    const QString file = t(QStringLiteral("conform.sqb"));
    ASSERT_TRUE(doc.writeToURL(file));
    const QVariantList format = readRoot(file)
                                    .value(QStringLiteral("settings"))
                                    .toMap()
                                    .value(QStringLiteral("formatArray"))
                                    .toList();
    ASSERT_FALSE(format.isEmpty());
    EXPECT_EQ(format.first().toMap().value(QStringLiteral("Filename")).toString(),
              QStringLiteral("Filename"));
    MyDocument reopened;
    reopened.setTokens({QStringLiteral("kept")});
    reopened.readFromURL(file);
    reopened.setSelectedTag(2);
    reopened.setSettingsFromDictionary(
        reopened.batchFileDict().value(QStringLiteral("settings")).toMap());
    EXPECT_EQ(reopened.settingsForm().tokens, QVariantList({QStringLiteral("kept")}));
}

TEST(BatchFile, PathListIsTakenAsItStands) {
    TempTree t;
    QVariantMap root;
    root.insert(QStringLiteral("files"), QVariantList({QStringLiteral("/gone/a.1.exr"),
                                                       QStringLiteral("/gone/a.1.exr"), 42}));
    ASSERT_TRUE(PropertyList::writeFile(t(QStringLiteral("dup.sqb")), root));
    MyDocument doc;
    EXPECT_TRUE(doc.readFromURL(t(QStringLiteral("dup.sqb"))));
    EXPECT_EQ(doc.fileCount(), 2); // twice listed, twice an item; the number is skipped
    EXPECT_EQ(doc.fileInQueue(QStringLiteral("/gone/a.1.exr")), doc.fileArray().first());
}

TEST(BatchFile, BadFilesGiveAnEmptyBatch) {
    TempTree t;
    const QByteArray xmlHead =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n";
    const struct {
        const char* name;
        QByteArray content;
    } cases[] = {
        {"text.sqb", "this is not a property list"},
        {"truncated.sqb", xmlHead + "<dict><key>files</key><array><string>/a/b"},
        {"wrongtypes.sqb",
         xmlHead + "<dict><key>files</key><string>/a/b</string><key>selectedAction</key>"
                   "<string>x</string><key>settings</key><array/></dict></plist>"},
        {"array.sqb", xmlHead + "<array><string>/a/b</string></array></plist>"},
        {"empty.sqb", ""},
    };
    for (const auto& c : cases) {
        const QString file = t.file(QString::fromLatin1(c.name), c.content);
        MyDocument doc;
        EXPECT_TRUE(doc.readFromURL(file)) << c.name;
        EXPECT_EQ(doc.fileCount(), 0) << c.name;
        doc.windowControllerDidLoadNib();
        doc.waitForPreviews();
    }
    MyDocument missing;
    EXPECT_TRUE(missing.readFromURL(t(QStringLiteral("absent.sqb"))));
    EXPECT_EQ(missing.fileCount(), 0);
}

TEST(BatchFile, HundredThousandPathsLoad) {
    TempTree t;
    QVariantList files;
    for (int i = 0; i < 100000; ++i)
        files.append(QStringLiteral("/big/shot.%1.exr").arg(i, 6, 10, QLatin1Char('0')));
    QVariantMap root;
    root.insert(QStringLiteral("files"), files);
    ASSERT_TRUE(PropertyList::writeFile(t(QStringLiteral("big.sqb")), root));
    MyDocument doc;
    doc.readFromURL(t(QStringLiteral("big.sqb")));
    EXPECT_EQ(doc.fileCount(), 100000);
    EXPECT_TRUE(doc.fileInQueue(QStringLiteral("/big/shot.099999.exr")));
}

TEST(BatchFile, WritingIntoAMissingFolderFails) {
    TempTree t;
    MyDocument doc;
    EXPECT_FALSE(doc.writeToURL(t(QStringLiteral("no/such/folder/b.sqb"))));
}
} // namespace
