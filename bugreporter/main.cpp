// seqmate-bugreporter: shows the crash report of Seqmate's last run and keeps
// a copy of it for support. Started by the application at launch after a
// crash, with the report's path: then it opens a window. With --save or
// --copy, --no-window, or no display to show a window on, it works on the
// terminal instead.
#include "BugReportWindow.h"
#include "QXFileManager.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>

#include <cstdio>

namespace {

void out(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
}

void err(const QString& text) {
    const QByteArray bytes = (text + u'\n').toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stderr);
}

// Never over an existing file: the first free "<name> N" instead.
QString freeTarget(const QString& path) {
    return QXFileManager::uniqueFilename(path);
}

// Whether a window could be seen: a platform that draws nowhere (offscreen,
// minimal) or no display at all would leave a window waiting for nobody.
bool canShowWindow(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const QByteArray arg(argv[i]);
        if (arg == "--no-window" || arg == "--save" || arg == "--copy" ||
            arg.startsWith("--save=") || arg.startsWith("--copy=") || arg == "-h" ||
            arg == "--help")
            return false;
    }
    const QByteArray platform = qgetenv("QT_QPA_PLATFORM");
    if (platform.startsWith("offscreen") || platform.startsWith("minimal")) return false;
    return !platform.isEmpty() || qEnvironmentVariableIsSet("DISPLAY") ||
           qEnvironmentVariableIsSet("WAYLAND_DISPLAY");
}

QString usage() {
    return QStringLiteral(
        "Usage: seqmate-bugreporter [--save FILE] [--copy FOLDER] [--no-window] REPORT");
}

// The one report the command line names; "" (after the usage line) otherwise.
QString onlyReport(const QCommandLineParser& parser) {
    const QStringList reports = parser.positionalArguments();
    if (reports.size() == 1 && !reports.first().isEmpty()) return reports.first();
    err(usage());
    return QString();
}

int showWindow(int argc, char** argv) {
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("seqmate-bugreporter"));
    QCommandLineParser parser;
    parser.addPositionalArgument(QStringLiteral("report"), QStringLiteral("The crash report."));
    parser.process(app);
    const QString report = onlyReport(parser);
    if (report.isEmpty()) return 2;
    BugReportWindow window(report);
    window.show();
    const int status = app.exec();
    return window.hasReport() ? status : 1;
}

} // namespace

int main(int argc, char** argv) {
    if (canShowWindow(argc, argv)) return showWindow(argc, argv);
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("seqmate-bugreporter"));
    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Shows a Seqmate crash report and saves or copies it for support."));
    parser.addHelpOption();
    const QCommandLineOption save(QStringLiteral("save"),
                                  QStringLiteral("Write the report's text to <file>."),
                                  QStringLiteral("file"));
    const QCommandLineOption copy(QStringLiteral("copy"),
                                  QStringLiteral("Copy the report file into <folder>."),
                                  QStringLiteral("folder"));
    const QCommandLineOption noWindow(QStringLiteral("no-window"),
                                      QStringLiteral("Print the report instead of showing it."));
    parser.addOption(save);
    parser.addOption(copy);
    parser.addOption(noWindow);
    parser.addPositionalArgument(QStringLiteral("report"), QStringLiteral("The crash report."));
    parser.process(app);

    const QString report = onlyReport(parser);
    if (report.isEmpty()) return 2;
    QFile file(report);
    if (!file.open(QIODevice::ReadOnly)) {
        err(QStringLiteral("Unable to read crash report %1: %2").arg(report, file.errorString()));
        return 1;
    }
    const QByteArray text = file.readAll();

    out(QStringLiteral("Seqmate quit unexpectedly the last time it ran.\nCrash report: %1\n\n")
            .arg(report));
    std::fwrite(text.constData(), 1, static_cast<size_t>(text.size()), stdout);
    if (!text.endsWith('\n')) out(QStringLiteral("\n"));

    int status = 0;
    if (parser.isSet(save)) {
        const QString target = freeTarget(parser.value(save));
        QSaveFile saved(target);
        if (saved.open(QIODevice::WriteOnly) && saved.write(text) == text.size() &&
            saved.commit()) {
            out(QStringLiteral("\nSaved the report to %1\n").arg(target));
        } else {
            err(QStringLiteral("Unable to save the report to %1: %2")
                    .arg(target, saved.errorString()));
            status = 1;
        }
    }
    if (parser.isSet(copy)) {
        const QString target =
            freeTarget(QXFileManager::joinPath(parser.value(copy), QFileInfo(report).fileName()));
        QString error;
        if (QXFileManager::copyItem(report, target, &error)) {
            out(QStringLiteral("\nCopied the report to %1\n").arg(target));
        } else {
            err(QStringLiteral("Unable to copy the report: %1").arg(error));
            status = 1;
        }
    }
    if (!parser.isSet(save) && !parser.isSet(copy))
        out(QStringLiteral("\nTo keep it for support: seqmate-bugreporter --save FILE or "
                           "--copy FOLDER with the report's path.\n"));
    return status;
}
