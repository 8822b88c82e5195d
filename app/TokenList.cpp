#include "TokenList.h"

#include <QTextBoundaryFinder>

namespace {

const QString kTokenHead = QStringLiteral("@@ ");
const QString kTokenTail = QStringLiteral(" @@");

int size(const QString& s) {
    return static_cast<int>(s.size());
}

// The next or previous boundary of the given kind inside text, from offset.
int boundaryAfter(QTextBoundaryFinder::BoundaryType type, const QString& text, int offset) {
    QTextBoundaryFinder finder(type, text);
    finder.setPosition(offset);
    const qsizetype next = finder.toNextBoundary();
    return next < 0 ? size(text) : static_cast<int>(next);
}

int boundaryBefore(QTextBoundaryFinder::BoundaryType type, const QString& text, int offset) {
    QTextBoundaryFinder finder(type, text);
    finder.setPosition(offset);
    const qsizetype previous = finder.toPreviousBoundary();
    return previous < 0 ? 0 : static_cast<int>(previous);
}

} // namespace

bool TokenList::isKindToken(const QVariant& object) {
    if (object.typeId() != QMetaType::QString) return false;
    const QString s = object.toString();
    return s.startsWith(kTokenHead) && s.endsWith(kTokenTail);
}

bool TokenList::isText(const QVariant& object) {
    return object.typeId() == QMetaType::QString && !isKindToken(object);
}

QString TokenList::kindOfToken(const QString& token) {
    // "@@ @@" overlaps its own ends and names the empty kind.
    return token.mid(3, std::max<qsizetype>(token.size() - 6, 0));
}

QString TokenList::tokenForKind(const QString& kind) {
    return kTokenHead + kind + kTokenTail;
}

QString TokenList::displayString(const QVariant& object) {
    if (object.typeId() != QMetaType::QString) return QStringLiteral("Unknown");
    const QString s = object.toString();
    return isKindToken(object) ? kindOfToken(s) : s;
}

void TokenList::setObjects(const QVariantList& objects) {
    m_elements.clear();
    for (const QVariant& o : objects)
        m_elements.append(Element{o, isText(o)});
    m_caret = m_anchor = length();
}

QVariantList TokenList::objects() const {
    QVariantList out;
    for (const Element& e : m_elements)
        appendObject(out, e);
    return out;
}

void TokenList::appendObject(QVariantList& out, const Element& e) {
    const QString s = e.value.toString();
    // Text that reads like a kind token leaves as two strings, so that it
    // stays text in the format (the two runs give the same name).
    if (e.text && isKindToken(e.value)) {
        out.append(s.left(s.size() - 1));
        out.append(s.right(1));
    } else {
        out.append(e.value);
    }
}

int TokenList::unitLength(qsizetype index) const {
    const Element& e = m_elements.at(index);
    return e.text ? size(e.value.toString()) : 1;
}

int TokenList::length() const {
    int n = 0;
    for (qsizetype i = 0; i < m_elements.size(); ++i)
        n += unitLength(i);
    return n;
}

int TokenList::elementStart(qsizetype index) const {
    int n = 0;
    for (qsizetype i = 0; i < index; ++i)
        n += unitLength(i);
    return n;
}

qsizetype TokenList::elementAt(int pos) const {
    int start = 0;
    for (qsizetype i = 0; i < m_elements.size(); ++i) {
        const int end = start + unitLength(i);
        if (pos >= start && pos < end) return i;
        start = end;
    }
    return -1;
}

void TokenList::setCaret(int pos, bool extend) {
    m_caret = std::clamp(pos, 0, length());
    if (!extend) m_anchor = m_caret;
}

void TokenList::select(int anchor, int caret) {
    const int n = length();
    m_anchor = std::clamp(anchor, 0, n);
    m_caret = std::clamp(caret, 0, n);
}

int TokenList::nextStop(int pos) const {
    const qsizetype i = elementAt(pos);
    if (i < 0) return length();
    const int start = elementStart(i);
    if (!m_elements.at(i).text) return start + 1;
    return start + boundaryAfter(QTextBoundaryFinder::Grapheme, m_elements.at(i).value.toString(),
                                 pos - start);
}

int TokenList::previousStop(int pos) const {
    if (pos <= 0) return 0;
    const qsizetype i = elementAt(pos - 1);
    const int start = elementStart(i);
    if (!m_elements.at(i).text) return start;
    return start + boundaryBefore(QTextBoundaryFinder::Grapheme, m_elements.at(i).value.toString(),
                                  pos - start);
}

int TokenList::nextWordStop(int pos) const {
    // Skip white space, then to the end of the word or over one chip.
    int p = pos;
    while (p < length()) {
        const qsizetype i = elementAt(p);
        const int start = elementStart(i);
        if (!m_elements.at(i).text) return p == pos ? p + 1 : p;
        const QString text = m_elements.at(i).value.toString();
        if (text.at(p - start).isSpace()) {
            ++p;
            continue;
        }
        return start + boundaryAfter(QTextBoundaryFinder::Word, text, p - start);
    }
    return p;
}

int TokenList::previousWordStop(int pos) const {
    int p = pos;
    while (p > 0) {
        const qsizetype i = elementAt(p - 1);
        const int start = elementStart(i);
        if (!m_elements.at(i).text) return p == pos ? p - 1 : p;
        const QString text = m_elements.at(i).value.toString();
        if (text.at(p - 1 - start).isSpace()) {
            --p;
            continue;
        }
        return start + boundaryBefore(QTextBoundaryFinder::Word, text, p - start);
    }
    return p;
}

void TokenList::removeRange(int from, int to) {
    int start = 0;
    for (qsizetype i = 0; i < m_elements.size() && start < to;) {
        const int len = unitLength(i);
        const int end = start + len;
        const int a = std::max(from, start);
        const int b = std::min(to, end);
        if (a < b) {
            if (!m_elements.at(i).text || (a == start && b == end)) {
                m_elements.removeAt(i);
                start = end;
                continue;
            }
            QString text = m_elements.at(i).value.toString();
            text.remove(a - start, b - a);
            m_elements[i].value = text;
        }
        start = end;
        ++i;
    }
    m_caret = m_anchor = from;
}

bool TokenList::removeSelection() {
    if (!hasSelection()) return false;
    removeRange(selectionStart(), selectionEnd());
    return true;
}

bool TokenList::backspace() {
    if (removeSelection()) return true;
    if (m_caret == 0) return false;
    removeRange(previousStop(m_caret), m_caret);
    return true;
}

bool TokenList::deleteForward() {
    if (removeSelection()) return true;
    if (m_caret >= length()) return false;
    removeRange(m_caret, nextStop(m_caret));
    return true;
}

qsizetype TokenList::splitAt(int pos) {
    int start = 0;
    for (qsizetype i = 0; i < m_elements.size(); ++i) {
        const int end = start + unitLength(i);
        if (pos <= start) return i;
        if (pos < end) { // strictly inside text: chips are one unit
            const QString text = m_elements.at(i).value.toString();
            m_elements[i].value = text.left(pos - start);
            m_elements.insert(i + 1, Element{text.mid(pos - start), true});
            return i + 1;
        }
        start = end;
    }
    return m_elements.size();
}

bool TokenList::insertText(const QString& typed) {
    QString text = typed;
    // One line: a pasted line break becomes a space, other controls go.
    text.replace(QLatin1Char('\n'), QLatin1Char(' ')).replace(QLatin1Char('\r'), QLatin1Char(' '));
    text.removeIf([](QChar c) { return c.category() == QChar::Other_Control; });
    const bool removed = removeSelection();
    if (text.isEmpty()) return removed;

    // Typing joins the text run at the caret, preferring the one on its left;
    // between two chips (or at an end beside one) it starts a new run.
    int start = 0;
    qsizetype target = -1;
    qsizetype insertAt = m_elements.size();
    for (qsizetype i = 0; i < m_elements.size(); ++i) {
        const int end = start + unitLength(i);
        if (m_elements.at(i).text && m_caret >= start && m_caret <= end) {
            target = i;
            break;
        }
        if (m_caret <= start) {
            insertAt = i;
            break;
        }
        start = end;
    }
    if (target >= 0) {
        QString run = m_elements.at(target).value.toString();
        run.insert(m_caret - start, text);
        m_elements[target].value = run;
    } else {
        m_elements.insert(insertAt, Element{text, true});
    }
    m_caret = m_anchor = m_caret + size(text);
    return true;
}

bool TokenList::insertObjects(const QVariantList& objects) {
    const bool removed = removeSelection();
    if (objects.isEmpty()) return removed;
    qsizetype at = splitAt(m_caret);
    int added = 0;
    for (const QVariant& o : objects) {
        m_elements.insert(at++, Element{o, isText(o)});
        added += isText(o) ? size(o.toString()) : 1;
    }
    m_caret = m_anchor = m_caret + added;
    return true;
}

QVariantList TokenList::selectedObjects() const {
    QVariantList out;
    forEachInRange(selectionStart(), selectionEnd(), [&](const Element& e, int a, int b) {
        appendObject(out, e.text ? Element{e.value.toString().mid(a, b - a), true} : e);
    });
    return out;
}

QString TokenList::displayText(int from, int to) const {
    QString out;
    forEachInRange(from, to, [&](const Element& e, int a, int b) {
        out += e.text ? e.value.toString().mid(a, b - a) : displayString(e.value);
    });
    return out;
}

int TokenList::displayOffset(int pos) const {
    return size(displayText(0, pos));
}

int TokenList::positionForDisplayOffset(int offset) const {
    // Inside a chip's name the position is the chip's start.
    int shown = 0;
    int start = 0;
    for (qsizetype i = 0; i < m_elements.size(); ++i) {
        const Element& e = m_elements.at(i);
        const int len = unitLength(i);
        const int width = e.text ? len : size(displayString(e.value));
        if (offset < shown + width) return e.text ? start + offset - shown : start;
        shown += width;
        start += len;
    }
    return start;
}
