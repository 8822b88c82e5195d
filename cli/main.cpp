// seqmate-cli: the rename engine without the desktop window, for pipelines.
#include "BatchOutput.h"
#include "CliOptions.h"
#include "CommitCommands.h"
#include "ConsoleGate.h"
#include "MyDocument.h"
#include "PathArguments.h"
#include "PreviewRows.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "TerminalView.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <cstdio>

namespace {
struct Options {
    std::string task;
    std::vector<std::string> sets;
    std::optional<std::string> format;
    std::string batch;
    std::string save;
    bool keepFolders = false;
    bool fullPaths = false;
    bool json = false;
    std::vector<std::string> paths;
};

// A usage error or a task that cannot run: one line, exit status 2.
int usageError(const QString& message) {
    ConsoleGate::printError(QStringLiteral("seqmate-cli: ") + message);
    return 2;
}

QString q(const std::string& s) {
    return QString::fromStdString(s);
}

// The first path argument that is not valid UTF-8, escaped; empty when none.
QString invalidPathArgument(const std::vector<std::string>& arguments) {
    for (const std::string& a : arguments)
        if (!pathFromArgument(a)) return escapedArgument(a);
    return QString();
}

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    QCoreApplication::setOrganizationName(QStringLiteral("Corvane"));
    QCoreApplication::setApplicationName(QStringLiteral("Seqmate"));

    Options o;
    CLI::App cli{"Seqmate: batch renaming of image sequences and other files.\n"
                 "Adds PATHs (folders are descended into), previews a rename task and prints\n"
                 "every old name beside its new one, with duplicates flagged."};
    cli.add_option("-t,--task", o.task,
                   "a tag 1-26 or a name: " + cliTaskNames().join(u' ').toStdString());
    cli.add_option("-s,--set", o.sets,
                   "KEY=VALUE: a setting by its batch-file key (find, matchCase, offset, ...); "
                   "repeatable")
        ->allow_extra_args(false);
    cli.add_option(
        "--format", o.format,
        "the conform format: kind tokens written \"@@ Kind @@\" (Filename, Frame Number, "
        "File Extension, Created Date, Today's Date), free text between them");
    cli.add_option("-b,--batch", o.batch, "start from a batch file; PATHs are added after");
    cli.add_option("--save", o.save, "write the batch file after adding and setting");
    cli.add_flag("--keep-folders", o.keepFolders, "add folders whole, as items");
    cli.add_flag("--full-paths", o.fullPaths, "show full paths (\"~\" for the home folder)");
    cli.add_flag("--json", o.json,
                 "print JSON: the preview, the items without a task, the gaps of check-gaps");
    cli.add_option("PATH", o.paths, "files and folders to add, in order");
    CommitOptions commit;
    addCommitOptions(cli, commit);
    try {
        cli.parse(argc, argv);
    } catch (const CLI::CallForHelp& e) {
        return cli.exit(e);
    } catch (const CLI::CallForAllHelp& e) {
        return cli.exit(e);
    } catch (const CLI::ParseError& e) {
        return usageError(QString::fromStdString(e.what()));
    }

    std::vector<std::string> pathArguments = o.paths;
    for (const std::string* p : {&o.batch, &o.save, &commit.undo})
        pathArguments.push_back(*p);
    if (const QString bad = invalidPathArgument(pathArguments); !bad.isEmpty())
        return usageError(QStringLiteral("not a valid UTF-8 path: %1").arg(bad));

    // As the super-user the log is written in the machine-wide library folder,
    // which the log itself does not create.
    if (QXLocalPaths::isSuperUser())
        QDir().mkpath(QXLocalPaths::libraryDirectory(false) + QStringLiteral("/Logs/Corvane"));
    QXLog::createNewLog(QStringLiteral("Seqmate"));
    if (const auto status = runJournalCommand(commit)) {
        QXLog::finishWriting();
        return *status;
    }
    // From here on the console's lines wait until the results are out.
    ConsoleGate gate;
    const auto finish = [](int status) {
        QXLog::finishWriting();
        return status;
    };
    TerminalView view;
    view.setQuiet(o.json);
    // Kept until the process ends: freeing 100,000 items and their previews one
    // by one would only delay the exit. The static keeps it reachable, so leak
    // checkers do not count it.
    static MyDocument* const document = new MyDocument(&view);
    MyDocument& doc = *document;

    if (!o.batch.empty()) {
        const QString batch = q(o.batch);
        if (!QFileInfo(batch).isFile())
            return usageError(QStringLiteral("no batch file %1").arg(batch));
        QString problem;
        doc.readFromURL(batch, &problem);
        if (!problem.isEmpty())
            return finish(
                usageError(QStringLiteral("not a batch file: %1 (%2)").arg(batch, problem)));
        const QVariantMap dict = doc.batchFileDict();
        doc.setSelectedTag(dict.value(QStringLiteral("selectedAction")).toInt());
        doc.setSettingsFromDictionary(dict.value(QStringLiteral("settings")).toMap());
    }
    if (!o.task.empty()) {
        const auto tag = parseTask(q(o.task));
        if (!tag) return usageError(QStringLiteral("unknown task %1").arg(q(o.task)));
        doc.setSelectedTag(*tag);
    }
    const int tag = doc.selectedTag();
    for (const std::string& s : o.sets) {
        const QString kv = q(s);
        const qsizetype eq = kv.indexOf(u'=');
        if (eq <= 0) return usageError(QStringLiteral("expected KEY=VALUE, got %1").arg(kv));
        const QString key = kv.left(eq), value = kv.mid(eq + 1);
        const MyDocument::SettingField field = MyDocument::settingField(tag, key);
        if (field.outlet.isEmpty())
            return usageError(QStringLiteral("the task has no setting %1").arg(key));
        if (field.isCheck) {
            const auto state = parseCheckState(value);
            if (!state)
                return usageError(QStringLiteral("%1 takes 1 or 0, not %2").arg(key, value));
            doc.setCheckState(field.outlet, *state);
        } else {
            doc.setFieldText(field.outlet, value);
        }
    }
    if (o.format) {
        QVariantList tokens;
        for (const QString& t : parseFormat(q(*o.format)))
            tokens.append(t);
        doc.setTokens(tokens);
    }

    for (const std::string& p : o.paths) {
        const QString path = q(p);
        if (!QFileInfo::exists(QFileInfo(path).absoluteFilePath()) && !o.json)
            std::fprintf(stderr, "warning: %s does not exist; it is added as it stands\n",
                         path.toLocal8Bit().constData());
        doc.addFileToList(QFileInfo(path).absoluteFilePath(), true, o.keepFolders);
    }
    QXLog::appendLog(QStringLiteral("%1 item(s) added").arg(doc.fileCount()));
    if (const qsizetype skipped = doc.skippedNameCount())
        ConsoleGate::printError(
            QStringLiteral("warning: %1 folder entr%2 skipped: the name is not valid UTF-8 "
                           "(each is in the log)")
                .arg(skipped)
                .arg(skipped == 1 ? QStringLiteral("y") : QStringLiteral("ies")));

    if (!o.save.empty() && !doc.writeToURL(q(o.save)))
        return finish(
            usageError(QStringLiteral("could not write the batch file %1").arg(q(o.save))));

    if (commit.apply && (tag == 0 || tag == 8))
        return finish(usageError(QStringLiteral("--apply needs a task that renames files")));
    if (tag == 0) {
        if (o.json)
            printItemsJson(doc);
        else
            printItems(doc, o.fullPaths);
        return finish(0);
    }
    const QString taskName = cliTaskNames().value(tag - 1, QString::number(tag));
    if (tag == 8) {
        const auto report = doc.checkFrameGaps();
        if (!report) {
            gate.dropExceptionLines();
            return finish(usageError(
                QStringLiteral("%1: the check failed; the log has the details").arg(taskName)));
        }
        if (o.json) printGapsJson(report->gaps);
        return finish(0);
    }
    doc.generatePreviewsOnThread();
    // A task that fails says why, once, instead of a table of unchanged names;
    // nothing is renamed.
    if (const auto failure = doc.lastPreviewFailure()) {
        gate.dropExceptionLines();
        return finish(usageError(taskName + QStringLiteral(": ") + failure->message));
    }
    const PreviewRows rows = PreviewRows::gather(doc);
    if (o.json)
        printJson(doc, rows);
    else
        printTable(doc, rows, o.fullPaths);
    gate.release();
    return finish(commit.apply ? runCommit(doc, commit, rows) : 0);
}
