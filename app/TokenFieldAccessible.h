#pragma once

#include <QAccessibleWidget>
#include <QList>

class TokenField;

// What assistive tools see of the token field: an editable text named
// "Format" whose text is the format with each chip as its kind name, and one
// child per chip or run of text.
class TokenFieldAccessible : public QAccessibleWidget, public QAccessibleTextInterface {
public:
    explicit TokenFieldAccessible(TokenField* field);

    // Registers the interface factory (once).
    static void install();
    static void notifyChanged(TokenField* field);
    static void notifyCaret(TokenField* field);

    void* interface_cast(QAccessible::InterfaceType type) override;
    QString text(QAccessible::Text type) const override;
    QAccessible::State state() const override;
    int childCount() const override;
    QAccessibleInterface* child(int index) const override;
    int indexOfChild(const QAccessibleInterface* child) const override;
    QAccessibleInterface* childAt(int x, int y) const override;

    // Offsets count characters of the shown text.
    void selection(int selectionIndex, int* startOffset, int* endOffset) const override;
    int selectionCount() const override;
    void addSelection(int startOffset, int endOffset) override;
    void removeSelection(int selectionIndex) override;
    void setSelection(int selectionIndex, int startOffset, int endOffset) override;
    int cursorPosition() const override;
    void setCursorPosition(int position) override;
    QString text(int startOffset, int endOffset) const override;
    int characterCount() const override;
    QRect characterRect(int offset) const override;
    int offsetAtPoint(const QPoint& point) const override;
    void scrollToSubstring(int, int) override {}
    QString attributes(int offset, int* startOffset, int* endOffset) const override;

private:
    TokenField* field() const;
    // Child interfaces by element index; the accessibility cache owns them.
    mutable QList<QAccessible::Id> m_children;
};
