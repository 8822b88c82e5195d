#pragma once

#include <QObject>
#include <QString>

#include <functional>

class DocumentWindow;
class MyDocument;
class QXAlert;

// One per document window: the title ("Untitled Batch", "Untitled Batch 2",
// or the batch file's name) with the modified marker, saving, and the save
// prompt when a changed batch is closed.
class QXWindowController : public QObject {
    Q_OBJECT
public:
    QXWindowController(DocumentWindow& window, MyDocument& document);

    QString filePath() const { return m_filePath; }
    void setFilePath(const QString& path);
    int untitledNumber() const { return m_untitledNumber; }
    void setUntitledNumber(int number);
    // "Untitled", "Untitled 2", ... or the batch file's name.
    QString displayName() const;
    // A saved batch gets the file's name; an unsaved one its display name
    // with every "Untitled" read as "Untitled Batch".
    static QString windowTitleForDocumentDisplayName(const QString& displayName, bool hasFile);
    void synchronizeWindowTitleWithDocumentName();

    bool isDocumentEdited() const;
    void setDocumentEdited(bool edited);

    // Save, or Save As for a batch never saved; done gets whether it was written.
    void saveDocument(std::function<void(bool saved)> done = {});
    void saveDocumentAs(std::function<void(bool saved)> done = {});
    // Writes the batch there and makes it the document's file.
    bool writeTo(const QString& path);
    // The save prompt of a close: Save, Cancel or Don't Save, as a sheet.
    // done(true) when the window may close.
    void askToSave(std::function<void(bool mayClose)> done);
    Q_INVOKABLE void saveAlertDidEnd(QXAlert* alert, int returnCode);

private:
    DocumentWindow& m_window;
    MyDocument& m_document;
    QString m_filePath;
    int m_untitledNumber = 1;
    std::function<void(bool)> m_afterPrompt;
};
