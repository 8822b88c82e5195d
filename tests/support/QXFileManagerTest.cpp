#include "QXFileManager.h"
#include "ConsoleCapture.h"
#include "FakePrivilegeMechanism.h"
#include "TempTree.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <utime.h>
#include <zip.h>

using namespace Qt::StringLiterals;

namespace {

class QXFileManagerTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { startUserLog(); }
    ConsoleCapture console;
    TempTree tree;
};

TEST_F(QXFileManagerTest, uniqueFilenameCountsUpFromTwo) {
    tree.file(QStringLiteral("clip.mov"));
    tree.file(QStringLiteral("notes"));
    tree.file(QStringLiteral("notes 2"));
    tree.file(QStringLiteral(".profile"));
    QFile::link(tree(QStringLiteral("nowhere")), tree(QStringLiteral("dangling.txt")));
    const struct {
        const char* path;
        const char* expected;
    } cases[] = {
        {"clip.mov", "clip 2.mov"},         {"notes", "notes 3"},
        {"free.mov", "free.mov"},           {".profile", ".profile 2"},
        {"dangling.txt", "dangling 2.txt"}, // a link to nowhere still takes its name
    };
    for (const auto& c : cases)
        EXPECT_EQ(QXFileManager::uniqueFilename(tree(QString::fromUtf8(c.path))),
                  tree(QString::fromUtf8(c.expected)))
            << c.path;
}

TEST_F(QXFileManagerTest, validateFilenameAndFormatFileSize) {
    const struct {
        const char* in;
        const char* out;
    } names[] = {{".a/b:c ", "abc"}, {".", ""},     {"..x", ".x"},
                 {"  pad\n", "pad"}, {"a:b", "ab"}, {"plain.txt", "plain.txt"}};
    for (const auto& n : names)
        EXPECT_EQ(QXFileManager::validateFilename(QString::fromUtf8(n.in)),
                  QString::fromUtf8(n.out))
            << n.in;

    const struct {
        double bytes;
        const char* text;
    } sizes[] = {{0, "0 B"},
                 {1023, "1023 B"},
                 {1024, "1.00 KB"},
                 {1536, "1.50 KB"},
                 {1048575, "1024.00 KB"},
                 {1048576, "1.00 MB"},
                 {1073741824, "1.00 GB"},
                 {1099511627776.0, "1024.00 GB"}};
    for (const auto& s : sizes)
        EXPECT_EQ(QXFileManager::formatFileSize(s.bytes), QString::fromUtf8(s.text)) << s.bytes;
}

TEST_F(QXFileManagerTest, aCaseOnlyRenameKeepsTheContentAndLeavesNothingBehind) {
    tree.file(QStringLiteral("x/Clip.mov"), "frames");
    ASSERT_TRUE(QXFileManager::moveFile(tree(QStringLiteral("x/Clip.mov")),
                                        tree(QStringLiteral("x/clip.mov"))));
    EXPECT_EQ(tree.list(QStringLiteral("x")), QStringList{QStringLiteral("clip.mov")});
    EXPECT_EQ(tree.read(QStringLiteral("x/clip.mov")), QByteArray("frames"));
}

TEST_F(QXFileManagerTest, aMoveNeverReplacesAnExistingFile) {
    const QString a = tree.file(QStringLiteral("a.txt"), "A");
    const QString b = tree.file(QStringLiteral("b.txt"), "B");
    EXPECT_FALSE(QXFileManager::moveFile(a, b, false));
    EXPECT_EQ(tree.read(QStringLiteral("a.txt")), QByteArray("A"));
    EXPECT_EQ(tree.read(QStringLiteral("b.txt")), QByteArray("B"));
    EXPECT_TRUE(currentLogText().contains(QStringLiteral("Error moving file: ")));
    EXPECT_TRUE(currentLogText().contains(QStringLiteral("File exists. Authorizing...")));

    EXPECT_FALSE(QXFileManager::copyFile(a, b, false));
    EXPECT_EQ(tree.read(QStringLiteral("b.txt")), QByteArray("B"));
}

TEST_F(QXFileManagerTest, aFailedMoveFallsBackToThePrivilegedTool) {
    auto fake = std::make_shared<FakePrivilegeMechanism>();
    AsOrdinaryUser user(fake);
    const QString a = tree.file(QStringLiteral("a.txt"), "A");
    const QString target = tree(QStringLiteral("missing/a.txt"));
    // The tool is only started: success is reported before it has run.
    EXPECT_TRUE(QXFileManager::moveFile(a, target));
    ASSERT_EQ(fake->calls.size(), 1);
    EXPECT_EQ(fake->calls[0].tool, QStringLiteral("/bin/mv"));
    EXPECT_EQ(fake->calls[0].arguments, (QStringList{QStringLiteral("-f"), a, target}));
    EXPECT_FALSE(fake->calls[0].wait);
    EXPECT_EQ(fake->rightsAsked, QStringList{QStringLiteral("system.privilege.admin")});

    // Refused rights: the move fails, and the next attempt asks again.
    fake->calls.clear();
    fake->interactiveAnswer = -1;
    QXAuthorization::sharedController().authEnd();
    EXPECT_FALSE(QXFileManager::moveFile(a, target));
    EXPECT_FALSE(QXFileManager::copyFile(a, tree(QStringLiteral("missing/b.txt"))));
    EXPECT_TRUE(fake->calls.isEmpty());
    EXPECT_EQ(fake->rightsAsked.size(), 3);
    EXPECT_TRUE(QFileInfo::exists(a));
}

TEST_F(QXFileManagerTest, copyingReportsMissingPathsAndCopiesFoldersWithTheirLinks) {
    EXPECT_FALSE(QXFileManager::copyFile(QString(), tree(QStringLiteral("x"))));
    EXPECT_FALSE(QXFileManager::copyFile(tree(QStringLiteral("y")), QString()));
    EXPECT_TRUE(console.contains(QStringLiteral("Error copying file: source path is nil")));
    EXPECT_TRUE(console.contains(QStringLiteral("Error copying file %1: destination path is nil")
                                     .arg(tree(QStringLiteral("y")))));

    tree.file(QStringLiteral("src/f.txt"), "F");
    QFile::link(QStringLiteral("f.txt"), tree(QStringLiteral("src/link")));
    ASSERT_TRUE(QXFileManager::copyFile(tree(QStringLiteral("src")), tree(QStringLiteral("dst"))));
    EXPECT_EQ(tree.read(QStringLiteral("dst/f.txt")), QByteArray("F"));
    EXPECT_EQ(QFileInfo(tree(QStringLiteral("dst/link"))).symLinkTarget(),
              tree(QStringLiteral("dst/f.txt")));
}

TEST_F(QXFileManagerTest, creatingAFolderWhereAFileStandsFailsThenAsksForRights) {
    tree.file(QStringLiteral("blocker"), "x");
    const QString wanted = tree(QStringLiteral("blocker/sub"));
    EXPECT_FALSE(QXFileManager::createDirectory(wanted, false));
    EXPECT_TRUE(currentLogText().contains(QStringLiteral("Error creating folder: ")));

    auto fake = std::make_shared<FakePrivilegeMechanism>();
    AsOrdinaryUser user(fake);
    EXPECT_TRUE(QXFileManager::createDirectory(wanted));
    ASSERT_EQ(fake->calls.size(), 1);
    EXPECT_EQ(fake->calls[0].tool, QStringLiteral("/bin/mkdir"));
    EXPECT_EQ(fake->calls[0].arguments, (QStringList{QStringLiteral("-p"), wanted}));

    fake->executeAnswer = 1;
    EXPECT_FALSE(QXFileManager::createDirectory(wanted));

    EXPECT_TRUE(QXFileManager::createDirectory(tree(QStringLiteral("a/b/c"))));
    EXPECT_TRUE(QXFileManager::isDirectoryAtPath(tree(QStringLiteral("a/b/c"))));
}

TEST_F(QXFileManagerTest, removingTakesFoldersAndDanglingLinksAndCallsMissingPathsDone) {
    tree.file(QStringLiteral("dir/inner/f"), "x");
    QFile::link(tree(QStringLiteral("gone")), tree(QStringLiteral("dangling")));
    EXPECT_TRUE(QXFileManager::removeFile(tree(QStringLiteral("dir"))));
    EXPECT_TRUE(QXFileManager::removeFile(tree(QStringLiteral("dangling"))));
    EXPECT_TRUE(QXFileManager::removeFile(tree(QStringLiteral("never-was"))));
    EXPECT_TRUE(tree.list().isEmpty());
}

// Points XDG_DATA_HOME at a folder that does not exist yet, for one test.
class FreshDataHome {
public:
    explicit FreshDataHome(const QString& path) : m_old(qgetenv("XDG_DATA_HOME")) {
        qputenv("XDG_DATA_HOME", QFile::encodeName(path));
    }
    ~FreshDataHome() { qputenv("XDG_DATA_HOME", m_old); }

private:
    QByteArray m_old;
};

TEST_F(QXFileManagerTest, trashingGoesToTheUsersTrashNotTheCurrentFolder) {
    // Without the data folder Qt would trash into the current folder.
    FreshDataHome data(tree(QStringLiteral("data-home")));
    const QString trash = tree(QStringLiteral("data-home/Trash/files"));
    tree.file(QStringLiteral("folder/one.txt"), "1");
    tree.file(QStringLiteral("folder/two.txt"), "2");
    const QString before = QDir::currentPath();
    EXPECT_TRUE(QXFileManager::trashDirectoryContents(tree(QStringLiteral("folder"))));
    EXPECT_TRUE(tree.list(QStringLiteral("folder")).isEmpty());
    EXPECT_TRUE(QFileInfo::exists(trash + u"/one.txt"_s));
    EXPECT_TRUE(QFileInfo::exists(trash + u"/two.txt"_s));
    EXPECT_FALSE(QFileInfo::exists(before + u"/one.txt"_s));
    EXPECT_TRUE(QXFileManager::trashFile(tree(QStringLiteral("nothing-here"))));
}

// The entries of a zip archive: name -> (unix mode, data).
QMap<QString, QPair<quint32, QByteArray>> readZip(const QString& path) {
    QMap<QString, QPair<quint32, QByteArray>> entries;
    int err = 0;
    zip_t* za = zip_open(QFile::encodeName(path).constData(), ZIP_RDONLY, &err);
    if (!za) return entries;
    for (zip_int64_t i = 0; i < zip_get_num_entries(za, 0); ++i) {
        const auto index = static_cast<zip_uint64_t>(i);
        zip_uint8_t os = 0;
        zip_uint32_t attributes = 0;
        zip_file_get_external_attributes(za, index, 0, &os, &attributes);
        zip_stat_t st;
        zip_stat_index(za, index, 0, &st);
        QByteArray data(static_cast<qsizetype>(st.size), '\0');
        if (zip_file_t* f = zip_fopen_index(za, index, 0)) {
            zip_fread(f, data.data(), st.size);
            zip_fclose(f);
        }
        entries.insert(QString::fromUtf8(zip_get_name(za, index, 0)), {attributes >> 16, data});
    }
    zip_close(za);
    return entries;
}

TEST_F(QXFileManagerTest, compressingKeepsTheParentFolderAndStoresLinksAsLinks) {
    tree.file(QStringLiteral("Logs/a.log"), "alpha");
    tree.file(QStringLiteral("Logs/sub/b.log"), "beta");
    QFile::link(QStringLiteral("/nowhere/at/all"), tree(QStringLiteral("Logs/dangling.log")));
    const QString archive = tree(QStringLiteral("out/Logs.zip"));
    tree.dir(QStringLiteral("out"));

    ASSERT_TRUE(QXFileManager::compressFile(tree(QStringLiteral("Logs")), archive));
    const auto entries = readZip(archive);
    EXPECT_EQ(entries.keys(), (QStringList{u"Logs/"_s, u"Logs/a.log"_s, u"Logs/dangling.log"_s,
                                           u"Logs/sub/"_s, u"Logs/sub/b.log"_s}));
    EXPECT_EQ(entries.value(u"Logs/a.log"_s).second, QByteArray("alpha"));
    EXPECT_TRUE(S_ISREG(entries.value(u"Logs/a.log"_s).first));
    EXPECT_TRUE(S_ISDIR(entries.value(u"Logs/sub/"_s).first));
    EXPECT_TRUE(S_ISLNK(entries.value(u"Logs/dangling.log"_s).first));
    EXPECT_EQ(entries.value(u"Logs/dangling.log"_s).second, QByteArray("/nowhere/at/all"));

    // A second run replaces the archive; the old one goes to the trash, not away.
    tree.file(QStringLiteral("Logs/c.log"), "gamma");
    ASSERT_TRUE(QXFileManager::compressFile(tree(QStringLiteral("Logs")), archive));
    EXPECT_TRUE(readZip(archive).contains(u"Logs/c.log"_s));
    EXPECT_TRUE(
        QFileInfo::exists(QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) +
                          u"/Trash/files/Logs.zip"_s));
}

TEST_F(QXFileManagerTest, anArchiveThatCannotBeWrittenIsAFailure) {
    tree.file(QStringLiteral("Logs/a.log"), "alpha");
    EXPECT_FALSE(QXFileManager::compressFile(tree(QStringLiteral("Logs")),
                                             tree(QStringLiteral("no/such/folder/x.zip"))));
    EXPECT_FALSE(QXFileManager::compressFile(tree(QStringLiteral("missing")),
                                             tree(QStringLiteral("x.zip"))));
    EXPECT_FALSE(tree.exists(QStringLiteral("x.zip")));
    EXPECT_TRUE(currentLogText().contains(QStringLiteral("Unable to compress ")));
}

TEST_F(QXFileManagerTest, theLockedAttributeIsTheImmutableFlagWhereThereIsOne) {
    const QString f = tree.file(QStringLiteral("dir/sub/f.txt"), "x");
    const QString g = tree.file(QStringLiteral("dir/g.txt"), "y");
    EXPECT_FALSE(QXFileManager::isFileLocked(f));
    EXPECT_FALSE(QXFileManager::isFileLocked(tree(QStringLiteral("missing"))));
    EXPECT_FALSE(QXFileManager::lockFile(tree(QStringLiteral("missing"))));
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

    QXFileManager::lockFolder(tree(QStringLiteral("dir")));
    EXPECT_TRUE(QXFileManager::isFileLocked(f));
    EXPECT_TRUE(QXFileManager::isFileLocked(g));
    EXPECT_TRUE(QXFileManager::isFileLocked(tree(QStringLiteral("dir/sub"))));
    EXPECT_FALSE(QXFileManager::isFileLocked(tree(QStringLiteral("dir"))));
    QXFileManager::unlockFolder(tree(QStringLiteral("dir")));
    EXPECT_FALSE(QXFileManager::isFileLocked(f));

    // Removing unlocks first.
    QXFileManager::lockFile(g);
    EXPECT_TRUE(QXFileManager::removeFile(g));
    EXPECT_FALSE(QFileInfo::exists(g));
}

TEST_F(QXFileManagerTest, touchUpdatesTheModificationTime) {
    const QString f = tree.file(QStringLiteral("old.txt"), "x");
    struct utimbuf times = {1000000000, 1000000000};
    ::utime(QFile::encodeName(f).constData(), &times);
    EXPECT_TRUE(QXFileManager::touchFile(f, true));
    EXPECT_GT(QFileInfo(f).lastModified().toSecsSinceEpoch(), 1000000000);
    EXPECT_FALSE(QXFileManager::touchFile(tree(QStringLiteral("missing"))));
}

} // namespace
