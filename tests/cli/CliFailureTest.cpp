// What the command line says when something is wrong, and its JSON forms.
#include "CliResult.h"
#include "TempTree.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <cstdio>
#include <gtest/gtest.h>
#include <unistd.h>

using namespace Qt::Literals::StringLiterals;

namespace {

// Runs the program through the shell with one more argument: DIR/ followed
// by raw bytes, which a QString argument cannot carry.
CliResult cliWithRawPath(const QString& dir, const char* octalBytes, const QStringList& args) {
    QProcess p;
    p.start(u"/bin/sh"_s, QStringList{u"-c"_s,
                                      u"cli=$1; dir=$2; bytes=$3; shift 3; "
                                      u"exec \"$cli\" \"$@\" \"$dir/$(printf \"$bytes\")\""_s,
                                      u"sh"_s, QStringLiteral(SEQMATE_CLI_PATH), dir,
                                      QString::fromLatin1(octalBytes)} +
                              args);
    p.closeWriteChannel();
    return waitForCli(p, 60000);
}

// Said once: one line on standard error, nothing on standard output.
void expectOneLineFailure(const CliResult& r, const QString& text) {
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.err, u"seqmate-cli: "_s + text + u'\n');
    EXPECT_TRUE(r.out.isEmpty()) << r.out.toStdString();
}

// The engine's failure tests hold every cause and its message; here one of them.
TEST(CliFailures, AFailingTaskSaysWhyAndRenamesNothing) {
    TempTree t;
    const QStringList task = words(u"-t find-replace -s regex=1 -s find=("_s) << t(u"d"_s);
    const QString line = u"find-replace: the pattern \"(\" does not compile: "
                         u"U_REGEX_MISMATCHED_PAREN at offset 1"_s;
    t.file(u"d/aaaa.txt"_s);
    expectOneLineFailure(runCli(task), line);
    expectOneLineFailure(runCli(task + QStringList{u"--apply"_s, u"-y"_s}), line);
    EXPECT_TRUE(t.exists(u"d/aaaa.txt"_s));
}

TEST(CliFailures, PathsThatAreNotUtf8AreRefusedNotMapped) {
    TempTree t;
    // The name a lossy decoding of "\xff\xfe" would give: it must stay as it is.
    t.file(u"d/\uFFFD\uFFFD"_s);
    const CliResult r =
        cliWithRawPath(t(u"d"_s), "\\377\\376", words(u"-t prefix -s prefix=P_ --apply -y"_s));
    expectOneLineFailure(r, u"not a valid UTF-8 path: "_s + t(u"d"_s) + u"/\\xff\\xfe"_s);
    EXPECT_EQ(t.list(u"d"_s), QStringList{u"\uFFFD\uFFFD"_s});

    // Entries skipped inside a folder are counted where the user looks.
    const QByteArray bad = QFile::encodeName(t(u"d/"_s)) + "bad\xff.txt";
    FILE* raw = std::fopen(bad.constData(), "w");
    ASSERT_TRUE(raw);
    std::fclose(raw);
    const CliResult listed = runCli({u"--json"_s, t(u"d"_s)});
    ::unlink(bad.constData());
    EXPECT_EQ(listed.status, 0);
    EXPECT_TRUE(listed.err.contains(u"warning: 1 folder entry skipped"_s))
        << listed.err.toStdString();
    EXPECT_EQ(QJsonDocument::fromJson(listed.out.toUtf8()).array().size(), 1);
}

// Whatever the engine finds wrong with a batch file (its tests say which), one line names it.
TEST(CliFailures, FilesThatAreNotBatchFilesAreRefused) {
    TempTree t;
    const QString file = t.file(u"b.sqb"_s, "this is not a property list");
    const CliResult r = runCli({u"-b"_s, file});
    EXPECT_EQ(r.status, 2);
    EXPECT_TRUE(r.err.startsWith(u"seqmate-cli: not a batch file: "_s + file + u" ("_s))
        << r.err.toStdString();
    EXPECT_EQ(r.err.count(u'\n'), 1);
}

TEST(CliFailures, JsonIsPrintedForEveryForm) {
    TempTree t;
    for (int f : {10, 2, 1, 5})
        t.file(u"s/shot.%1.exr"_s.arg(f));
    const QJsonArray items =
        QJsonDocument::fromJson(runCli({u"--json"_s, t(u"s"_s)}).out.toUtf8()).array();
    ASSERT_EQ(items.size(), 4);
    const QJsonObject last = items[3].toObject(); // natural order: 1, 2, 5, 10
    EXPECT_EQ(last.value(u"name"_s).toString(), u"shot.10.exr"_s);
    EXPECT_EQ(last.value(u"padding"_s).toInt(), 2);
    const QJsonArray parts = last.value(u"components"_s).toArray();
    ASSERT_EQ(parts.size(), 5);
    EXPECT_EQ(parts[2].toObject().value(u"Frame Number"_s).toInt(), 10);
    EXPECT_EQ(parts[4].toObject().value(u"File Extension"_s).toString(), u"exr"_s);

    EXPECT_EQ(runCli({u"--json"_s}).out, u"[]\n"_s);
    EXPECT_EQ(runCli({u"--json"_s, u"-t"_s, u"upper"_s}).out, u"[]\n"_s);
    const CliResult gaps = runCli({u"--json"_s, u"-t"_s, u"check-gaps"_s, t(u"s"_s)});
    EXPECT_EQ(gaps.status, 0);
    EXPECT_EQ(QJsonDocument::fromJson(gaps.out.toUtf8()).array(), QJsonArray({u"3-4"_s, u"6-9"_s}));

    const CliResult preview = runCli({u"--task"_s, u"9"_s, u"--json"_s, t(u"s"_s)});
    const QJsonObject first = QJsonDocument::fromJson(preview.out.toUtf8()).array()[0].toObject();
    EXPECT_EQ(first.value(u"path"_s).toString(), t(u"s/shot.1.exr"_s));
    EXPECT_EQ(first.value(u"old"_s).toString(), u"shot.1.exr"_s);
    EXPECT_EQ(first.value(u"new"_s).toString(), u"shot.exr"_s);
    EXPECT_TRUE(first.value(u"conflict"_s).toBool()); // all become shot.exr
}

// A new name that is no file name is flagged in the table and the JSON; the
// engine's commit guard leaves that file where it is.
TEST(CliFailures, NamesThatAreNoFileNamesAreFlagged) {
    TempTree t;
    t.file(u"d/a.txt"_s, "a");
    const QStringList task{u"-t"_s, u"prefix"_s, u"-s"_s, u"prefix=../"_s, t(u"d"_s)};
    const CliResult table = runCli(task);
    EXPECT_TRUE(table.out.contains(u"a.txt -> ../a.txt  [not a file name: it contains \"/\"]"_s))
        << table.out.toStdString();
    const CliResult json = runCli(task + QStringList{u"--json"_s});
    const QJsonObject row = QJsonDocument::fromJson(json.out.toUtf8()).array().at(0).toObject();
    EXPECT_EQ(row[u"problem"_s].toString(), u"not a file name: it contains \"/\""_s);
}

} // namespace
