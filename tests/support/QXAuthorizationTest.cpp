#include "QXAuthorization.h"
#include "ConsoleCapture.h"
#include "FakePrivilegeMechanism.h"
#include "QXFileManager.h"
#include "QXLocalPaths.h"
#include "TempTree.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QRegularExpression>
#include <gtest/gtest.h>

#include <thread>

namespace {

QXAuthorization& auth() {
    return QXAuthorization::sharedController();
}

bool waitFor(const std::function<bool()>& condition) {
    QElapsedTimer clock;
    clock.start();
    while (!condition()) {
        if (clock.elapsed() > 3000) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

class QXAuthorizationTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { startUserLog(); }
    ConsoleCapture console;
    TempTree tree;
    std::shared_ptr<FakePrivilegeMechanism> fake = std::make_shared<FakePrivilegeMechanism>();
};

TEST_F(QXAuthorizationTest, rightsAreAskedForOnceAndKeptUntilTheEnd) {
    AsOrdinaryUser user(fake);
    EXPECT_FALSE(auth().isAuthorized());
    EXPECT_TRUE(auth().canAuthorize());
    EXPECT_EQ(auth().userDirectory(), QDir::homePath());

    EXPECT_EQ(auth().authExecTask(QStringLiteral("/bin/true"), {}), 0);
    EXPECT_EQ(auth().authExecTask(QStringLiteral("/bin/true"), {}, false), 0);
    EXPECT_EQ(fake->rightsAsked, QStringList{QXAuthorization::rightName()});
    ASSERT_EQ(fake->calls.size(), 2);
    EXPECT_FALSE(fake->calls[0].wait);
    EXPECT_TRUE(fake->calls[1].wait);

    // The tool's own status comes back when waiting.
    fake->executeAnswer = 4;
    EXPECT_EQ(auth().authExecTask(QStringLiteral("/bin/true"), {}, false), 4);

    auth().authEnd();
    EXPECT_FALSE(auth().isAuthorized());
    EXPECT_EQ(fake->releases, 1);
    fake->interactiveAnswer = -1;
    EXPECT_EQ(auth().authExecTask(QStringLiteral("/bin/true"), {}), -1);
    EXPECT_EQ(auth().authExecTask(QStringLiteral("/bin/true"), {}), -1);
    EXPECT_EQ(fake->rightsAsked.size(), 3); // a refusal leaves nothing to reuse
}

TEST_F(QXAuthorizationTest, withoutAGuiNothingIsAsked) {
    AsOrdinaryUser user(fake, false);
    EXPECT_FALSE(auth().canAuthorize());
    EXPECT_FALSE(auth().authStart());
    EXPECT_EQ(auth().authExecTask(QStringLiteral("/bin/true"), {}), -1);
    EXPECT_TRUE(console.contains(QStringLiteral("Unable to authorize")));
    EXPECT_TRUE(fake->rightsAsked.isEmpty());
}

TEST_F(QXAuthorizationTest, aMissingToolIsStatusMinusTwo) {
    AsOrdinaryUser user(fake);
    EXPECT_EQ(auth().authExecTask(tree(QStringLiteral("no-tool")), {}), -2);
    EXPECT_TRUE(console.contains(QStringLiteral("Unable to execute task: path %1 doesn't exist")
                                     .arg(tree(QStringLiteral("no-tool")))));
    EXPECT_TRUE(fake->rightsAsked.isEmpty());
}

TEST_F(QXAuthorizationTest, nameAndPasswordRights) {
    AsOrdinaryUser user(fake);
    EXPECT_FALSE(auth().authStartWithUser(QString(), QStringLiteral("pw")));
    EXPECT_FALSE(auth().authStartWithUser(QStringLiteral("alice"), QString()));
    EXPECT_TRUE(fake->credentials.isEmpty());

    fake->credentialsAnswer = 5;
    EXPECT_FALSE(auth().authStartWithUser(QStringLiteral("alice"), QStringLiteral("pw")));
    EXPECT_TRUE(console.contains(QStringLiteral("Unable to create authRef - error 5")));

    fake->credentialsAnswer = -1;
    EXPECT_FALSE(auth().authStartWithUser(QStringLiteral("alice"), QStringLiteral("bad")));
    const QString refused = QStringLiteral("Authorization failed. Invalid username or password");
    EXPECT_TRUE(console.contains(refused));
    EXPECT_TRUE(currentLogText().contains(refused));
    EXPECT_FALSE(auth().isAuthorized());

    fake->credentialsAnswer = 0;
    EXPECT_TRUE(auth().authStartWithUser(QStringLiteral("alice"), QStringLiteral("good")));
    EXPECT_TRUE(auth().isAuthorized());
    EXPECT_EQ(fake->credentials.last(), QStringLiteral("alice:good"));
}

TEST_F(QXAuthorizationTest, theSuperUserNeedsNoRightsAndRunsToolsItself) {
    AsOrdinaryUser root(fake, false, 0);
    EXPECT_TRUE(auth().isAuthorized());
    EXPECT_TRUE(auth().canAuthorize());
    EXPECT_TRUE(auth().authStart());
    EXPECT_TRUE(auth().authStartWithUser(QString(), QString()));
    EXPECT_TRUE(auth().userDirectory().isEmpty());

    const QString made = tree(QStringLiteral("made/by/root"));
    EXPECT_EQ(
        auth().authExecTask(QStringLiteral("/bin/mkdir"), {QStringLiteral("-p"), made}, false), 0);
    EXPECT_TRUE(QFileInfo(made).isDir());
    // Moves only start the tool; the result follows shortly.
    const QString a = tree.file(QStringLiteral("a.txt"), "A");
    EXPECT_TRUE(auth().authMoveFile(a, tree(QStringLiteral("b.txt"))));
    EXPECT_TRUE(waitFor([&] { return tree.exists(QStringLiteral("b.txt")); }));
    EXPECT_TRUE(fake->rightsAsked.isEmpty());
    EXPECT_TRUE(fake->calls.isEmpty());
}

TEST_F(QXAuthorizationTest, protectedSystemFoldersAreRefusedWithTheirMessages) {
    AsOrdinaryUser user(fake);
    const QString home = QXLocalPaths::userDirectory();
    const QString library = QXLocalPaths::libraryDirectory(true);
    const QString apps = QXLocalPaths::applicationDirectory(true);
    const QString desktop = QXLocalPaths::desktopDirectory();
    const QString elsewhere = tree(QStringLiteral("dest"));
    struct Case {
        std::function<bool()> op;
        QString message;
    };
    const Case cases[] = {
        {[&] { return auth().authMoveFile(QStringLiteral("/"), elsewhere); },
         QStringLiteral("Unable to move path / because it is a system directory.")},
        {[&] { return auth().authMoveFile(apps, elsewhere); },
         QStringLiteral("Unable to move path %1 because it is a system directory.").arg(apps)},
        {[&] { return auth().authMoveFile(home, elsewhere); },
         QStringLiteral("Unable to move path %1 because it is a system directory.").arg(home)},
        {[&] { return auth().authRemoveFile(library); },
         QStringLiteral("Unable to delete path %1 because it is a system directory.").arg(library)},
        {[&] { return auth().authTrashFile(desktop); },
         QStringLiteral("Unable to trash path %1 because it is a system directory.").arg(desktop)},
        {[&] { return auth().authTrashFolderContents(home); },
         QStringLiteral("Unable to trash folder contents of path %1 because it is a system "
                        "directory.")
             .arg(home)},
        {[&] { return auth().authMoveFolderContents(home, elsewhere); },
         QStringLiteral("Unable to move contents of path %1 because it is a system directory.")
             .arg(home)},
        {[&] { return auth().authMoveFile(QString(), elsewhere); },
         QStringLiteral("Error in authMoveFile: old path is null")},
        {[&] { return auth().authMoveFile(elsewhere, QString()); },
         QStringLiteral("Error in authMoveFile: new path is null")},
        {[&] { return auth().authCopyFile(QString(), elsewhere); },
         QStringLiteral("Error in authCopyFile: old path is null")},
        {[&] { return auth().authCopyFile(elsewhere, QString()); },
         QStringLiteral("Error in authCopyFile: new path is null")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.message.toStdString());
        console.clear();
        EXPECT_FALSE(c.op());
        EXPECT_EQ(console.lines(), QStringList{c.message});
    }
    EXPECT_TRUE(fake->calls.isEmpty());

    // A file inside a protected folder is not protected itself.
    QDir().mkpath(apps);
    QFile(apps + QStringLiteral("/Tool")).open(QIODevice::WriteOnly);
    EXPECT_TRUE(auth().authMoveFile(apps + QStringLiteral("/Tool"), elsewhere));
    ASSERT_EQ(fake->calls.size(), 1);
    EXPECT_EQ(fake->calls[0].tool, QStringLiteral("/bin/mv"));
    EXPECT_EQ(fake->calls[0].arguments,
              (QStringList{QStringLiteral("-f"), apps + QStringLiteral("/Tool"), elsewhere}));
}

TEST_F(QXAuthorizationTest, theToolsAndTheirArguments) {
    AsOrdinaryUser user(fake);
    const QString a = tree.file(QStringLiteral("a.txt"));
    EXPECT_FALSE(auth().authMoveFile(tree(QStringLiteral("missing")), a));
    EXPECT_FALSE(auth().authCopyFile(tree(QStringLiteral("missing")), a));
    EXPECT_TRUE(fake->calls.isEmpty());

    EXPECT_TRUE(auth().authCopyFile(a, tree(QStringLiteral("b.txt"))));
    EXPECT_TRUE(auth().authRemoveFile(a));
    EXPECT_TRUE(auth().authCreateDir(tree(QStringLiteral("new"))));
    ASSERT_EQ(fake->calls.size(), 3);
    EXPECT_EQ(fake->calls[0].tool, QStringLiteral("/bin/cp"));
    EXPECT_EQ(fake->calls[0].arguments,
              (QStringList{QStringLiteral("-f"), QStringLiteral("-p"), QStringLiteral("-R"), a,
                           tree(QStringLiteral("b.txt"))}));
    EXPECT_EQ(fake->calls[1].tool, QStringLiteral("/bin/rm"));
    EXPECT_EQ(fake->calls[1].arguments, (QStringList{QStringLiteral("-Rdf"), a}));
    EXPECT_EQ(fake->calls[2].tool, QStringLiteral("/bin/mkdir"));

    fake->executeAnswer = 1;
    EXPECT_FALSE(auth().authRemoveFile(a));
    EXPECT_FALSE(auth().authCreateDir(tree(QStringLiteral("new"))));
}

TEST_F(QXAuthorizationTest, trashingANameAlreadyInTheTrashAddsATimeStamp) {
    AsOrdinaryUser user(fake);
    fake->runForReal = true;
    const QString trash = QXLocalPaths::trashDirectory();
    QDir().mkpath(trash);
    QFile(trash + QStringLiteral("/clip.mov")).open(QIODevice::WriteOnly);
    const QString clip = tree.file(QStringLiteral("clip.mov"), "new");
    const QString notes = tree.file(QStringLiteral("notes"), "n");

    EXPECT_TRUE(auth().authTrashFile(clip));
    EXPECT_TRUE(auth().authTrashFile(notes));
    ASSERT_EQ(fake->calls.size(), 2);
    const QRegularExpression stamped(QRegularExpression::anchoredPattern(
        QRegularExpression::escape(trash) + QStringLiteral("/clip_\\d{14}\\.mov")));
    EXPECT_TRUE(stamped.match(fake->calls[0].arguments.last()).hasMatch())
        << fake->calls[0].arguments.last().toStdString();
    EXPECT_EQ(fake->calls[1].arguments.last(), trash + QStringLiteral("/notes"));
    EXPECT_FALSE(QFileInfo::exists(clip));
    EXPECT_TRUE(QFileInfo::exists(fake->calls[0].arguments.last()));

    // Again with a name without extension: the dot is written all the same.
    tree.file(QStringLiteral("notes"), "again");
    EXPECT_TRUE(auth().authTrashFile(notes));
    EXPECT_TRUE(fake->calls.last().arguments.last().endsWith(u'.'));
}

TEST_F(QXAuthorizationTest, trashingAFolderAttemptsEveryEntry) {
    AsOrdinaryUser user(fake);
    tree.file(QStringLiteral("f/a"));
    tree.file(QStringLiteral("f/b"));
    fake->executeAnswer = 1; // every start fails
    EXPECT_FALSE(auth().authTrashFolderContents(tree(QStringLiteral("f"))));
    EXPECT_EQ(fake->calls.size(), 2);
    fake->executeAnswer = 0;
    EXPECT_TRUE(
        auth().authMoveFolderContents(tree(QStringLiteral("f")), tree(QStringLiteral("g"))));
    EXPECT_EQ(fake->calls.last().arguments.last(), tree(QStringLiteral("g/b")));
}

} // namespace
