#include "CliOptions.h"

const QStringList& cliTaskNames() {
    static const QStringList names = {
        QStringLiteral("find-replace"),
        QStringLiteral("conform"),
        QStringLiteral("offset"),
        QStringLiteral("close-gaps"),
        QStringLiteral("pad"),
        QStringLiteral("reverse"),
        QStringLiteral("renumber"),
        QStringLiteral("check-gaps"),
        QStringLiteral("remove-frame"),
        QStringLiteral("change-ext"),
        QStringLiteral("remove-ext"),
        QStringLiteral("prefix"),
        QStringLiteral("suffix"),
        QStringLiteral("remove-start"),
        QStringLiteral("remove-end"),
        QStringLiteral("remove-range"),
        QStringLiteral("spaces-to-underscores"),
        QStringLiteral("strip"),
        QStringLiteral("trim"),
        QStringLiteral("upper"),
        QStringLiteral("lower"),
        QStringLiteral("lower-ext"),
        QStringLiteral("upper-ext"),
        QStringLiteral("capitalize"),
        QStringLiteral("insert"),
        QStringLiteral("replace-range"),
    };
    return names;
}

std::optional<int> parseTask(const QString& text) {
    bool ok = false;
    const int tag = text.toInt(&ok);
    if (ok) return (tag >= 1 && tag <= 26) ? std::optional<int>(tag) : std::nullopt;
    const qsizetype i = cliTaskNames().indexOf(text.toLower());
    if (i < 0) return std::nullopt;
    return static_cast<int>(i) + 1;
}

QStringList parseFormat(const QString& format) {
    static const QString open = QStringLiteral("@@ ");
    static const QString close = QStringLiteral(" @@");
    QStringList objects;
    qsizetype pos = 0;
    while (pos < format.size()) {
        const qsizetype start = format.indexOf(open, pos);
        const qsizetype end = start < 0 ? -1 : format.indexOf(close, start + open.size());
        if (start < 0 || end < 0) {
            objects.append(format.mid(pos));
            break;
        }
        if (start > pos) objects.append(format.mid(pos, start - pos));
        objects.append(format.mid(start, end + close.size() - start));
        pos = end + close.size();
    }
    return objects;
}

std::optional<int> parseCheckState(const QString& text) {
    const QString t = text.trimmed().toLower();
    if (t == u"1" || t == u"true" || t == u"yes" || t == u"on") return 1;
    if (t == u"0" || t == u"false" || t == u"no" || t == u"off") return 0;
    return std::nullopt;
}
