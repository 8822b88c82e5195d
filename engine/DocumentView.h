#pragma once

#include <QString>

// An alert as the engine asks for it. The answer is the platform's return
// code of the button chosen: Default (1), Alternate (0) or Other (-1).
struct AlertRequest {
    enum class Parent { MainWindow, ProgressSheet };
    QString messageText;
    QString informativeText;
    QString defaultButton;   // empty: the platform's single default button
    QString alternateButton; // empty: none
    QString otherButton;     // empty: none
    Parent parent = Parent::MainWindow;
    bool block = true; // the caller waits for the answer
};

// Everything a batch shows to the user goes through this interface: the GUI
// implements it with widgets, the CLI with the terminal, the tests with a
// recorder. Methods may be called from any thread; "wait" says whether the
// caller waits for the front end to have done it.
class DocumentView {
public:
    static constexpr int AlertDefault = 1;
    static constexpr int AlertAlternate = 0;
    static constexpr int AlertOther = -1;

    enum class Spinner { AddFiles, Preview };

    virtual ~DocumentView() = default;

    virtual void reloadTable(bool wait) = 0;
    virtual void setSpinner(Spinner which, bool running) = 0;
    virtual void setRenameEnabled(bool enabled) = 0;
    virtual void clearSelection() {}
    // The settings form changed under the front end (a reopened batch).
    virtual void settingsChanged() {}
    // The task pop-up changed (the panel to show follows from the tag).
    virtual void taskChanged(int tag, const QString& blankDescription) {
        (void)tag;
        (void)blankDescription;
    }

    // The progress sheet; the engine waits for each.
    virtual void startProgress(int maximum) = 0;
    virtual void incrementProgress() = 0;
    virtual void endProgress() = 0;

    // Shows an alert; returns the answer when block is set, else -1.
    virtual int alert(const AlertRequest& request) = 0;
    // The informational attention request (one bounce).
    virtual void requestAttention() {}
};

// A view that shows nothing and answers every alert with its default button.
class NullDocumentView : public DocumentView {
public:
    void reloadTable(bool) override {}
    void setSpinner(Spinner, bool) override {}
    void setRenameEnabled(bool) override {}
    void startProgress(int) override {}
    void incrementProgress() override {}
    void endProgress() override {}
    int alert(const AlertRequest& r) override { return r.block ? AlertDefault : -1; }
};
