#pragma once

#include <QObject>
#include <QVariantList>

class DocumentWindow;
class MyDocument;
class QComboBox;
class QScrollArea;
class QXClipView;
class TokenField;

// The window's task pop-up and settings area, wired both ways to the
// document: a choice or an edit goes into the document's form and starts a
// new preview; the engine's task and form changes come back to the controls.
class TaskArea : public QObject {
    Q_OBJECT
public:
    // The task a new batch starts on: its panel asks for one thing to type.
    static constexpr int kDefaultTag = 12; // Add Prefix
    static constexpr int kFindReplaceTag = 1;

    TaskArea(DocumentWindow& window, MyDocument& document, QComboBox* popUp,
             QScrollArea* settingsView);

    QXClipView* clipView() const { return m_clipView; }
    TokenField* tokenField() const { return m_tokenField; }
    int selectedTag() const;

    // A batch that was not read from a file: the default task and format.
    void startNewBatch();
    // A preview ended: shows why it failed beside the setting at fault.
    void previewsEnded();
    // Why the last preview could not use the find pattern; empty when it could
    // (or find and replace is not the task).
    QString findPatternError() const;

signals:
    // The user changed the batch's task or settings: worth saving.
    void edited();
    void tagChanged(int tag);
    // An edit asked the document for a new preview.
    void previewRequested();

private:
    void userChoseTask(int index);
    void taskChanged(int tag);
    void settingsChanged();
    void preview();

    DocumentWindow& m_window;
    MyDocument& m_document;
    QComboBox* m_popUp;
    QXClipView* m_clipView;
    TokenField* m_tokenField;
};
