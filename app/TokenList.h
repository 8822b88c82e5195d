#pragma once

#include <algorithm>

#include <QString>
#include <QVariantList>

// The token field's content without the widget: the ordered object list (kind
// tokens "@@ Kind @@", runs of free text, anything else shown as "Unknown")
// with a caret and a selection. Positions count units: a token or an unknown
// object is one unit, free text one unit per UTF-16 code unit.
class TokenList {
public:
    // Kind tokens and non-string objects are atomic chips; other strings are text.
    static bool isKindToken(const QVariant& object);
    static bool isText(const QVariant& object);
    static QString kindOfToken(const QString& token);
    static QString tokenForKind(const QString& kind);
    // What the field shows: the kind name, "Unknown" for a non-string, else the string.
    static QString displayString(const QVariant& object);

    // Replaces the objects as given (no merging); caret at the end, nothing selected.
    void setObjects(const QVariantList& objects);
    QVariantList objects() const;
    // Elements: each object as it is held, a chip or a run of text.
    qsizetype count() const { return m_elements.size(); }
    const QVariant& valueAt(qsizetype index) const { return m_elements.at(index).value; }
    bool isTextAt(qsizetype index) const { return m_elements.at(index).text; }

    int length() const;
    int unitLength(qsizetype index) const;
    int elementStart(qsizetype index) const;

    int caret() const { return m_caret; }
    int anchor() const { return m_anchor; }
    int selectionStart() const { return std::min(m_caret, m_anchor); }
    int selectionEnd() const { return std::max(m_caret, m_anchor); }
    bool hasSelection() const { return m_caret != m_anchor; }
    // Moves the caret to pos (clamped); extend keeps the anchor, else collapses.
    void setCaret(int pos, bool extend = false);
    void select(int anchor, int caret);
    void selectAll() { select(0, length()); }

    // Caret stops: one grapheme of text or one whole chip; words of text.
    int nextStop(int pos) const;
    int previousStop(int pos) const;
    int nextWordStop(int pos) const;
    int previousWordStop(int pos) const;

    // Edits. Each replaces the selection and reports whether the objects changed.
    bool insertText(const QString& text);
    bool insertObjects(const QVariantList& objects);
    bool removeSelection();
    bool backspace();
    bool deleteForward();

    QVariantList selectedObjects() const;
    // The display form of the whole list, of a range, and the offset of a unit
    // position within it (a chip counts as its shown name).
    QString displayText() const { return displayText(0, length()); }
    QString displayText(int from, int to) const;
    int displayOffset(int pos) const;
    int positionForDisplayOffset(int offset) const;

private:
    // Whether an object is text is decided when it enters: what the user types
    // stays text even when it reads like a kind token.
    struct Element {
        QVariant value;
        bool text = true;
    };
    static void appendObject(QVariantList& out, const Element& e);
    // Calls visit(element, cutFrom, cutTo) for each element overlapping the
    // units [from, to), with the cut in the element's own units.
    template <class Visit> void forEachInRange(int from, int to, Visit visit) const {
        int start = 0;
        for (qsizetype i = 0; i < m_elements.size() && start < to; ++i) {
            const int end = start + unitLength(i);
            const int a = std::max(from, start);
            const int b = std::min(to, end);
            if (a < b) visit(m_elements.at(i), a - start, b - start);
            start = end;
        }
    }
    // The element holding the unit at pos (pos < its end), or -1.
    qsizetype elementAt(int pos) const;
    void removeRange(int from, int to);
    // Splits a text element at pos when pos lies strictly inside one; returns the
    // object index at which new objects go.
    qsizetype splitAt(int pos);

    QList<Element> m_elements;
    int m_caret = 0;
    int m_anchor = 0;
};
