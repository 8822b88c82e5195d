#include "TokenFieldAccessible.h"
#include "TokenField.h"

#include <QPointer>

namespace {

// One element of the field: a chip (read as its kind name) or a run of text.
class TokenElementAccessible : public QAccessibleInterface {
public:
    TokenElementAccessible(TokenField* field, int index) : m_field(field), m_index(index) {}

    bool isValid() const override { return m_field && m_index < m_field->content().count(); }
    QObject* object() const override { return nullptr; }
    QWindow* window() const override {
        return m_field ? m_field->window()->windowHandle() : nullptr;
    }
    QAccessibleInterface* parent() const override {
        return QAccessible::queryAccessibleInterface(m_field.data());
    }
    QAccessibleInterface* child(int) const override { return nullptr; }
    int childCount() const override { return 0; }
    int indexOfChild(const QAccessibleInterface*) const override { return -1; }
    QAccessibleInterface* childAt(int, int) const override { return nullptr; }
    void setText(QAccessible::Text, const QString&) override {}

    QString text(QAccessible::Text type) const override {
        if (!isValid()) return {};
        const TokenList& list = m_field->content();
        switch (type) {
        case QAccessible::Name:
            return TokenList::displayString(list.valueAt(m_index));
        case QAccessible::Description:
            return list.isTextAt(m_index) ? QStringLiteral("Text") : QStringLiteral("Token");
        default:
            return {};
        }
    }
    QRect rect() const override {
        if (!isValid()) return {};
        const TokenList& list = m_field->content();
        const int start = list.elementStart(m_index);
        QRect r;
        for (int pos = start; pos < start + list.unitLength(m_index); ++pos)
            r |= m_field->unitRect(pos);
        return r.translated(m_field->mapToGlobal(QPoint(0, 0)));
    }
    QAccessible::Role role() const override {
        return isValid() && m_field->content().isTextAt(m_index) ? QAccessible::StaticText
                                                                 : QAccessible::Button;
    }
    QAccessible::State state() const override {
        QAccessible::State s;
        if (!isValid()) {
            s.invalid = true;
            return s;
        }
        const TokenList& list = m_field->content();
        const int start = list.elementStart(m_index);
        s.selectable = true;
        s.selected = start >= list.selectionStart() && start < list.selectionEnd();
        return s;
    }

private:
    QPointer<TokenField> m_field;
    int m_index;
};

QAccessibleInterface* factory(const QString& className, QObject* object) {
    if (className == QLatin1String("TokenField") && object && object->isWidgetType())
        return new TokenFieldAccessible(static_cast<TokenField*>(object));
    return nullptr;
}

} // namespace

TokenFieldAccessible::TokenFieldAccessible(TokenField* field)
    : QAccessibleWidget(field, QAccessible::EditableText) {}

void TokenFieldAccessible::install() {
    static const bool installed = [] {
        QAccessible::installFactory(factory);
        return true;
    }();
    (void)installed;
}

void TokenFieldAccessible::notifyChanged(TokenField* field) {
    if (!QAccessible::isActive()) return;
    QAccessibleValueChangeEvent value(field, field->displayText());
    QAccessible::updateAccessibility(&value);
    QAccessibleEvent reorder(field, QAccessible::ObjectReorder);
    QAccessible::updateAccessibility(&reorder);
    notifyCaret(field);
}

void TokenFieldAccessible::notifyCaret(TokenField* field) {
    if (!QAccessible::isActive()) return;
    const TokenList& list = field->content();
    QAccessibleTextCursorEvent caret(field, list.displayOffset(list.caret()));
    QAccessible::updateAccessibility(&caret);
    QAccessibleTextSelectionEvent selection(field, list.displayOffset(list.selectionStart()),
                                            list.displayOffset(list.selectionEnd()));
    QAccessible::updateAccessibility(&selection);
}

TokenField* TokenFieldAccessible::field() const {
    return static_cast<TokenField*>(widget());
}

void* TokenFieldAccessible::interface_cast(QAccessible::InterfaceType type) {
    if (type == QAccessible::TextInterface) return static_cast<QAccessibleTextInterface*>(this);
    return QAccessibleWidget::interface_cast(type);
}

QString TokenFieldAccessible::text(QAccessible::Text type) const {
    if (type == QAccessible::Value) return field()->displayText();
    if (type == QAccessible::Name && field()->accessibleName().isEmpty())
        return QStringLiteral("Format");
    return QAccessibleWidget::text(type);
}

QAccessible::State TokenFieldAccessible::state() const {
    QAccessible::State s = QAccessibleWidget::state();
    s.editable = true;
    s.selectableText = true;
    s.multiLine = true;
    return s;
}

int TokenFieldAccessible::childCount() const {
    return static_cast<int>(field()->content().count());
}

QAccessibleInterface* TokenFieldAccessible::child(int index) const {
    if (index < 0 || index >= childCount()) return nullptr;
    while (m_children.size() <= index) {
        auto* element = new TokenElementAccessible(field(), static_cast<int>(m_children.size()));
        m_children.append(QAccessible::registerAccessibleInterface(element));
    }
    return QAccessible::accessibleInterface(m_children.at(index));
}

int TokenFieldAccessible::indexOfChild(const QAccessibleInterface* child) const {
    for (qsizetype i = 0; i < m_children.size() && i < childCount(); ++i)
        if (QAccessible::accessibleInterface(m_children.at(i)) == child) return static_cast<int>(i);
    return -1;
}

QAccessibleInterface* TokenFieldAccessible::childAt(int x, int y) const {
    for (int i = 0; i < childCount(); ++i)
        if (QAccessibleInterface* c = child(i); c->rect().contains(x, y)) return c;
    return nullptr;
}

void TokenFieldAccessible::selection(int selectionIndex, int* startOffset, int* endOffset) const {
    const TokenList& list = field()->content();
    *startOffset = *endOffset = 0;
    if (selectionIndex != 0 || !list.hasSelection()) return;
    *startOffset = list.displayOffset(list.selectionStart());
    *endOffset = list.displayOffset(list.selectionEnd());
}

int TokenFieldAccessible::selectionCount() const {
    return field()->content().hasSelection() ? 1 : 0;
}

void TokenFieldAccessible::addSelection(int startOffset, int endOffset) {
    setSelection(0, startOffset, endOffset);
}

void TokenFieldAccessible::removeSelection(int selectionIndex) {
    if (selectionIndex == 0)
        field()->setSelection(field()->cursorPosition(), field()->cursorPosition());
}

void TokenFieldAccessible::setSelection(int selectionIndex, int startOffset, int endOffset) {
    if (selectionIndex != 0) return;
    const TokenList& list = field()->content();
    field()->setSelection(list.positionForDisplayOffset(startOffset),
                          list.positionForDisplayOffset(endOffset));
}

int TokenFieldAccessible::cursorPosition() const {
    const TokenList& list = field()->content();
    return list.displayOffset(list.caret());
}

void TokenFieldAccessible::setCursorPosition(int position) {
    const int pos = field()->content().positionForDisplayOffset(position);
    field()->setSelection(pos, pos);
}

QString TokenFieldAccessible::text(int startOffset, int endOffset) const {
    return field()->displayText().mid(startOffset, endOffset - startOffset);
}

int TokenFieldAccessible::characterCount() const {
    return static_cast<int>(field()->displayText().size());
}

QRect TokenFieldAccessible::characterRect(int offset) const {
    const QRect r = field()->unitRect(field()->content().positionForDisplayOffset(offset));
    return r.translated(field()->mapToGlobal(QPoint(0, 0)));
}

int TokenFieldAccessible::offsetAtPoint(const QPoint& point) const {
    const int pos = field()->positionAt(field()->mapFromGlobal(point));
    return field()->content().displayOffset(pos);
}

QString TokenFieldAccessible::attributes(int offset, int* startOffset, int* endOffset) const {
    *startOffset = *endOffset = offset;
    return {};
}
