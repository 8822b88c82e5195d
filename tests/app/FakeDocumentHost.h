#pragma once
// Records what the application controller asks of the document windows.
#include "DocumentHost.h"

#include <QFileInfo>
#include <QHash>

class FakeDocumentHost : public DocumentHost {
public:
    bool openBatchFile(const QString& path, QString* error) override {
        const QString name = QFileInfo(path).fileName();
        if (failures.contains(name)) {
            *error = failures.value(name);
            return false;
        }
        ++documents;
        calls << QStringLiteral("open ") + name;
        return true;
    }
    bool hasOpenDocument() const override { return documents > 0; }
    void newUntitledDocument() override {
        ++documents;
        calls << QStringLiteral("new");
    }
    void addToFrontmost(const QStringList& paths) override {
        QStringList names;
        for (const QString& p : paths)
            names << QFileInfo(p).fileName();
        calls << QStringLiteral("add ") + names.join(u',');
    }
    QWidget* frontmostWindow() const override { return nullptr; }

    QStringList calls;
    QHash<QString, QString> failures; // file name -> the error its opening reports
    int documents = 0;
};
