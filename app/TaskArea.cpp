#include "TaskArea.h"

#include "DocumentWindow.h"
#include "MyDocument.h"
#include "QXClipView.h"
#include "TaskPopUp.h"
#include "TokenField.h"
#include "TokenMenuButton.h"
#include "panels/ConformPanel.h"
#include "panels/FindReplacePanel.h"

#include <QComboBox>
#include <QHBoxLayout>
#include <QScrollArea>

TaskArea::TaskArea(DocumentWindow& window, MyDocument& document, QComboBox* popUp,
                   QScrollArea* settingsView)
    : QObject(&window), m_window(window), m_document(document), m_popUp(popUp),
      m_clipView(new QXClipView), m_tokenField(new TokenField) {
    TaskPopUp::fill(m_popUp);
    m_clipView->attachTo(settingsView);
    m_tokenField->setObjectName(QStringLiteral("tokenField"));
    m_tokenField->setAccessibleName(QStringLiteral("Format"));
    ConformPanel* conform = m_clipView->conformPanel();
    conform->setTokenField(m_tokenField);
    conform->setTokenMenuButton(new TokenMenuButton(m_tokenField));

    // activated, not currentIndexChanged: only the user's choice is an edit.
    connect(m_popUp, &QComboBox::activated, this, &TaskArea::userChoseTask);
    connect(&m_window, &DocumentWindow::taskChanged, this,
            [this](int tag, const QString&) { taskChanged(tag); });
    connect(&m_window, &DocumentWindow::settingsChanged, this, &TaskArea::settingsChanged);

    // Every keystroke previews: the engine drops the preview it supersedes.
    connect(m_clipView, &QXClipView::fieldEdited, this,
            [this](const QString& outlet, const QString& text) {
                m_document.setFieldText(outlet, text);
                preview();
            });
    connect(m_clipView, &QXClipView::checkEdited, this, [this](const QString& outlet, int state) {
        m_document.setCheckState(outlet, state);
        preview();
    });
    connect(m_tokenField, &TokenField::tokensEdited, this, [this](const QVariantList& tokens) {
        m_document.setTokens(tokens);
        preview();
    });
}

int TaskArea::selectedTag() const {
    return m_document.selectedTag();
}

void TaskArea::startNewBatch() {
    // The format lives in the field, not the batch file: every window starts
    // from the default, and a reopened batch keeps it too.
    m_tokenField->setTokens(TokenField::defaultTokens());
    m_document.setTokens(m_tokenField->tokens());
    if (m_document.selectedTag() == 0) m_document.setSelectedTag(kDefaultTag);
}

void TaskArea::preview() {
    emit previewRequested();
    m_document.generatePreviews();
    emit edited();
}

void TaskArea::userChoseTask(int index) {
    const int tag = m_popUp->itemData(index).toInt();
    if (tag == 0 || tag == m_document.selectedTag()) return;
    emit previewRequested(); // changeTask previews too
    m_document.changeTask(tag);
    emit edited();
}

void TaskArea::taskChanged(int tag) {
    if (!TaskPopUp::selectTag(m_popUp, tag)) {
        // A tag the pop-up does not list (a hand-edited batch): nothing chosen.
        const QSignalBlocker quiet(m_popUp);
        m_popUp->setCurrentIndex(-1);
    }
    m_clipView->changeTask(tag);
    if (tag != kFindReplaceTag) m_clipView->findReplacePanel()->setRegexError(QString());
    emit tagChanged(tag);
}

void TaskArea::settingsChanged() {
    SettingsForm form = m_document.settingsForm();
    m_clipView->loadFrom(form);
}

void TaskArea::previewsEnded() {
    m_clipView->findReplacePanel()->setRegexError(findPatternError());
}

QString TaskArea::findPatternError() const {
    if (m_document.selectedTag() != kFindReplaceTag) return QString();
    // Only the find pattern's own failures: a bad pattern, or one that ran too long.
    const std::optional<TaskFailure> failure = m_document.lastPreviewFailure();
    if (!failure || failure->settingKey != QLatin1String("find")) return QString();
    QString message = failure->message;
    if (!message.isEmpty()) message[0] = message[0].toUpper();
    return message;
}
