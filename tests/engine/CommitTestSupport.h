#pragma once

// Shared by the commit and journal tests: a document over real files in a
// temporary folder, names proposed as a task in commit mode would, and the
// log lines the commit wrote.

#include "FileMover.h"
#include "MyDocument.h"
#include "Preferences.h"
#include "QXLocalPaths.h"
#include "QXLog.h"
#include "RecordingView.h"
#include "RenameJournal.h"
#include "TempTree.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <gtest/gtest.h>

using namespace Qt::Literals::StringLiterals;

class CommitFixture : public ::testing::Test {
protected:
    void SetUp() override {
        // An ordinary user: the log and the journals go to the private HOME.
        QXLocalPaths::setUserIdForTesting(501);
        QXLog::resetForTesting();
        QXLog::sharedController().setAppName(u"CommitTest"_s);
        QXLog::createNewLog(u"CommitTest"_s);
        QDir(RenameJournal::folder()).removeRecursively();
        Preferences::setConflictAction(0);
    }
    // Hooks and overrides are cleared after each test: the task tests commit too.
    void TearDown() override {
        FileMover::setFaultHook({});
        FileMover::setForceFallbackForTesting(false);
        Preferences::setConflictActionOverride(std::nullopt);
        QXLog::finishWriting();
        QXLog::resetForTesting();
        QXLocalPaths::setUserIdForTesting(std::nullopt);
    }

    // Files of the tree (content: their own name) become the batch, in order;
    // a folder of the tree may be put before every name.
    FileList batch(const QStringList& names, const QString& folder = {}) {
        FileList files;
        for (QString n : names) {
            n.prepend(folder);
            const QString path =
                n.endsWith(u'/') ? tree.dir(n.chopped(1)) : tree.file(n, n.toUtf8());
            FileItemPtr item = QXFileItem::fileItemWithFile(path);
            item->setIsDir(n.endsWith(u'/'));
            files.append(item);
        }
        doc.setFileArray(files);
        return files;
    }
    // What a task in commit mode leaves: the item's components spell the new name.
    static void propose(const FileItemPtr& item, const QString& name) {
        item->setComponents({NameComponent::filename(name)});
    }
    // The batch of the first names, each proposed to become the second.
    FileList renaming(const QList<QPair<QString, QString>>& renames) {
        QStringList names;
        for (const auto& r : renames)
            names.append(r.first);
        const FileList f = batch(names);
        for (qsizetype i = 0; i < renames.size(); ++i)
            propose(f[i], renames[i].second);
        return f;
    }
    // The messages the log holds (time stamps cut off).
    static QStringList logMessages() {
        QXLog::finishWriting();
        QFile f(QXLog::currentLogPath());
        QStringList out;
        if (!f.open(QIODevice::ReadOnly)) return out;
        for (const QString& line : QString::fromUtf8(f.readAll()).split(u'\n')) {
            const qsizetype cut = line.indexOf(u" - "_s);
            if (cut > 0) out.append(line.mid(cut + 3));
        }
        return out;
    }
    static QString stamp() { return QStringLiteral(R"(\d{4}-\d\d-\d\d \d\d-\d\d-\d\d)"); }
    // The one entry of a folder of the tree matching a pattern, or empty.
    QString entryMatching(const QString& folder, const QString& pattern) const {
        const QRegularExpression re(QRegularExpression::anchoredPattern(pattern));
        for (const QString& e : tree.list(folder))
            if (re.match(e).hasMatch()) return e;
        return QString();
    }

    // Records whether the progress sheet was up when each alert came.
    struct SheetView : RecordingView {
        int alert(const AlertRequest& r) override {
            sheetUp.append(progressEvents.size() == 1);
            return RecordingView::alert(r);
        }
        QList<bool> sheetUp;
    };

    TempTree tree;
    SheetView view;
    MyDocument doc{&view};
};
