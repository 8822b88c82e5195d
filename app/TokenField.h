#pragma once

#include "TokenList.h"

#include <QBasicTimer>
#include <QWidget>

#include <functional>

// The conform task's format field: kind tokens drawn as rounded chips, free
// text edited in place, all flowing over as many lines as the width needs.
// Typed or pasted text never becomes a token; tokens enter by insertToken.
class TokenField : public QWidget {
    Q_OBJECT
public:
    explicit TokenField(QWidget* parent = nullptr);

    // The titles of the token menu, which are also the kind names, in menu order.
    static QStringList kindTitles();
    // A new document's format: the file's own name, its frame number and its
    // extension, so that conforming without changes rebuilds shot.0001.dpx.
    static QVariantList defaultTokens();

    // Sets the object list without emitting tokensEdited.
    void setTokens(const QVariantList& tokens);
    QVariantList tokens() const { return m_list.objects(); }
    // The format as shown, each chip as its kind name.
    QString displayText() const { return m_list.displayText(); }
    QString selectedText() const;
    const TokenList& content() const { return m_list; }

    // Caret and selection in units (a chip is one unit).
    int cursorPosition() const { return m_list.caret(); }
    void setSelection(int anchor, int caret);
    // The caret's rectangle in front of the unit at pos.
    QRect cursorRect(int pos) const;
    QRect unitRect(int pos) const;
    int positionAt(const QPoint& point) const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;
    bool hasHeightForWidth() const override { return true; }
    int heightForWidth(int width) const override;

public slots:
    // Inserts the kind token named by a token menu title where the format
    // wants it (before the frame number, else the extension, else at the end).
    void insertToken(const QString& title);
    void selectAll();
    void copy() const;
    void cut();
    void paste();
    void undo();
    void redo();

signals:
    // Every edit by the user, keystroke by keystroke.
    void tokensEdited(const QVariantList& tokens);

protected:
    bool event(QEvent* event) override;
    void paintEvent(QPaintEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseDoubleClickEvent(QMouseEvent* event) override;
    void focusInEvent(QFocusEvent* event) override;
    void focusOutEvent(QFocusEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    void changeEvent(QEvent* event) override;
    void timerEvent(QTimerEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
    void inputMethodEvent(QInputMethodEvent* event) override;
    QVariant inputMethodQuery(Qt::InputMethodQuery query) const override;

private:
    // One laid-out piece: a chip, or a stretch of one text run on one line.
    struct Piece {
        qsizetype element = 0;
        int start = 0; // first unit
        int count = 0; // units
        int line = 0;
        QRectF rect;
        QString text; // the text shown
        bool chip = false;
    };
    struct Metrics {
        int frame = 0;
        double padX = 0, padY = 0, chipPadX = 0, chipMarginX = 0, lineHeight = 0, chipHeight = 0;
    };
    Metrics metrics() const;
    QList<Piece> layoutFor(int width, int* height) const;
    void relayout();
    bool handleKey(QKeyEvent* event);
    static bool isEditKey(QKeyEvent* event);
    void moveCaret(int pos, bool extend);
    enum class Edit { Typing, Other };
    // Runs one edit by the user, keeping what it replaced for undo.
    bool apply(Edit kind, const std::function<bool(TokenList&)>& change);
    // After an edit by the user: lay out, repaint, tell the window and assistive tools.
    void edited();
    void caretChanged();
    void restartBlink();
    void paintChip(QPainter& p, const Piece& piece, bool selected) const;
    void paintText(QPainter& p, const Piece& piece) const;

    TokenList m_list;
    QList<Piece> m_pieces;
    QList<TokenList> m_undo;
    QList<TokenList> m_redo;
    Edit m_lastEdit = Edit::Other;
    QBasicTimer m_blink;
    int m_height = 0; // for the current width
    bool m_caretShown = true;
};
