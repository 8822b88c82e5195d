#include "FileMover.h"
#include "TempTree.h"

#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// Both ways of moving: renameat2 and the fallback for file systems without it.
class FileMoverTest : public ::testing::TestWithParam<bool> {
protected:
    void SetUp() override { FileMover::setForceFallbackForTesting(GetParam()); }
    void TearDown() override {
        FileMover::setForceFallbackForTesting(false);
        FileMover::setFaultHook({});
    }
    TempTree tree;
};

TEST_P(FileMoverTest, MovesFilesFoldersAndLinksAsThemselves) {
    tree.file(u"a"_s, "A");
    tree.file(u"d/inside"_s, "I");
    ASSERT_TRUE(QFile::link(tree(u"nowhere"_s), tree(u"link"_s)));
    EXPECT_EQ(FileMover::move(tree(u"a"_s), tree(u"b"_s)), QString());
    EXPECT_EQ(FileMover::move(tree(u"d"_s), tree(u"e"_s)), QString());
    EXPECT_EQ(FileMover::move(tree(u"link"_s), tree(u"link2"_s)), QString());
    EXPECT_EQ(tree.list(), (QStringList{u"b"_s, u"e"_s, u"link2"_s}));
    EXPECT_EQ(tree.read(u"e/inside"_s), "I");
    EXPECT_EQ(QFile::symLinkTarget(tree(u"link2"_s)), tree(u"nowhere"_s));
}

TEST_P(FileMoverTest, NeverReplacesAFileAFolderOrAnEmptyFolder) {
    tree.file(u"a"_s, "A");
    tree.file(u"b"_s, "B");
    tree.dir(u"d"_s);
    tree.dir(u"empty"_s);
    tree.file(u"full/x"_s, "X");
    ASSERT_TRUE(QFile::link(tree(u"nowhere"_s), tree(u"link"_s))); // dangling, still taken
    EXPECT_TRUE(FileMover::exists(tree(u"link"_s)));
    EXPECT_EQ(FileMover::move(tree(u"a"_s), tree(u"link"_s)), u"File exists"_s);
    EXPECT_EQ(FileMover::move(tree(u"a"_s), tree(u"b"_s)), u"File exists"_s);
    EXPECT_EQ(FileMover::move(tree(u"d"_s), tree(u"empty"_s)), u"File exists"_s);
    EXPECT_EQ(FileMover::move(tree(u"d"_s), tree(u"b"_s)), u"File exists"_s);
    EXPECT_EQ(FileMover::move(tree(u"a"_s), tree(u"full"_s)), u"File exists"_s);
    EXPECT_EQ(FileMover::move(tree(u"a"_s), tree(u"a/x"_s)), u"Not a directory"_s);
    EXPECT_FALSE(FileMover::move(tree(u"d"_s), tree(u"d/sub"_s)).isEmpty()); // into itself
    EXPECT_EQ(tree.read(u"a"_s), "A");
    EXPECT_EQ(tree.read(u"b"_s), "B");
    EXPECT_EQ(tree.list(), (QStringList{u"a"_s, u"b"_s, u"d"_s, u"empty"_s, u"full"_s, u"link"_s}));
}

INSTANTIATE_TEST_SUITE_P(Paths, FileMoverTest, ::testing::Values(false, true),
                         [](const ::testing::TestParamInfo<bool>& i) {
                             return std::string(i.param ? "Fallback" : "Renameat2");
                         });

// A held folder spares the path walks, but each move must still mean its
// paths: once the folder (or one above it) has moved, its old path is gone.
TEST_P(FileMoverTest, AHeldFolderNeverOutlivesItsPath) {
    tree.file(u"a/f"_s, "F");
    tree.file(u"a/h"_s, "H");
    tree.dir(u"c"_s);
    FileMover::Folder folder;
    auto move = [&](const QString& from, const QString& to) {
        return FileMover::move(tree(from), tree(to), QFile::encodeName(tree(from)),
                               QFile::encodeName(tree(to)), nullptr, &folder);
    };
    const QString missing = u"No such file or directory"_s;
    EXPECT_EQ(move(u"a/f"_s, u"a/g"_s), QString());
    EXPECT_EQ(move(u"a"_s, u"c/a"_s), QString()); // between folders
    EXPECT_EQ(move(u"a/h"_s, u"a/i"_s), missing);
    EXPECT_EQ(move(u"c/a/h"_s, u"c/a/j"_s), QString());
    EXPECT_EQ(move(u"c/a"_s, u"c/b"_s), QString()); // within the folder above
    EXPECT_EQ(move(u"c/a/j"_s, u"c/a/k"_s), missing);
    EXPECT_EQ(move(u"c/b/j"_s, u"c/b/g"_s), u"File exists"_s);
    EXPECT_EQ(move(u"c/b/j"_s, u"c/b/k"_s), QString());
    EXPECT_EQ(tree.list(), QStringList{u"c"_s});
    EXPECT_EQ(tree.list(u"c/b"_s), (QStringList{u"g"_s, u"k"_s}));
    EXPECT_EQ(tree.read(u"c/b/g"_s), "F");
    EXPECT_EQ(tree.read(u"c/b/k"_s), "H");
}

TEST(FileMoverPathTest, MakePathThroughAFileFailsAndRemovingKeepsAFullFolder) {
    TempTree tree;
    tree.file(u"f"_s);
    EXPECT_EQ(FileMover::makePath(tree(u"f/sub"_s)), u"Not a directory"_s);
    EXPECT_EQ(FileMover::makePath(tree(u"a/b/c"_s)), QString());
    EXPECT_EQ(FileMover::makePath(tree(u"a/b/c"_s)), QString()); // already there
    EXPECT_EQ(FileMover::removeDirectory(tree(u"a"_s)), u"Directory not empty"_s);
}

} // namespace
