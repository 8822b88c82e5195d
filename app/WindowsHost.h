#pragma once

#include "DocumentHost.h"

// The application controller's view of the document windows: the window
// registry, one call each.
class WindowsHost : public DocumentHost {
public:
    bool openBatchFile(const QString& path, QString* error) override;
    bool hasOpenDocument() const override;
    void newUntitledDocument() override;
    void addToFrontmost(const QStringList& paths) override;
    QWidget* frontmostWindow() const override;
};
