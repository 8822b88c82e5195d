#include "TempTree.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <gtest/gtest.h>

namespace {
struct CliRun {
    int status = -1;
    QString out;
    QString err;
};

CliRun cli(const QStringList& args) {
    QProcess p;
    p.start(QStringLiteral(SEQMATE_CLI_PATH), args);
    p.closeWriteChannel();
    p.waitForFinished(60000);
    return {p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1,
            QString::fromUtf8(p.readAllStandardOutput()),
            QString::fromUtf8(p.readAllStandardError())};
}

TempTree& frames(TempTree& t) {
    for (int f : {1, 2, 3, 5, 9})
        t.file(QStringLiteral("plates/Shot.%1.EXR").arg(f, 4, 10, QLatin1Char('0')));
    return t;
}

TEST(Cli, WithoutATaskPrintsItemsAndComponents) {
    TempTree t;
    frames(t);
    t.file(QStringLiteral("plates/.hidden"));
    const CliRun r = cli({t(QStringLiteral("plates"))});
    ASSERT_EQ(r.status, 0) << r.err.toStdString();
    EXPECT_TRUE(r.out.contains(QStringLiteral("Frame Number 1 (padding 4)")));
    EXPECT_TRUE(r.out.contains(QStringLiteral("File Extension \"EXR\"")));
    EXPECT_TRUE(r.out.contains(QStringLiteral("5 item(s)")));
    EXPECT_FALSE(r.out.contains(QStringLiteral(".hidden")));
}

TEST(Cli, PreviewTableAndJson) {
    TempTree t;
    frames(t);
    const CliRun table =
        cli({QStringLiteral("-t"), QStringLiteral("lower-ext"), t(QStringLiteral("plates"))});
    ASSERT_EQ(table.status, 0) << table.err.toStdString();
    EXPECT_TRUE(table.out.contains(QStringLiteral("Shot.0001.EXR -> Shot.0001.exr")));
    EXPECT_TRUE(table.out.contains(QStringLiteral("5 file(s), 5 to rename, 0 conflict(s)")));

    const CliRun json =
        cli({QStringLiteral("--task"), QStringLiteral("9"), QStringLiteral("--json"),
             t(QStringLiteral("plates/Shot.0001.EXR")), t(QStringLiteral("plates/Shot.0002.EXR"))});
    ASSERT_EQ(json.status, 0) << json.err.toStdString();
    const QJsonArray rows = QJsonDocument::fromJson(json.out.toUtf8()).array();
    ASSERT_EQ(rows.size(), 2);
    const QJsonObject first = rows[0].toObject();
    EXPECT_EQ(first.value(QStringLiteral("path")).toString(),
              t(QStringLiteral("plates/Shot.0001.EXR")));
    EXPECT_EQ(first.value(QStringLiteral("old")).toString(), QStringLiteral("Shot.0001.EXR"));
    EXPECT_EQ(first.value(QStringLiteral("new")).toString(), QStringLiteral("Shot.EXR"));
    EXPECT_TRUE(first.value(QStringLiteral("conflict")).toBool()); // both become Shot.EXR
}

TEST(Cli, SettingsByKeyAndFormat) {
    TempTree t;
    frames(t);
    const CliRun pad =
        cli({QStringLiteral("-t"), QStringLiteral("pad"), QStringLiteral("-s"),
             QStringLiteral("padLength=6"), t(QStringLiteral("plates/Shot.0009.EXR"))});
    EXPECT_TRUE(pad.out.contains(QStringLiteral("-> Shot.000009.EXR"))) << pad.out.toStdString();

    const CliRun regex =
        cli({QStringLiteral("-t"), QStringLiteral("find-replace"), QStringLiteral("-s"),
             QStringLiteral("find=(\\w+)\\.(\\d+)"), QStringLiteral("-s"),
             QStringLiteral("replace=$2_$1"), QStringLiteral("-s"), QStringLiteral("regex=yes"),
             t(QStringLiteral("plates/Shot.0001.EXR"))});
    EXPECT_TRUE(regex.out.contains(QStringLiteral("-> 0001_Shot.EXR"))) << regex.out.toStdString();

    const CliRun conform =
        cli({QStringLiteral("-t"), QStringLiteral("conform"), QStringLiteral("--format"),
             QStringLiteral("@@ Filename @@_v2.@@ Frame Number @@.@@ File Extension @@"),
             t(QStringLiteral("plates/Shot.0003.EXR"))});
    EXPECT_TRUE(conform.out.contains(QStringLiteral("-> Shot_v2.0003.EXR")))
        << conform.out.toStdString();
}

TEST(Cli, GapCheckPrintsItsReport) {
    TempTree t;
    frames(t);
    const CliRun r =
        cli({QStringLiteral("-t"), QStringLiteral("check-gaps"), t(QStringLiteral("plates"))});
    ASSERT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.contains(QStringLiteral("2 gaps found")));
    EXPECT_TRUE(r.out.contains(
        QStringLiteral("Frame number gaps were found at the following locations:\n4\n6-8")))
        << r.out.toStdString();
}

TEST(Cli, BatchFilesSaveAndReopen) {
    TempTree t;
    frames(t);
    const QString batch = t(QStringLiteral("b.sqb"));
    const CliRun save = cli({QStringLiteral("-t"), QStringLiteral("offset"), QStringLiteral("-s"),
                             QStringLiteral("offset=-1"), QStringLiteral("--save"), batch,
                             t(QStringLiteral("plates/Shot.0002.EXR"))});
    ASSERT_EQ(save.status, 0) << save.err.toStdString();
    EXPECT_TRUE(
        t.read(QStringLiteral("b.sqb")).contains("<integer>18446744073709551615</integer>"));
    const CliRun reopen = cli({QStringLiteral("-b"), batch});
    ASSERT_EQ(reopen.status, 0) << reopen.err.toStdString();
    EXPECT_TRUE(reopen.out.contains(QStringLiteral("Shot.0002.EXR -> Shot.0001.EXR")))
        << reopen.out.toStdString();
}

TEST(Cli, UsageErrorsExitWithTwoAndOneLine) {
    TempTree t;
    const QStringList bad[] = {
        {QStringLiteral("-t"), QStringLiteral("sparkle"), t.path()},
        {QStringLiteral("-t"), QStringLiteral("27"), t.path()},
        {QStringLiteral("-t"), QStringLiteral("pad"), QStringLiteral("-s"),
         QStringLiteral("padLength"), t.path()},
        {QStringLiteral("-t"), QStringLiteral("pad"), QStringLiteral("-s"),
         QStringLiteral("find=x"), t.path()},
        {QStringLiteral("-t"), QStringLiteral("find-replace"), QStringLiteral("-s"),
         QStringLiteral("regex=maybe"), t.path()},
        {QStringLiteral("-b"), t(QStringLiteral("missing.sqb"))},
        {QStringLiteral("--no-such-option")},
        {QStringLiteral("-t"), QStringLiteral("check-gaps"), QStringLiteral("--apply"), t.path()},
    };
    for (const QStringList& args : bad) {
        const CliRun r = cli(args);
        EXPECT_EQ(r.status, 2) << args.join(u' ').toStdString();
        EXPECT_EQ(r.err.trimmed().count(u'\n'), 0) << r.err.toStdString();
        EXPECT_TRUE(r.err.startsWith(QStringLiteral("seqmate-cli: "))) << r.err.toStdString();
    }
}
} // namespace
