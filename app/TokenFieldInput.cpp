// The token field's keyboard, mouse, context menu and input method handling.
#include "TokenField.h"

#include <QApplication>
#include <QClipboard>
#include <QContextMenuEvent>
#include <QInputMethodEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QMimeData>

namespace {

bool isTyping(const QKeyEvent* event) {
    const QString text = event->text();
    if (text.isEmpty()) return false;
    // Control and Meta chords are shortcuts; AltGr (Ctrl+Alt on some systems) types.
    const Qt::KeyboardModifiers mods = event->modifiers();
    if ((mods & (Qt::ControlModifier | Qt::MetaModifier)) && !(mods & Qt::AltModifier))
        return false;
    return std::all_of(text.begin(), text.end(),
                       [](QChar c) { return c.isPrint() || c.isSurrogate(); });
}

} // namespace

bool TokenField::isEditKey(QKeyEvent* event) {
    static const QKeySequence::StandardKey keys[] = {
        QKeySequence::SelectAll,
        QKeySequence::Copy,
        QKeySequence::Cut,
        QKeySequence::Paste,
        QKeySequence::MoveToNextChar,
        QKeySequence::MoveToPreviousChar,
        QKeySequence::SelectNextChar,
        QKeySequence::SelectPreviousChar,
        QKeySequence::MoveToNextWord,
        QKeySequence::MoveToPreviousWord,
        QKeySequence::SelectNextWord,
        QKeySequence::SelectPreviousWord,
        QKeySequence::MoveToStartOfLine,
        QKeySequence::MoveToEndOfLine,
        QKeySequence::SelectStartOfLine,
        QKeySequence::SelectEndOfLine,
        QKeySequence::MoveToStartOfDocument,
        QKeySequence::MoveToEndOfDocument,
        QKeySequence::SelectStartOfDocument,
        QKeySequence::SelectEndOfDocument,
        QKeySequence::Backspace,
        QKeySequence::Delete,
        QKeySequence::DeleteStartOfWord,
        QKeySequence::DeleteEndOfWord,
        QKeySequence::Undo,
        QKeySequence::Redo,
    };
    for (QKeySequence::StandardKey key : keys)
        if (event->matches(key)) return true;
    const int k = event->key();
    return k == Qt::Key_Backspace || k == Qt::Key_Delete || k == Qt::Key_Home || k == Qt::Key_End ||
           isTyping(event);
}

bool TokenField::event(QEvent* event) {
    // Keep the window's shortcuts (Delete removes files from the list) away
    // from keys that edit the format while the field has the focus.
    if (event->type() == QEvent::ShortcutOverride && isEditKey(static_cast<QKeyEvent*>(event))) {
        event->accept();
        return true;
    }
    return QWidget::event(event);
}

void TokenField::keyPressEvent(QKeyEvent* event) {
    if (!handleKey(event)) QWidget::keyPressEvent(event);
}

bool TokenField::handleKey(QKeyEvent* event) {
    TokenList& l = m_list;
    const int caret = l.caret();
    const bool selection = l.hasSelection();
    if (event->matches(QKeySequence::SelectAll)) {
        selectAll();
        return true;
    }
    if (event->matches(QKeySequence::Copy)) {
        copy();
        return true;
    }
    if (event->matches(QKeySequence::Cut)) {
        cut();
        return true;
    }
    if (event->matches(QKeySequence::Paste)) {
        paste();
        return true;
    }
    if (event->matches(QKeySequence::Undo)) {
        undo();
        return true;
    }
    if (event->matches(QKeySequence::Redo)) {
        redo();
        return true;
    }
    // Plain arrows first collapse a selection to its side.
    if (event->matches(QKeySequence::MoveToNextChar)) {
        moveCaret(selection ? l.selectionEnd() : l.nextStop(caret), false);
        return true;
    }
    if (event->matches(QKeySequence::MoveToPreviousChar)) {
        moveCaret(selection ? l.selectionStart() : l.previousStop(caret), false);
        return true;
    }
    if (event->matches(QKeySequence::SelectNextChar)) {
        moveCaret(l.nextStop(caret), true);
        return true;
    }
    if (event->matches(QKeySequence::SelectPreviousChar)) {
        moveCaret(l.previousStop(caret), true);
        return true;
    }
    // Up and Down move between wrapped lines; on the first or last line they
    // are left to the window.
    const bool up = event->matches(QKeySequence::MoveToPreviousLine) ||
                    event->matches(QKeySequence::SelectPreviousLine);
    if (up || event->matches(QKeySequence::MoveToNextLine) ||
        event->matches(QKeySequence::SelectNextLine)) {
        const QRect here = cursorRect(caret);
        const double pitch = metrics().lineHeight;
        const QPoint there(here.center().x(),
                           static_cast<int>(here.center().y() + (up ? -pitch : pitch)));
        const int pos = positionAt(there);
        if (cursorRect(pos).top() == here.top()) return false;
        moveCaret(pos, event->modifiers() & Qt::ShiftModifier);
        return true;
    }
    const bool extend = event->matches(QKeySequence::SelectNextWord) ||
                        event->matches(QKeySequence::SelectPreviousWord) ||
                        event->matches(QKeySequence::SelectStartOfLine) ||
                        event->matches(QKeySequence::SelectEndOfLine) ||
                        event->matches(QKeySequence::SelectStartOfDocument) ||
                        event->matches(QKeySequence::SelectEndOfDocument);
    if (event->matches(QKeySequence::MoveToNextWord) ||
        event->matches(QKeySequence::SelectNextWord)) {
        moveCaret(l.nextWordStop(caret), extend);
        return true;
    }
    if (event->matches(QKeySequence::MoveToPreviousWord) ||
        event->matches(QKeySequence::SelectPreviousWord)) {
        moveCaret(l.previousWordStop(caret), extend);
        return true;
    }
    const int key = event->key();
    if (event->matches(QKeySequence::MoveToStartOfLine) ||
        event->matches(QKeySequence::MoveToStartOfDocument) ||
        event->matches(QKeySequence::SelectStartOfLine) ||
        event->matches(QKeySequence::SelectStartOfDocument) || key == Qt::Key_Home) {
        moveCaret(0, extend || (event->modifiers() & Qt::ShiftModifier));
        return true;
    }
    if (event->matches(QKeySequence::MoveToEndOfLine) ||
        event->matches(QKeySequence::MoveToEndOfDocument) ||
        event->matches(QKeySequence::SelectEndOfLine) ||
        event->matches(QKeySequence::SelectEndOfDocument) || key == Qt::Key_End) {
        moveCaret(l.length(), extend || (event->modifiers() & Qt::ShiftModifier));
        return true;
    }
    if (event->matches(QKeySequence::DeleteStartOfWord) && !selection) {
        apply(Edit::Other, [&](TokenList& t) {
            t.select(caret, t.previousWordStop(caret));
            return t.removeSelection();
        });
        return true;
    }
    if (event->matches(QKeySequence::DeleteEndOfWord) && !selection) {
        apply(Edit::Other, [&](TokenList& t) {
            t.select(caret, t.nextWordStop(caret));
            return t.removeSelection();
        });
        return true;
    }
    // A chip goes as a unit: it is one caret stop.
    if (event->matches(QKeySequence::Backspace) || key == Qt::Key_Backspace) {
        apply(Edit::Other, [](TokenList& t) { return t.backspace(); });
        return true;
    }
    if (event->matches(QKeySequence::Delete) || key == Qt::Key_Delete) {
        apply(Edit::Other, [](TokenList& t) { return t.deleteForward(); });
        return true;
    }
    // Return, Enter and commas are not token separators: Return goes to the
    // window (its default button), a comma is typed as text.
    if (isTyping(event)) {
        const QString text = event->text();
        apply(Edit::Typing, [&](TokenList& t) { return t.insertText(text); });
        return true;
    }
    return false;
}

void TokenField::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return QWidget::mousePressEvent(event);
    const QPoint at = event->position().toPoint();
    const bool extend = event->modifiers() & Qt::ShiftModifier;
    for (const Piece& p : m_pieces) {
        // A click on a chip selects it whole.
        if (p.chip && !extend && p.rect.contains(event->position())) {
            setSelection(p.start, p.start + 1);
            return;
        }
    }
    moveCaret(positionAt(at), extend);
}

void TokenField::mouseMoveEvent(QMouseEvent* event) {
    // Moves reach this widget only after a press on it (the implicit grab).
    if (!(event->buttons() & Qt::LeftButton)) return;
    moveCaret(positionAt(event->position().toPoint()), true);
}

void TokenField::mouseDoubleClickEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) return;
    const int pos = positionAt(event->position().toPoint());
    const int from = m_list.previousWordStop(std::min(m_list.nextStop(pos), m_list.length()));
    setSelection(from, m_list.nextWordStop(from));
}

void TokenField::contextMenuEvent(QContextMenuEvent* event) {
    QMenu menu(this);
    menu.addAction(tr("Undo"), this, &TokenField::undo)->setEnabled(!m_undo.isEmpty());
    menu.addAction(tr("Redo"), this, &TokenField::redo)->setEnabled(!m_redo.isEmpty());
    menu.addSeparator();
    const bool selection = m_list.hasSelection();
    menu.addAction(tr("Cut"), this, &TokenField::cut)->setEnabled(selection);
    menu.addAction(tr("Copy"), this, &TokenField::copy)->setEnabled(selection);
    const QMimeData* mime = QGuiApplication::clipboard()->mimeData();
    menu.addAction(tr("Paste"), this, &TokenField::paste)->setEnabled(mime && mime->hasText());
    menu.addAction(tr("Delete"), this,
                   [this] { apply(Edit::Other, [](TokenList& t) { return t.removeSelection(); }); })
        ->setEnabled(selection);
    menu.addSeparator();
    menu.addAction(tr("Select All"), this, &TokenField::selectAll)->setEnabled(m_list.length() > 0);
    menu.addSeparator();
    QMenu* insert = menu.addMenu(tr("Insert Token"));
    for (const QString& title : kindTitles())
        insert->addAction(title, this, [this, title] { insertToken(title); });
    menu.exec(event->globalPos());
}

void TokenField::inputMethodEvent(QInputMethodEvent* event) {
    // Composed text arrives committed; the preedit string is not drawn.
    const QString text = event->commitString();
    if (!text.isEmpty()) apply(Edit::Typing, [&](TokenList& t) { return t.insertText(text); });
    event->accept();
}

QVariant TokenField::inputMethodQuery(Qt::InputMethodQuery query) const {
    switch (query) {
    case Qt::ImEnabled:
        return isEnabled();
    case Qt::ImCursorRectangle:
        return cursorRect(m_list.caret());
    case Qt::ImCursorPosition:
        return m_list.displayOffset(m_list.caret());
    case Qt::ImAnchorPosition:
        return m_list.displayOffset(m_list.anchor());
    case Qt::ImSurroundingText:
        return displayText();
    case Qt::ImCurrentSelection:
        return selectedText();
    case Qt::ImHints:
        return static_cast<int>(Qt::ImhNoPredictiveText);
    default:
        return QWidget::inputMethodQuery(query);
    }
}
