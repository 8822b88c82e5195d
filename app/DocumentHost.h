#pragma once

#include <QString>
#include <QStringList>

class QWidget;

// What the application controller needs from the open document windows. The
// program implements it over its window registry; tests implement a recorder.
class DocumentHost {
public:
    virtual ~DocumentHost() = default;
    // Opens a batch file in a new window. On failure returns false and sets
    // *error to a description; on success *error is left as it was.
    virtual bool openBatchFile(const QString& path, QString* error) = 0;
    virtual bool hasOpenDocument() const = 0;
    virtual void newUntitledDocument() = 0;
    // Adds the paths to the frontmost document's list on a thread of its own.
    virtual void addToFrontmost(const QStringList& paths) = 0;
    // The frontmost document window, or null when none is open.
    virtual QWidget* frontmostWindow() const = 0;
};
