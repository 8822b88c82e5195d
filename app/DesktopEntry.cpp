#include "DesktopEntry.h"

#include <QFile>
#include <QStandardPaths>

namespace {

const QString mainGroup = QStringLiteral("Desktop Entry");

// The escapes every string value may hold: \s \n \t \r and \\.
QString unescapeValue(QStringView raw) {
    QString out;
    out.reserve(raw.size());
    for (qsizetype i = 0; i < raw.size(); ++i) {
        const QChar c = raw[i];
        if (c != u'\\' || i + 1 == raw.size()) {
            out += c;
            continue;
        }
        switch (raw[++i].unicode()) {
        case u's':
            out += u' ';
            break;
        case u'n':
            out += u'\n';
            break;
        case u't':
            out += u'\t';
            break;
        case u'r':
            out += u'\r';
            break;
        case u'\\':
            out += u'\\';
            break;
        default:
            out += u'\\';
            out += raw[i];
            break;
        }
    }
    return out;
}

// An argument made only of a field code stands for the files or URLs the
// entry is started with; we pass our own arguments instead.
bool isFieldCodeOnly(const QString& arg) {
    return arg.size() == 2 && arg[0] == u'%' && QStringLiteral("fFuUdDnNickvm").contains(arg[1]);
}

QString expandFieldCodes(const QString& arg) {
    QString out;
    for (qsizetype i = 0; i < arg.size(); ++i) {
        if (arg[i] != u'%' || i + 1 == arg.size()) {
            out += arg[i];
            continue;
        }
        if (arg[++i] == u'%') out += u'%';
        // Every other code expands to nothing here: no files, icon or location are handed over.
    }
    return out;
}

} // namespace

bool DesktopEntry::load(const QString& path) {
    m_values.clear();
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) return false;
    bool inMain = false, sawMain = false;
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.isEmpty() || line.startsWith(u'#')) continue;
        if (line.startsWith(u'[') && line.endsWith(u']')) {
            inMain = line.mid(1, line.size() - 2) == mainGroup;
            sawMain = sawMain || inMain;
            continue;
        }
        const qsizetype eq = line.indexOf(u'=');
        if (!inMain || eq <= 0) continue;
        const QString key = line.left(eq).trimmed();
        // Localised variants (Name[de]) are not needed to start a program; the first key wins.
        if (key.contains(u'[') || m_values.contains(key)) continue;
        m_values.insert(key, unescapeValue(QStringView(line).mid(eq + 1).trimmed()));
    }
    return sawMain;
}

QString DesktopEntry::value(const QString& key) const {
    return m_values.value(key);
}

QStringList DesktopEntry::splitExec(const QString& exec) {
    QStringList args;
    QString current;
    bool inArg = false, quoted = false;
    for (qsizetype i = 0; i < exec.size(); ++i) {
        const QChar c = exec[i];
        if (quoted) {
            if (c == u'"') {
                quoted = false;
            } else if (c == u'\\' && i + 1 < exec.size() &&
                       QStringLiteral("\"`$\\").contains(exec[i + 1])) {
                current += exec[++i];
            } else {
                current += c;
            }
        } else if (c == u' ' || c == u'\t') {
            if (inArg) args << current;
            current.clear();
            inArg = false;
        } else {
            inArg = true;
            if (c == u'"')
                quoted = true;
            else
                current += c;
        }
    }
    if (quoted) return {};
    if (inArg) args << current;
    return args;
}

QStringList DesktopEntry::command() const {
    QStringList args;
    for (const QString& arg : splitExec(value(QStringLiteral("Exec")))) {
        if (isFieldCodeOnly(arg)) continue;
        args << expandFieldCodes(arg);
    }
    if (!args.isEmpty() && args.first().isEmpty()) return {};
    return args;
}

bool DesktopEntry::isLaunchable() const {
    const auto isTrue = [this](const char16_t* key) {
        return value(QString::fromUtf16(key)) == QLatin1String("true");
    };
    // TryExec names a program that must exist for the entry to count as installed.
    const QString tryExec = value(QStringLiteral("TryExec"));
    if (!tryExec.isEmpty() && QStandardPaths::findExecutable(tryExec).isEmpty()) return false;
    return value(QStringLiteral("Type")) == QLatin1String("Application") && !isTrue(u"Hidden") &&
           !command().isEmpty();
}

QString DesktopEntry::locate(const QString& fileName) {
    return QStandardPaths::locate(QStandardPaths::ApplicationsLocation, fileName);
}
