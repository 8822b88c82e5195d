// seqmate-cli: the rename engine without the desktop window, for pipelines.
#include "CliOptions.h"
#include "CommitCommands.h"
#include "InTwoHalves.h"
#include "MyDocument.h"
#include "PreviewRows.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "TerminalView.h"

#include <CLI/CLI.hpp>
#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStringEncoder>
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

int usageError(const QString& message) {
    std::fprintf(stderr, "seqmate-cli: %s\n", message.toLocal8Bit().constData());
    return 2;
}

QString q(const std::string& s) {
    return QString::fromStdString(s);
}

QString describeComponent(const NameComponent& c, quint32 padding) {
    const QString kind = componentKindName(c.kind);
    if (c.kind == ComponentKind::FrameNumber)
        return QStringLiteral("%1 %2 (padding %3)")
            .arg(kind, FrameValue::toText(c.value))
            .arg(padding);
    return QStringLiteral("%1 \"%2\"").arg(kind, c.text());
}

// Without a task: every item with its parsed components.
void printItems(const MyDocument& doc, bool fullPaths) {
    for (const FileItemPtr& item : doc.fileArray()) {
        const QString shown = fullPaths ? item->displayName() : item->fileName();
        QStringList parts;
        const quint32 padding = item->paddingLength();
        for (const NameComponent& c : item->components())
            parts.append(describeComponent(c, padding));
        std::printf("%s%s\n    %s\n", shown.toLocal8Bit().constData(),
                    item->isDir() ? " (folder)" : "",
                    parts.join(QStringLiteral(" | ")).toLocal8Bit().constData());
    }
    std::printf("%lld item(s)\n", static_cast<long long>(doc.fileCount()));
}

// A JSON string literal in UTF-8. Written by hand because building a
// QJsonDocument per row made the JSON output the slowest part of a preview of
// 100,000 names; the escaping follows RFC 8259.
void appendJsonString(QByteArray& out, const QString& text) {
    out += '"';
    const QByteArray utf8 = text.toUtf8();
    for (const char c : utf8) {
        const auto u = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (u < 0x20) {
            char esc[8];
            std::snprintf(esc, sizeof esc, "\\u%04x", u);
            out += esc;
        } else {
            out += c;
        }
    }
    out += '"';
}

// As out += text.toLocal8Bit(), without a byte array per name.
void appendLocal8Bit(QByteArray& out, const QString& text) {
    static thread_local QStringEncoder encoder(QStringEncoder::System,
                                               QStringConverter::Flag::Stateless);
    const qsizetype at = out.size();
    out.resize(at + encoder.requiredSpace(text.size()));
    char* const end = encoder.appendToBuffer(out.data() + at, text);
    out.resize(end - out.data());
}

// Writes out what has gathered once it is large (or always, when told to):
// 100,000 rows go out in a few dozen writes.
void flushOutput(QByteArray& out, bool always = false) {
    if (!always && out.size() <= (1 << 16)) return;
    std::fwrite(out.constData(), 1, static_cast<size_t>(out.size()), stdout);
    out.clear();
}

// One JSON array of {"path", "old", "new", "conflict"} objects, in list order,
// streamed in chunks.
void printJson(const MyDocument& doc, const PreviewRows& rows) {
    const FileList files = doc.fileArray();
    QByteArray out = "[";
    for (qsizetype i = 0; i < files.size(); ++i) {
        out += i == 0 ? "\n  {\"path\": " : ",\n  {\"path\": ";
        appendJsonString(out, files[i]->fullPath());
        out += ", \"old\": ";
        appendJsonString(out, rows.names[i]);
        out += ", \"new\": ";
        appendJsonString(out, rows.newNames[i]);
        out += rows.conflicting[i] ? ", \"conflict\": true}" : ", \"conflict\": false}";
        flushOutput(out);
    }
    out += files.isEmpty() ? "]\n" : "\n]\n";
    flushOutput(out, true);
}

// The rows are formatted in two halves on two threads: at 100,000 names the
// table is a visible part of an apply's time, while the second core waits.
// The first half goes out as it is formatted, the second once it is done.
void printTable(const MyDocument& doc, const PreviewRows& rows, bool fullPaths) {
    const qsizetype count = rows.names.size();
    QStringList shownFullPaths;
    if (fullPaths) {
        const FileList files = doc.fileArray();
        shownFullPaths.reserve(count);
        for (const FileItemPtr& item : files)
            shownFullPaths.append(item->displayName());
    }
    const QStringList& olds = fullPaths ? shownFullPaths : rows.names;
    qsizetype width = 0;
    for (const QString& old : olds)
        width = std::max(width, old.size());
    QByteArray second;
    inTwoHalves(count, kTwoHalvesMinimum, [&](qsizetype from, qsizetype to) {
        QByteArray local;
        QByteArray& out = from == 0 ? local : second;
        for (qsizetype i = from; i < to; ++i) {
            appendLocal8Bit(out, olds[i]);
            out.append(std::max<qsizetype>(width - olds[i].size(), 0), ' ');
            out += " -> ";
            appendLocal8Bit(out, rows.newNames[i]);
            out += rows.conflicting[i] ? "  [conflict]\n" : "\n";
            if (from == 0) flushOutput(out);
        }
        if (from == 0) flushOutput(out, true);
    });
    flushOutput(second, true);
    std::printf("%lld file(s), %d to rename, %d conflict(s)\n", static_cast<long long>(count),
                rows.changed, rows.conflicts);
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
    cli.add_flag("--json", o.json, "print the preview as one JSON array");
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

    // As the super-user the log is written in the machine-wide library folder,
    // which the log itself does not create.
    if (QXLocalPaths::isSuperUser())
        QDir().mkpath(QXLocalPaths::libraryDirectory(false) + QStringLiteral("/Logs/Corvane"));
    QXLog::createNewLog(QStringLiteral("Seqmate"));
    if (const auto status = runJournalCommand(commit)) {
        QXLog::finishWriting();
        return *status;
    }
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
        doc.readFromURL(batch);
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

    if (!o.save.empty() && !doc.writeToURL(q(o.save)))
        return usageError(QStringLiteral("could not write the batch file %1").arg(q(o.save)));

    if (commit.apply && (tag == 0 || tag == 8))
        return usageError(QStringLiteral("--apply needs a task that renames files"));
    if (tag == 0) {
        printItems(doc, o.fullPaths);
        QXLog::finishWriting();
        return 0;
    }
    if (tag == 8) {
        doc.checkFrameGaps();
        QXLog::finishWriting();
        return 0;
    }
    doc.generatePreviewsOnThread();
    const PreviewRows rows = PreviewRows::gather(doc);
    if (o.json)
        printJson(doc, rows);
    else
        printTable(doc, rows, o.fullPaths);
    const int status = commit.apply ? runCommit(doc, commit, rows) : 0;
    QXLog::finishWriting();
    return status;
}
