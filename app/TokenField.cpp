#include "TokenField.h"
#include "TokenFieldAccessible.h"

#include "MyDocument.h"

#include <QApplication>
#include <QClipboard>
#include <QDataStream>
#include <QFontMetricsF>
#include <QIODevice>
#include <QMimeData>
#include <QPainter>
#include <QStyle>
#include <QStyleOptionFrame>
#include <QTextBoundaryFinder>

namespace {

// Copied tokens travel as a streamed object list beside the shown text, so a
// paste into a format field brings the chips back.
const QString kTokenMime = QStringLiteral("application/x-seqmate-format-tokens");

QColor mix(const QColor& a, const QColor& b, double t) {
    return QColor::fromRgbF(static_cast<float>(a.redF() * (1 - t) + b.redF() * t),
                            static_cast<float>(a.greenF() * (1 - t) + b.greenF() * t),
                            static_cast<float>(a.blueF() * (1 - t) + b.blueF() * t));
}

// Text runs break after white space; a word wider than a line breaks anywhere.
QStringList chunksOf(const QString& text) {
    QStringList chunks;
    qsizetype start = 0;
    for (qsizetype i = 1; i <= text.size(); ++i) {
        if (i == text.size() || (text.at(i - 1).isSpace() && !text.at(i).isSpace())) {
            chunks.append(text.mid(start, i - start));
            start = i;
        }
    }
    return chunks;
}

} // namespace

TokenField::TokenField(QWidget* parent) : QWidget(parent) {
    TokenFieldAccessible::install();
    setObjectName(QStringLiteral("tokenField"));
    setAccessibleName(QStringLiteral("Format"));
    setFocusPolicy(Qt::StrongFocus);
    setAttribute(Qt::WA_InputMethodEnabled);
    setAttribute(Qt::WA_KeyCompression);
    setCursor(Qt::IBeamCursor);
    setBackgroundRole(QPalette::Base);
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Fixed, QSizePolicy::LineEdit);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
}

QStringList TokenField::kindTitles() {
    return {QStringLiteral("Filename"), QStringLiteral("Frame Number"),
            QStringLiteral("File Extension"), QStringLiteral("Created Date"),
            QStringLiteral("Today's Date")};
}

QVariantList TokenField::defaultTokens() {
    return {TokenList::tokenForKind(QStringLiteral("Filename")), QStringLiteral("."),
            TokenList::tokenForKind(QStringLiteral("Frame Number")), QStringLiteral("."),
            TokenList::tokenForKind(QStringLiteral("File Extension"))};
}

void TokenField::setTokens(const QVariantList& tokens) {
    // The window may hand back the list the field just reported; the caret stays.
    if (tokens == m_list.objects()) return;
    m_list.setObjects(tokens);
    m_undo.clear();
    m_redo.clear();
    relayout();
    TokenFieldAccessible::notifyChanged(this);
}

QString TokenField::selectedText() const {
    return m_list.displayText(m_list.selectionStart(), m_list.selectionEnd());
}

void TokenField::setSelection(int anchor, int caret) {
    m_list.select(anchor, caret);
    caretChanged();
}

void TokenField::insertToken(const QString& title) {
    const QVariantList before = tokens();
    const QVariantList after = MyDocument::insertToken(before, title);
    // The caret follows the new token: the first unit where the lists differ,
    // past the separator and the token.
    qsizetype i = 0;
    while (i < before.size() && before.at(i) == after.at(i))
        ++i;
    const qsizetype added = after.size() - before.size();
    apply(Edit::Other, [&](TokenList& l) {
        l.setObjects(after);
        l.setCaret(l.elementStart(std::min<qsizetype>(i + added, l.count())));
        return true;
    });
}

void TokenField::selectAll() {
    m_list.selectAll();
    caretChanged();
}

void TokenField::copy() const {
    if (!m_list.hasSelection()) return;
    auto* mime = new QMimeData;
    mime->setText(selectedText());
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out << m_list.selectedObjects();
    mime->setData(kTokenMime, bytes);
    QGuiApplication::clipboard()->setMimeData(mime);
}

void TokenField::cut() {
    copy();
    apply(Edit::Other, [](TokenList& l) { return l.removeSelection(); });
}

void TokenField::paste() {
    const QMimeData* mime = QGuiApplication::clipboard()->mimeData();
    if (!mime) return;
    QVariantList objects;
    if (mime->hasFormat(kTokenMime)) {
        QDataStream in(mime->data(kTokenMime));
        in >> objects;
        if (in.status() != QDataStream::Ok) objects.clear();
    }
    const QString text = mime->text();
    apply(Edit::Other, [&](TokenList& l) {
        return objects.isEmpty() ? l.insertText(text) : l.insertObjects(objects);
    });
}

// ---- layout ----------------------------------------------------------------

TokenField::Metrics TokenField::metrics() const {
    const QFontMetricsF fm(font());
    Metrics m;
    QStyleOptionFrame opt;
    opt.initFrom(this);
    m.frame = style()->pixelMetric(QStyle::PM_DefaultFrameWidth, &opt, this);
    m.padX = 4;
    m.padY = 3;
    m.chipHeight = std::ceil(fm.height()) + 4;
    m.chipPadX = std::round(m.chipHeight / 2.5);
    m.chipMarginX = 3;
    m.lineHeight = m.chipHeight + 3;
    return m;
}

QList<TokenField::Piece> TokenField::layoutFor(int width, int* height) const {
    const QFontMetricsF fm(font());
    const Metrics m = metrics();
    const double left = m.frame + m.padX;
    const double right = std::max(left + 20, width - m.frame - m.padX);
    const double top = m.frame + m.padY;
    QList<Piece> pieces;
    double x = left;
    int line = 0;
    auto newLine = [&] {
        x = left;
        ++line;
    };
    // fit: the width that must fit on the line (trailing spaces may hang past
    // the edge, as in any text field).
    auto place = [&](Piece piece, double w, double fit) {
        if (x + fit > right && x > left) newLine();
        piece.line = line;
        piece.rect = QRectF(x, top + line * m.lineHeight, w, m.chipHeight);
        pieces.append(piece);
        x += w;
    };
    int start = 0;
    for (qsizetype i = 0; i < m_list.count(); ++i) {
        const int len = m_list.unitLength(i);
        if (!m_list.isTextAt(i)) {
            Piece p{i, start, 1, 0, {}, TokenList::displayString(m_list.valueAt(i)), true};
            // A chip wider than a line shows its name elided.
            const double room = right - left - 2 * m.chipMarginX;
            double w = fm.horizontalAdvance(p.text) + 2 * m.chipPadX;
            if (w > room) {
                p.text = fm.elidedText(p.text, Qt::ElideRight, room - 2 * m.chipPadX);
                w = room;
            }
            place(p, w + 2 * m.chipMarginX, w + 2 * m.chipMarginX);
            pieces.last().rect.adjust(m.chipMarginX, 0, -m.chipMarginX, 0);
        } else {
            int unit = start;
            for (QString chunk : chunksOf(m_list.valueAt(i).toString())) {
                // A chunk wider than a whole line goes out grapheme by grapheme,
                // each part on a line of its own.
                while (fm.horizontalAdvance(chunk.trimmed()) > right - left && chunk.size() > 1) {
                    if (x > left) newLine();
                    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, chunk);
                    qsizetype cut = finder.toNextBoundary();
                    for (qsizetype next = finder.toNextBoundary(); next > 0 && next < chunk.size();
                         next = finder.toNextBoundary()) {
                        if (fm.horizontalAdvance(chunk.left(next)) > right - left) break;
                        cut = next;
                    }
                    const QString head = chunk.left(cut);
                    const double w = fm.horizontalAdvance(head);
                    place(Piece{i, unit, static_cast<int>(cut), 0, {}, head, false}, w, w);
                    unit += static_cast<int>(cut);
                    chunk = chunk.mid(cut);
                    if (chunk.isEmpty()) break;
                    newLine();
                }
                if (!chunk.isEmpty())
                    place(Piece{i, unit, static_cast<int>(chunk.size()), 0, {}, chunk, false},
                          fm.horizontalAdvance(chunk), fm.horizontalAdvance(chunk.trimmed()));
                unit += static_cast<int>(chunk.size());
            }
        }
        start += len;
    }
    if (height)
        *height =
            static_cast<int>(std::ceil(top + (line + 1) * m.lineHeight - 3 + m.padY + m.frame));
    return pieces;
}

void TokenField::relayout() {
    int height = 0;
    m_pieces = layoutFor(width(), &height);
    // The height follows the lines the current width needs; layouts read it
    // from sizeHint, as the vertical policy is fixed like a line edit's.
    if (height != m_height) {
        m_height = height;
        updateGeometry();
    }
    update();
}

QSize TokenField::sizeHint() const {
    return {320, m_height > 0 ? m_height : heightForWidth(320)};
}

QSize TokenField::minimumSizeHint() const {
    return {120, heightForWidth(-1)};
}

int TokenField::heightForWidth(int width) const {
    int height = 0;
    if (width < 0) {
        // One line, whatever it holds.
        const Metrics m = metrics();
        return static_cast<int>(std::ceil(m.lineHeight - 3 + 2 * (m.padY + m.frame)));
    }
    layoutFor(width, &height);
    return height;
}

QRect TokenField::cursorRect(int pos) const {
    const Metrics m = metrics();
    const QFontMetricsF fm(font());
    auto caretAt = [&](double x, const QRectF& r) {
        return QRectF(x, r.top() + 1, 1, r.height() - 2).toAlignedRect();
    };
    for (const Piece& p : m_pieces) {
        if (pos < p.start || pos >= p.start + p.count) continue;
        if (p.chip) return caretAt(p.rect.left() - m.chipMarginX, p.rect);
        return caretAt(p.rect.left() + fm.horizontalAdvance(p.text.left(pos - p.start)), p.rect);
    }
    for (auto it = m_pieces.crbegin(); it != m_pieces.crend(); ++it) {
        if (it->start + it->count != pos) continue;
        return caretAt(it->rect.right() + (it->chip ? m.chipMarginX : 0), it->rect);
    }
    const double left = m.frame + m.padX;
    return caretAt(left, QRectF(left, m.frame + m.padY, 1, m.chipHeight));
}

QRect TokenField::unitRect(int pos) const {
    for (const Piece& p : m_pieces) {
        if (pos < p.start || pos >= p.start + p.count) continue;
        if (p.chip) return p.rect.toAlignedRect();
        const QRect a = cursorRect(pos);
        const QFontMetricsF fm(font());
        const QString unit = p.text.mid(pos - p.start, 1);
        return QRect(a.left(), a.top(), static_cast<int>(std::ceil(fm.horizontalAdvance(unit))),
                     a.height());
    }
    return {};
}

int TokenField::positionAt(const QPoint& point) const {
    if (m_pieces.isEmpty()) return 0;
    const Metrics m = metrics();
    const QFontMetricsF fm(font());
    const int lastLine = m_pieces.last().line;
    const int line = std::clamp(
        static_cast<int>(std::floor((point.y() - m.frame - m.padY) / m.lineHeight)), 0, lastLine);
    // The nearest caret stop on that line.
    int best = m_list.length();
    double bestDistance = 1e9;
    auto consider = [&](int pos, double x) {
        const double d = std::abs(x - point.x());
        if (d < bestDistance) {
            bestDistance = d;
            best = pos;
        }
    };
    for (const Piece& p : m_pieces) {
        if (p.line != line) continue;
        if (p.chip) {
            consider(p.start, p.rect.left());
            consider(p.start + 1, p.rect.right());
            continue;
        }
        QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, p.text);
        for (qsizetype k = 0; k >= 0; k = finder.toNextBoundary()) {
            consider(p.start + static_cast<int>(k),
                     p.rect.left() + fm.horizontalAdvance(p.text.left(k)));
            if (k == p.text.size()) break;
        }
    }
    return best;
}

void TokenField::resizeEvent(QResizeEvent* event) {
    QWidget::resizeEvent(event);
    relayout();
}

void TokenField::changeEvent(QEvent* event) {
    QWidget::changeEvent(event);
    if (event->type() == QEvent::FontChange || event->type() == QEvent::StyleChange)
        relayout();
    else if (event->type() == QEvent::PaletteChange || event->type() == QEvent::EnabledChange)
        update();
}

// ---- painting --------------------------------------------------------------

void TokenField::paintEvent(QPaintEvent*) {
    QPainter p(this);
    QStyleOptionFrame frame;
    frame.initFrom(this);
    frame.lineWidth = metrics().frame;
    frame.midLineWidth = 0;
    frame.state |= QStyle::State_Sunken;
    if (hasFocus()) frame.state |= QStyle::State_HasFocus;
    style()->drawPrimitive(QStyle::PE_PanelLineEdit, &frame, &p, this);

    p.setRenderHint(QPainter::Antialiasing);
    const int from = m_list.selectionStart();
    const int to = m_list.selectionEnd();
    for (const Piece& piece : m_pieces) {
        if (piece.chip)
            paintChip(p, piece, piece.start >= from && piece.start < to);
        else
            paintText(p, piece);
    }
    if (hasFocus() && m_caretShown && !m_list.hasSelection() && isEnabled())
        p.fillRect(cursorRect(m_list.caret()), palette().color(QPalette::Text));
}

void TokenField::paintChip(QPainter& p, const Piece& piece, bool selected) const {
    const QPalette& pal = palette();
    const QColor base = pal.color(QPalette::Base);
    const QColor accent = pal.color(QPalette::Highlight);
    const QRectF r = piece.rect.adjusted(0.5, 1.5, -0.5, -1.5);
    if (!TokenList::isKindToken(m_list.valueAt(piece.element))) {
        // An object the format cannot use: plain, dimmed text, selected as a whole.
        if (selected) p.fillRect(r, accent);
        QFont f = font();
        f.setItalic(true);
        p.setFont(f);
        p.setPen(selected ? pal.color(QPalette::HighlightedText)
                          : pal.color(QPalette::PlaceholderText));
        p.drawText(piece.rect, Qt::AlignCenter, piece.text);
        p.setFont(font());
        return;
    }
    // Tinted from the palette's accent, so light and dark themes both work.
    const double radius = r.height() / 2;
    p.setPen(QPen(selected ? accent.darker(115) : mix(base, accent, 0.45), 1));
    p.setBrush(selected ? accent : mix(base, accent, isEnabled() ? 0.16 : 0.08));
    p.drawRoundedRect(r, radius, radius);
    p.setPen(selected ? pal.color(QPalette::HighlightedText) : pal.color(QPalette::Text));
    p.drawText(piece.rect, Qt::AlignCenter, piece.text);
}

void TokenField::paintText(QPainter& p, const Piece& piece) const {
    const QPalette& pal = palette();
    p.setPen(pal.color(QPalette::Text));
    p.drawText(piece.rect, Qt::AlignLeft | Qt::AlignVCenter, piece.text);
    const int a = std::clamp(m_list.selectionStart() - piece.start, 0, piece.count);
    const int b = std::clamp(m_list.selectionEnd() - piece.start, 0, piece.count);
    if (a >= b) return;
    const QFontMetricsF fm(font());
    const double x1 = piece.rect.left() + fm.horizontalAdvance(piece.text.left(a));
    const double x2 = piece.rect.left() + fm.horizontalAdvance(piece.text.left(b));
    const QRectF sel(x1, piece.rect.top() + 1, x2 - x1, piece.rect.height() - 2);
    p.save();
    p.setClipRect(sel);
    p.fillRect(sel, pal.color(QPalette::Highlight));
    p.setPen(pal.color(QPalette::HighlightedText));
    p.drawText(piece.rect, Qt::AlignLeft | Qt::AlignVCenter, piece.text);
    p.restore();
}

// ---- caret and edits -------------------------------------------------------

void TokenField::restartBlink() {
    m_caretShown = true;
    const int flash = QApplication::cursorFlashTime();
    if (hasFocus() && flash > 0)
        m_blink.start(flash / 2, this);
    else
        m_blink.stop();
}

void TokenField::timerEvent(QTimerEvent* event) {
    if (event->timerId() != m_blink.timerId()) return QWidget::timerEvent(event);
    m_caretShown = !m_caretShown;
    update(cursorRect(m_list.caret()));
}

void TokenField::caretChanged() {
    m_lastEdit = Edit::Other;
    restartBlink();
    update();
    TokenFieldAccessible::notifyCaret(this);
}

bool TokenField::apply(Edit kind, const std::function<bool(TokenList&)>& change) {
    TokenList before = m_list;
    if (!change(m_list)) {
        caretChanged();
        return false;
    }
    // A run of typing is undone in one step.
    if (kind != Edit::Typing || m_lastEdit != Edit::Typing) {
        m_undo.append(before);
        if (m_undo.size() > 100) m_undo.removeFirst();
    }
    m_redo.clear();
    edited();
    m_lastEdit = kind;
    return true;
}

void TokenField::undo() {
    if (m_undo.isEmpty()) return;
    m_redo.append(m_list);
    m_list = m_undo.takeLast();
    edited();
}

void TokenField::redo() {
    if (m_redo.isEmpty()) return;
    m_undo.append(m_list);
    m_list = m_redo.takeLast();
    edited();
}

void TokenField::edited() {
    m_lastEdit = Edit::Other;
    relayout();
    restartBlink();
    TokenFieldAccessible::notifyChanged(this);
    emit tokensEdited(tokens());
}

void TokenField::moveCaret(int pos, bool extend) {
    m_list.setCaret(pos, extend);
    caretChanged();
}

void TokenField::focusInEvent(QFocusEvent* event) {
    QWidget::focusInEvent(event);
    restartBlink();
    update();
}

void TokenField::focusOutEvent(QFocusEvent* event) {
    QWidget::focusOutEvent(event);
    m_blink.stop();
    update();
}
