#include "BatchOutput.h"

#include "InTwoHalves.h"
#include "MyDocument.h"
#include "PreviewRows.h"

#include <QStringEncoder>
#include <algorithm>
#include <cstdio>

namespace {
QString describeComponent(const NameComponent& c, quint32 padding) {
    const QString kind = componentKindName(c.kind);
    if (c.kind == ComponentKind::FrameNumber)
        return QStringLiteral("%1 %2 (padding %3)")
            .arg(kind, FrameValue::toText(c.value))
            .arg(padding);
    return QStringLiteral("%1 \"%2\"").arg(kind, c.text());
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

} // namespace

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

// Streamed in chunks.
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
        out += rows.conflicting[i] ? ", \"conflict\": true" : ", \"conflict\": false";
        if (!rows.problems[i].isEmpty()) {
            out += ", \"problem\": ";
            appendJsonString(out, QStringLiteral("not a file name: ") + rows.problems[i]);
        }
        out += '}';
        flushOutput(out);
    }
    out += files.isEmpty() ? "]\n" : "\n]\n";
    flushOutput(out, true);
}

void printItemsJson(const MyDocument& doc) {
    QByteArray out = "[";
    bool first = true;
    for (const FileItemPtr& item : doc.fileArray()) {
        out += first ? "\n  {\"path\": " : ",\n  {\"path\": ";
        first = false;
        appendJsonString(out, item->fullPath());
        out += ", \"name\": ";
        appendJsonString(out, item->fileName());
        out += item->isDir() ? ", \"folder\": true" : ", \"folder\": false";
        out += ", \"padding\": " + QByteArray::number(item->paddingLength());
        out += ", \"components\": [";
        bool firstComponent = true;
        for (const NameComponent& c : item->components()) {
            out += firstComponent ? "{" : ", {";
            firstComponent = false;
            appendJsonString(out, componentKindName(c.kind));
            out += ": ";
            if (c.kind == ComponentKind::FrameNumber && c.holdsNumber())
                out += FrameValue::toText(c.value).toLatin1();
            else
                appendJsonString(out, c.text());
            out += '}';
        }
        out += "]}";
        flushOutput(out);
    }
    out += first ? "]\n" : "\n]\n";
    flushOutput(out, true);
}

void printGapsJson(const QStringList& gaps) {
    QByteArray out = "[";
    for (qsizetype i = 0; i < gaps.size(); ++i) {
        if (i > 0) out += ", ";
        appendJsonString(out, gaps[i]);
    }
    out += "]\n";
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
            if (rows.conflicting[i]) out += "  [conflict]";
            if (!rows.problems[i].isEmpty()) {
                out += "  [not a file name: ";
                appendLocal8Bit(out, rows.problems[i]);
                out += ']';
            }
            out += '\n';
            if (from == 0) flushOutput(out);
        }
        if (from == 0) flushOutput(out, true);
    });
    flushOutput(second, true);
    std::printf("%lld file(s), %d to rename, %d conflict(s)", static_cast<long long>(count),
                rows.changed, rows.conflicts);
    if (rows.invalid > 0) std::printf(", %d not a file name", rows.invalid);
    std::printf("\n");
}
