#include "QXAuthorization.h"
#include "SupportTest.h"

using namespace Qt::StringLiterals;

namespace {

QXAuthorization& auth() {
    return QXAuthorization::sharedController();
}
const QString trueTool = u"/bin/true"_s;

class QXAuthorizationTest : public SupportTest {
protected:
    std::shared_ptr<FakePrivilegeMechanism> fake = std::make_shared<FakePrivilegeMechanism>();
    void expectCall(int i, const QString& tool, const QStringList& arguments) {
        ASSERT_LT(i, fake->calls.size());
        EXPECT_EQ(fake->calls[i].tool, tool);
        EXPECT_EQ(fake->calls[i].arguments, arguments);
    }
};

TEST_F(QXAuthorizationTest, rightsAreAskedForOnceAndKeptUntilTheEnd) {
    AsOrdinaryUser user(fake);
    EXPECT_FALSE(auth().isAuthorized());
    EXPECT_TRUE(auth().canAuthorize());
    EXPECT_EQ(auth().userDirectory(), QDir::homePath());

    EXPECT_EQ(auth().authExecTask(trueTool, {}), 0);
    EXPECT_EQ(auth().authExecTask(trueTool, {}, false), 0);
    EXPECT_EQ(fake->rightsAsked, QStringList{QXAuthorization::rightName()});
    ASSERT_EQ(fake->calls.size(), 2);
    EXPECT_FALSE(fake->calls[0].wait);
    EXPECT_TRUE(fake->calls[1].wait);
    fake->executeAnswer = 4; // the tool's own status comes back when waiting
    EXPECT_EQ(auth().authExecTask(trueTool, {}, false), 4);

    auth().authEnd();
    EXPECT_FALSE(auth().isAuthorized());
    EXPECT_EQ(fake->releases, 1);
    fake->interactiveAnswer = -1;
    EXPECT_EQ(auth().authExecTask(trueTool, {}), -1);
    EXPECT_EQ(auth().authExecTask(trueTool, {}), -1);
    EXPECT_EQ(fake->rightsAsked.size(), 3); // a refusal leaves nothing to reuse

    const QString noTool = t("no-tool");
    EXPECT_EQ(auth().authExecTask(noTool, {}), -2);
    EXPECT_TRUE(console.contains(u"Unable to execute task: path %1 doesn't exist"_s.arg(noTool)));
    EXPECT_EQ(fake->rightsAsked.size(), 3);

    // Without a GUI nothing is asked.
    auth().resetForTesting(false);
    fake->rightsAsked.clear();
    EXPECT_FALSE(auth().canAuthorize());
    EXPECT_FALSE(auth().authStart());
    EXPECT_EQ(auth().authExecTask(trueTool, {}), -1);
    EXPECT_TRUE(console.contains(u"Unable to authorize"_s));
    EXPECT_TRUE(fake->rightsAsked.isEmpty());
}

TEST_F(QXAuthorizationTest, theSuperUserNeedsNoRightsAndRunsToolsItself) {
    AsOrdinaryUser root(fake, false, 0);
    EXPECT_TRUE(auth().isAuthorized());
    EXPECT_TRUE(auth().canAuthorize());
    EXPECT_TRUE(auth().authStart());
    EXPECT_TRUE(auth().userDirectory().isEmpty());

    const QString made = t("made/by/root");
    EXPECT_EQ(auth().authExecTask(u"/bin/mkdir"_s, {u"-p"_s, made}, false), 0);
    EXPECT_TRUE(QFileInfo(made).isDir());
    // Moves only start the tool; the result follows shortly.
    EXPECT_TRUE(auth().authMoveFile(tree.file(u"a.txt"_s, "A"), t("b.txt")));
    EXPECT_TRUE(waitFor([&] { return tree.exists(u"b.txt"_s); }));
    EXPECT_TRUE(fake->rightsAsked.isEmpty());
    EXPECT_TRUE(fake->calls.isEmpty());
}

TEST_F(QXAuthorizationTest, protectedSystemFoldersAreRefusedWithTheirMessages) {
    AsOrdinaryUser user(fake);
    const QString home = QXLocalPaths::userDirectory(), dest = t("dest");
    const QString apps = QXLocalPaths::applicationDirectory(true);
    const QString system = u"Unable to %1 path %2 because it is a system directory."_s;
    const std::pair<std::function<bool()>, QString> cases[] = {
        {[&] { return auth().authMoveFile(home, dest); }, system.arg(u"move"_s, home)},
        {[&] { return auth().authRemoveFile(QXLocalPaths::libraryDirectory(true)); },
         system.arg(u"delete"_s, QXLocalPaths::libraryDirectory(true))},
        {[&] { return auth().authTrashFile(QXLocalPaths::desktopDirectory()); },
         system.arg(u"trash"_s, QXLocalPaths::desktopDirectory())},
        {[&] { return auth().authTrashFolderContents(home); },
         system.arg(u"trash folder contents of"_s, home)},
        {[&] { return auth().authMoveFolderContents(home, dest); },
         system.arg(u"move contents of"_s, home)},
        {[&] { return auth().authMoveFile(QString(), dest); },
         u"Error in authMoveFile: old path is null"_s},
        {[&] { return auth().authCopyFile(dest, QString()); },
         u"Error in authCopyFile: new path is null"_s},
    };
    for (const auto& [op, message] : cases) {
        SCOPED_TRACE(message.toStdString());
        console.clear();
        EXPECT_FALSE(op());
        EXPECT_EQ(console.lines(), QStringList{message});
    }
    EXPECT_TRUE(fake->calls.isEmpty());

    // A file inside a protected folder is not protected itself.
    const QString tool = apps + u"/Tool"_s;
    writeFile(tool);
    EXPECT_TRUE(auth().authMoveFile(tool, dest));
    expectCall(0, u"/bin/mv"_s, {u"-f"_s, tool, dest});
}

TEST_F(QXAuthorizationTest, theToolsAndTheirArguments) {
    AsOrdinaryUser user(fake);
    const QString a = file("a.txt");
    EXPECT_FALSE(auth().authMoveFile(t("missing"), a));
    EXPECT_FALSE(auth().authCopyFile(t("missing"), a));
    EXPECT_TRUE(fake->calls.isEmpty());

    EXPECT_TRUE(auth().authCopyFile(a, t("b.txt")));
    EXPECT_TRUE(auth().authRemoveFile(a));
    EXPECT_TRUE(auth().authCreateDir(t("new")));
    ASSERT_EQ(fake->calls.size(), 3);
    expectCall(0, u"/bin/cp"_s, {u"-f"_s, u"-p"_s, u"-R"_s, a, t("b.txt")});
    expectCall(1, u"/bin/rm"_s, {u"-Rdf"_s, a});
    expectCall(2, u"/bin/mkdir"_s, {u"-p"_s, t("new")});

    fake->executeAnswer = 1;
    EXPECT_FALSE(auth().authRemoveFile(a));
    EXPECT_FALSE(auth().authCreateDir(t("new")));

    // Emptying a folder attempts every entry even when they fail.
    file("f/a");
    file("f/b");
    fake->calls.clear();
    EXPECT_FALSE(auth().authTrashFolderContents(t("f")));
    EXPECT_EQ(fake->calls.size(), 2);
    fake->executeAnswer = 0;
    EXPECT_TRUE(auth().authMoveFolderContents(t("f"), t("g")));
    EXPECT_EQ(fake->calls.last().arguments.last(), t("g/b"));
}

TEST_F(QXAuthorizationTest, trashingANameAlreadyInTheTrashAddsATimeStamp) {
    AsOrdinaryUser user(fake);
    fake->runForReal = true;
    const QString trash = QXLocalPaths::trashDirectory();
    for (const QString& old : QDir(trash).entryList({u"clip*"_s, u"notes*"_s})) // repetitions
        QFile::remove(trash + u'/' + old);
    writeFile(trash + u"/clip.mov"_s);
    const QString clip = tree.file(u"clip.mov"_s, "new"), notes = tree.file(u"notes"_s, "n");
    EXPECT_TRUE(auth().authTrashFile(clip));
    EXPECT_TRUE(auth().authTrashFile(notes));
    ASSERT_EQ(fake->calls.size(), 2);
    const QString stamped = fake->calls[0].arguments.last();
    EXPECT_TRUE(matches(QRegularExpression::escape(trash) + u"/clip_\\d{14}\\.mov"_s, stamped))
        << stamped.toStdString();
    EXPECT_EQ(fake->calls[1].arguments.last(), trash + u"/notes"_s);
    EXPECT_FALSE(QFileInfo::exists(clip));
    EXPECT_TRUE(QFileInfo::exists(stamped));

    // Again with a name without extension: the dot is written all the same.
    tree.file(u"notes"_s, "again");
    EXPECT_TRUE(auth().authTrashFile(notes));
    EXPECT_TRUE(fake->calls.last().arguments.last().endsWith(u'.'));
}

} // namespace
