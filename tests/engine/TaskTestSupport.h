#pragma once

// Shared helpers of the task-family tests: a document of items named
// "/tmp/x/<name>", a preview run of one task, and what it left behind.

#include "MyDocument.h"
#include "QXConsole.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "RecordingView.h"
#include "TempTree.h"

#include <QFile>
#include <QMutex>
#include <QVariantMap>
#include <gtest/gtest.h>
#include <ostream>

using namespace Qt::Literals::StringLiterals;

using TaskMethod = bool (MyDocument::*)(const QVariantMap&, const FileList&);

inline void PrintTo(const QString& s, std::ostream* os) {
    *os << '"' << s.toStdString() << '"';
}
inline void PrintTo(const QStringList& l, std::ostream* os) {
    *os << '[' << l.join(QStringLiteral(" | ")).toStdString() << ']';
}

inline FileList itemsNamed(const QStringList& names) {
    FileList files;
    for (const QString& n : names)
        files.append(QXFileItem::fileItemWithFile(QStringLiteral("/tmp/x/") + n));
    return files;
}

inline QStringList fileNames(const FileList& files) {
    QStringList out;
    for (const auto& f : files)
        out.append(f->fileName());
    return out;
}

inline QStringList previewNames(const FileList& files) {
    QStringList out;
    for (const auto& f : files)
        out.append(f->previewObject()->fileName());
    return out;
}

inline QVariantMap withPreview(QVariantMap settings) {
    settings.insert(QStringLiteral("preview"), true);
    return settings;
}

// A document holding items for names, on a recording view.
struct TaskDoc {
    RecordingView view;
    MyDocument doc{&view};
    FileList files;

    explicit TaskDoc(const QStringList& names) : files(itemsNamed(names)) {
        doc.setFileArray(files);
    }

    // Runs the task in preview mode over files (default: the whole list) and
    // checks that the items themselves kept their names.
    bool preview(TaskMethod task, const QVariantMap& settings) {
        return preview(task, settings, files);
    }
    bool preview(TaskMethod task, const QVariantMap& settings, const FileList& handed) {
        const QStringList before = fileNames(files);
        const bool ok = (doc.*task)(withPreview(settings), handed);
        EXPECT_EQ(fileNames(files), before) << "a preview changed the items themselves";
        return ok;
    }
    QStringList previews() const { return previewNames(files); }
};

// The preview names a task proposes for names, one document per call.
inline QStringList previewOf(TaskMethod task, const QStringList& names,
                             const QVariantMap& settings = {}, bool* ok = nullptr) {
    TaskDoc t(names);
    const bool result = t.preview(task, settings);
    if (ok) *ok = result;
    return t.previews();
}

// The log as written so far; tests look for lines they caused.
inline QString logText() {
    QXLog::finishWriting();
    QFile f(QXLog::currentLogPath());
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// Counts lines of the log that end with " - " + message (time stamp first).
inline qsizetype logCount(const QString& message) {
    qsizetype n = 0;
    for (const QString& line : logText().split(u'\n'))
        if (line.endsWith(QStringLiteral(" - ") + message)) ++n;
    return n;
}

// A fresh log in the private home for each suite: the tests run as root,
// whose log would go to the machine-wide folder, so they pose as a user.
class LoggedTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() {
        QXLog::finishWriting();
        QXLocalPaths::setUserIdForTesting(1000);
        QXLog::resetForTesting();
        QXLog::createNewLog();
    }
    static void TearDownTestSuite() {
        QXLog::finishWriting();
        QXLocalPaths::setUserIdForTesting(std::nullopt);
        QXLog::resetForTesting();
    }
};

// Collects the console lines printed while it lives (exceptions are printed
// there as well as logged).
class ConsoleLines {
public:
    ConsoleLines() {
        QXConsole::setSink([this](const QString& line) {
            QMutexLocker lock(&m_mutex);
            lines.append(line);
        });
    }
    ~ConsoleLines() { QXConsole::setSink(nullptr); }
    ConsoleLines(const ConsoleLines&) = delete;
    ConsoleLines& operator=(const ConsoleLines&) = delete;

    QStringList lines;

private:
    QMutex m_mutex;
};
