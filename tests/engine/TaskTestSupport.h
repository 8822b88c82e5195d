#pragma once

// Helpers of the task-family tests: a document of items, a preview run of one
// task, tables of examples, the log and the console.

#include "MyDocument.h"
#include "QXConsole.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "RecordingView.h"
#include "TempTree.h"

#include <QFile>
#include <QMutex>
#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;
using TaskMethod = bool (MyDocument::*)(const QVariantMap&, const FileList&);

// The tables write a list of names as one UTF-8 text: "a.jpg|b.jpg".
inline QStringList names(const char* list) {
    return QString::fromUtf8(list).split(u'|');
}

// A document on a recording view, holding items "/tmp/x/<name>" or files made on disk.
struct TaskDoc {
    std::optional<TempTree> tree; // holds the files when they are made on disk
    RecordingView view;
    MyDocument doc{&view};
    FileList files;

    explicit TaskDoc(const QStringList& names, bool onDisk = false) {
        if (onDisk) tree.emplace();
        for (const QString& n : names)
            files.append(QXFileItem::fileItemWithFile(tree ? tree->file(n) : u"/tmp/x/"_s + n));
        doc.setFileArray(files);
    }
    // Runs the task previewing (on all files unless handed a batch) and
    // checks that the items themselves kept their names.
    bool preview(TaskMethod task, QVariantMap s, const std::optional<FileList>& batch = {}) {
        const QStringList before = previews(false);
        s.insert(u"preview"_s, true);
        const bool ok = (doc.*task)(s, batch.value_or(files));
        EXPECT_EQ(previews(false), before) << "a preview changed the items themselves";
        return ok;
    }
    // The previews' names, or the items' own names.
    QStringList previews(bool ofPreviews = true) const {
        QStringList out;
        for (const auto& f : files)
            out.append(ofPreviews ? f->previewObject()->fileName() : f->fileName());
        return out;
    }
    void setComponents(qsizetype i, const ComponentList& list) {
        files[i]->setComponents(list);
        files[i]->synchronize();
    }
};

// One example of a table: the names handed to a task and the previews it makes.
struct Example {
    const char* label;
    TaskMethod task;
    QVariantMap settings;
    const char* before;
    const char* after;
};

inline void expectExamples(std::initializer_list<Example> examples) {
    for (const auto& ex : examples) {
        SCOPED_TRACE(ex.label);
        TaskDoc t(names(ex.before));
        EXPECT_TRUE(t.preview(ex.task, ex.settings));
        EXPECT_EQ(t.previews(), names(ex.after));
    }
}

// The log written so far.
inline QString logText() {
    QXLog::finishWriting();
    QFile f(QXLog::currentLogPath());
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// Lines of the log whose message (after the time stamp) is exactly message.
inline qsizetype logCount(const QString& message) {
    qsizetype n = 0;
    for (const QString& line : logText().split(u'\n'))
        if (line.endsWith(u" - "_s + message)) ++n;
    return n;
}

// A fresh log in the private home for each suite: root's log would go to the
// machine-wide folder, so the suite poses as an ordinary user.
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

// Collects the console lines printed while it lives (exceptions go there too).
struct ConsoleLines {
    QMutex mutex;
    QStringList all;
    ConsoleLines() {
        QXConsole::setSink([this](const QString& line) {
            QMutexLocker lock(&mutex);
            all.append(line);
        });
    }
    ~ConsoleLines() { QXConsole::setSink(nullptr); }
    QStringList lines() {
        QMutexLocker lock(&mutex);
        return all;
    }
};
