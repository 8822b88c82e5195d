#include "QXFileManager.h"
#include "SupportTest.h"

#include <QStandardPaths>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {

using QXFileManagerTest = SupportTest;

TEST_F(QXFileManagerTest, uniqueValidAndSizeTexts) {
    for (const char* existing : {"clip.mov", "notes", "notes 2", ".profile"})
        file(existing);
    QFile::link(t("nowhere"), t("dangling.txt"));
    const std::pair<const char*, const char*> unique[] = {
        {"clip.mov", "clip 2.mov"},         {"notes", "notes 3"},
        {"free.mov", "free.mov"},           {".profile", ".profile 2"},
        {"dangling.txt", "dangling 2.txt"}, // a dangling link counts
    };
    for (const auto& [path, expected] : unique)
        EXPECT_EQ(QXFileManager::uniqueFilename(t(path)), t(expected)) << path;

    const std::pair<const char*, const char*> names[] = {
        {".a/b:c ", "abc"},         {".", ""}, {"..x", ".x"}, {"  pad\n", "pad"},
        {"plain.txt", "plain.txt"},
    };
    for (const auto& [in, out] : names)
        EXPECT_EQ(QXFileManager::validateFilename(QString::fromUtf8(in)), QString::fromUtf8(out));

    const std::pair<double, const char*> sizes[] = {
        {1023, "1023 B"},     {1024, "1.00 KB"},       {1048575, "1024.00 KB"},
        {1048576, "1.00 MB"}, {1073741824, "1.00 GB"}, {1099511627776.0, "1024.00 GB"},
    };
    for (const auto& [bytes, text] : sizes)
        EXPECT_EQ(QXFileManager::formatFileSize(bytes), QString::fromUtf8(text)) << bytes;
}

TEST_F(QXFileManagerTest, movesChangeCaseInPlaceAndNeverReplaceAFile) {
    file("x/Clip.mov", "frames");
    ASSERT_TRUE(QXFileManager::moveFile(t("x/Clip.mov"), t("x/clip.mov")));
    EXPECT_EQ(tree.list(u"x"_s), QStringList{u"clip.mov"_s});
    EXPECT_EQ(tree.read(u"x/clip.mov"_s), QByteArray("frames"));

    const QString a = file("a.txt", "A"), b = file("b.txt", "B");
    EXPECT_FALSE(QXFileManager::moveFile(a, b, false));
    EXPECT_FALSE(QXFileManager::copyFile(a, b, false));
    EXPECT_EQ(tree.read(u"a.txt"_s), QByteArray("A"));
    EXPECT_EQ(tree.read(u"b.txt"_s), QByteArray("B"));
    const QString log = currentLogText();
    EXPECT_TRUE(log.contains(u"Error moving file: "_s));
    EXPECT_TRUE(log.contains(u"File exists. Authorizing..."_s));
}

TEST_F(QXFileManagerTest, copyingReportsMissingPathsAndCopiesFoldersWithTheirLinks) {
    EXPECT_FALSE(QXFileManager::copyFile(t("y"), QString()));
    EXPECT_TRUE(console.contains(u"Error copying file %1: destination path is nil"_s.arg(t("y"))));

    file("src/f.txt", "F");
    QFile::link(u"f.txt"_s, t("src/link"));
    ASSERT_TRUE(QXFileManager::copyFile(t("src"), t("dst")));
    EXPECT_EQ(tree.read(u"dst/f.txt"_s), QByteArray("F"));
    EXPECT_EQ(QFileInfo(t("dst/link")).symLinkTarget(), t("dst/f.txt"));
}

TEST_F(QXFileManagerTest, failuresFallBackToThePrivilegedToolsAndTakeTheirResult) {
    file("blocker");
    const QString a = file("a.txt", "A"), target = t("missing/a.txt"), wanted = t("blocker/sub");
    EXPECT_FALSE(QXFileManager::createDirectory(wanted, false));
    EXPECT_TRUE(currentLogText().contains(u"Error creating folder: "_s));
    EXPECT_TRUE(QXFileManager::createDirectory(t("a/b/c")));
    EXPECT_TRUE(QXFileManager::isDirectoryAtPath(t("a/b/c")));

    auto fake = std::make_shared<FakePrivilegeMechanism>();
    AsOrdinaryUser user(fake);
    // The tools are only started: success is reported before they have run.
    EXPECT_TRUE(QXFileManager::moveFile(a, target));
    EXPECT_TRUE(QXFileManager::copyFile(a, t("missing/b.txt")));
    EXPECT_TRUE(QXFileManager::createDirectory(wanted));
    EXPECT_EQ(fake->calls.value(1).arguments.mid(3), (QStringList{a, t("missing/b.txt")}));
    fake->executeAnswer = 1;
    EXPECT_FALSE(QXFileManager::createDirectory(wanted));

    // Refused rights: nothing runs and the file stays.
    fake->interactiveAnswer = -1;
    QXAuthorization::sharedController().authEnd();
    EXPECT_FALSE(QXFileManager::moveFile(a, target));
    EXPECT_FALSE(QXFileManager::copyFile(a, t("missing/b.txt")));
    EXPECT_EQ(fake->calls.size(), 4);
    EXPECT_TRUE(QFileInfo::exists(a));
}

TEST_F(QXFileManagerTest, trashingGoesToTheUsersTrashNotTheCurrentFolder) {
    // Without the data folder Qt would trash into the current folder.
    const QByteArray oldData = qgetenv("XDG_DATA_HOME");
    qputenv("XDG_DATA_HOME", QFile::encodeName(t("data-home")));
    file("folder/one.txt");
    file("folder/two.txt");
    EXPECT_TRUE(QXFileManager::trashDirectoryContents(t("folder")));
    EXPECT_TRUE(QXFileManager::trashFile(t("nothing-here")));
    qputenv("XDG_DATA_HOME", oldData);
    EXPECT_TRUE(tree.list(u"folder"_s).isEmpty());
    EXPECT_EQ(tree.list(u"data-home/Trash/files"_s), (QStringList{u"one.txt"_s, u"two.txt"_s}));
    EXPECT_FALSE(QFileInfo::exists(QDir::currentPath() + u"/one.txt"_s));
}

TEST_F(QXFileManagerTest, compressingKeepsTheParentFolderAndStoresLinksAsLinks) {
    file("Logs/a.log", "alpha");
    file("Logs/sub/b.log", "beta");
    QFile::link(u"/nowhere/at/all"_s, t("Logs/dangling.log"));
    const QString archive = tree.dir(u"out"_s) + u"/Logs.zip"_s;
    ASSERT_TRUE(QXFileManager::compressFile(t("Logs"), archive));
    const auto entries = readZip(archive);
    EXPECT_EQ(entries.keys(), (QStringList{u"Logs/"_s, u"Logs/a.log"_s, u"Logs/dangling.log"_s,
                                           u"Logs/sub/"_s, u"Logs/sub/b.log"_s}));
    EXPECT_TRUE(S_ISREG(entries.value(u"Logs/a.log"_s).first));
    EXPECT_EQ(entries.value(u"Logs/a.log"_s).second, QByteArray("alpha"));
    EXPECT_TRUE(S_ISDIR(entries.value(u"Logs/sub/"_s).first));
    EXPECT_TRUE(S_ISLNK(entries.value(u"Logs/dangling.log"_s).first));
    EXPECT_EQ(entries.value(u"Logs/dangling.log"_s).second, QByteArray("/nowhere/at/all"));

    // A second run replaces the archive; the old one goes to the trash, not away.
    file("Logs/c.log", "gamma");
    ASSERT_TRUE(QXFileManager::compressFile(t("Logs"), archive));
    EXPECT_TRUE(readZip(archive).contains(u"Logs/c.log"_s));
    EXPECT_TRUE(
        QFileInfo::exists(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                          u"/Trash/files/Logs.zip"_s));

    EXPECT_FALSE(QXFileManager::compressFile(t("missing"), t("x.zip")));
    EXPECT_FALSE(tree.exists(u"x.zip"_s));
    EXPECT_TRUE(currentLogText().contains(u"Unable to compress "_s));
}

TEST_F(QXFileManagerTest, theLockedAttributeIsTheImmutableFlagWhereThereIsOne) {
    const QString f = file("dir/sub/f.txt"), g = file("dir/g.txt");
    EXPECT_FALSE(QXFileManager::isFileLocked(f));
    EXPECT_FALSE(QXFileManager::isFileLocked(t("missing")));
    EXPECT_FALSE(QXFileManager::lockFile(t("missing")));
    if (!QXFileManager::supportsLocking(f)) {
        EXPECT_FALSE(QXFileManager::lockFile(f));
        EXPECT_FALSE(QXFileManager::isFileLocked(f));
        GTEST_SKIP() << "this file system keeps no immutable flag";
    }
    if (!QXFileManager::lockFile(f)) GTEST_SKIP() << "no CAP_LINUX_IMMUTABLE here";
    EXPECT_TRUE(QXFileManager::isFileLocked(f));
    EXPECT_NE(::unlink(QFile::encodeName(f).constData()), 0); // really immutable
    QXFileManager::unlockFile(f);
    EXPECT_FALSE(QXFileManager::isFileLocked(f));

    QXFileManager::lockFolder(t("dir"));
    for (const QString& locked : {f, g, t("dir/sub")})
        EXPECT_TRUE(QXFileManager::isFileLocked(locked)) << locked.toStdString();
    EXPECT_FALSE(QXFileManager::isFileLocked(t("dir")));
    QXFileManager::unlockFolder(t("dir"));
    EXPECT_FALSE(QXFileManager::isFileLocked(f));
    // Removing unlocks first.
    QXFileManager::lockFile(g);
    EXPECT_TRUE(QXFileManager::removeFile(g));
    EXPECT_FALSE(QFileInfo::exists(g));
}

} // namespace
