#include "QXWindowController.h"

#include "DocumentWindow.h"
#include "MyDocument.h"
#include "QXAlert.h"
#include "QXLog.h"

#include <QFileDialog>
#include <QFileInfo>

namespace {
// Literal text inside an alert's informative text, which is read as a format.
QString literal(QString text) {
    return text.replace(u'%', QStringLiteral("%%"));
}
} // namespace

QXWindowController::QXWindowController(DocumentWindow& window, MyDocument& document)
    : QObject(&window), m_window(window), m_document(document) {
    synchronizeWindowTitleWithDocumentName();
}

void QXWindowController::setFilePath(const QString& path) {
    m_filePath = path.isEmpty() ? QString() : QFileInfo(path).absoluteFilePath();
    synchronizeWindowTitleWithDocumentName();
}

void QXWindowController::setUntitledNumber(int number) {
    m_untitledNumber = qMax(1, number);
    synchronizeWindowTitleWithDocumentName();
}

QString QXWindowController::displayName() const {
    if (!m_filePath.isEmpty()) return QFileInfo(m_filePath).fileName();
    return m_untitledNumber <= 1 ? QStringLiteral("Untitled")
                                 : QStringLiteral("Untitled %1").arg(m_untitledNumber);
}

QString QXWindowController::windowTitleForDocumentDisplayName(const QString& displayName,
                                                              bool hasFile) {
    if (hasFile) return displayName;
    return QString(displayName)
        .replace(QStringLiteral("Untitled"), QStringLiteral("Untitled Batch"));
}

void QXWindowController::synchronizeWindowTitleWithDocumentName() {
    // "[*]" is where the window shows its modified marker.
    m_window.setWindowTitle(
        windowTitleForDocumentDisplayName(displayName(), !m_filePath.isEmpty()) +
        QStringLiteral("[*]"));
    m_window.setWindowFilePath(m_filePath);
}

bool QXWindowController::isDocumentEdited() const {
    return m_window.isWindowModified();
}

void QXWindowController::setDocumentEdited(bool edited) {
    m_window.setWindowModified(edited);
}

bool QXWindowController::writeTo(const QString& path) {
    if (!m_document.writeToURL(path)) {
        QXLog::appendLog(QStringLiteral("Error: could not write the batch file %1").arg(path));
        QXAlert::alertSheetWithMessageText(
            QStringLiteral("The batch could not be saved."), QString(), QString(), QString(),
            literal(QStringLiteral("“%1” could not be written. Check that the folder exists and "
                                   "that you may write to it.")
                        .arg(path)),
            &m_window, false);
        return false;
    }
    setFilePath(path);
    setDocumentEdited(false);
    return true;
}

void QXWindowController::saveDocument(std::function<void(bool)> done) {
    if (m_filePath.isEmpty()) {
        saveDocumentAs(std::move(done));
        return;
    }
    const bool saved = writeTo(m_filePath);
    if (done) done(saved);
}

void QXWindowController::saveDocumentAs(std::function<void(bool)> done) {
    auto* dialog = new QFileDialog(&m_window, QStringLiteral("Save Batch"));
    dialog->setObjectName(QStringLiteral("saveBatchPanel"));
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setWindowModality(Qt::WindowModal);
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setNameFilter(QStringLiteral("Seqmate batch (*.sqb)"));
    dialog->setDefaultSuffix(QStringLiteral("sqb"));
    if (m_filePath.isEmpty())
        dialog->selectFile(displayName() + QStringLiteral(".sqb"));
    else
        dialog->selectFile(m_filePath);
    auto answered = std::make_shared<bool>(false);
    connect(dialog, &QFileDialog::fileSelected, this, [this, done, answered](const QString& path) {
        *answered = true;
        const bool saved = writeTo(path);
        if (done) done(saved);
    });
    connect(dialog, &QDialog::finished, this, [done, answered](int result) {
        if (result != QDialog::Accepted && !*answered && done) done(false);
    });
    dialog->open();
}

void QXWindowController::askToSave(std::function<void(bool)> done) {
    if (!isDocumentEdited()) {
        done(true);
        return;
    }
    m_afterPrompt = std::move(done);
    const QString name = windowTitleForDocumentDisplayName(displayName(), !m_filePath.isEmpty());
    QXAlert::alertSheetWithMessageText(
        QStringLiteral("Do you want to save the changes made to “%1”?").arg(name),
        QStringLiteral("Save"), QStringLiteral("Cancel"), QStringLiteral("Don’t Save"),
        QStringLiteral("Your changes will be lost if you don’t save them."), &m_window, this,
        QStringLiteral("saveAlertDidEnd"), false);
}

void QXWindowController::saveAlertDidEnd(QXAlert*, int returnCode) {
    std::function<void(bool)> done = std::move(m_afterPrompt);
    m_afterPrompt = nullptr;
    if (!done) return;
    switch (returnCode) {
    case QXAlert::DefaultReturn: // Save: close only once it is written
        saveDocument([done](bool saved) { done(saved); });
        break;
    case QXAlert::OtherReturn: // Don't Save
        done(true);
        break;
    default: // Cancel
        done(false);
        break;
    }
}
