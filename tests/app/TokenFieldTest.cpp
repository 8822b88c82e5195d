// The conform format field: object list, token menu, keyboard editing,
// clipboard, layout and what assistive tools read.
#include "TokenField.h"
#include "AppTest.h"
#include "MyDocument.h"
#include "TokenMenuButton.h"

#include <QAccessible>
#include <QAction>
#include <QClipboard>
#include <QInputMethodEvent>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>

using namespace Qt::StringLiterals;

namespace {

QString tok(const char* kind) {
    return TokenList::tokenForKind(QString::fromUtf8(kind));
}
QVariant str(const char* s) {
    return QString::fromUtf8(s);
}

// "Shift+Left Backspace" -> key clicks.
void press(QWidget* w, const QString& keys) {
    for (const QString& k : keys.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        const QKeyCombination c = QKeySequence::fromString(k)[0];
        QTest::keyClick(w, c.key(), c.keyboardModifiers());
    }
}

} // namespace

class TokenFieldTest : public QObject {
    Q_OBJECT
private slots:
    void setTokensKeepsThemAsGiven();
    void tokenMenuInsertsTheChosenKind();
    void keyboard_data();
    void keyboard();
    void typedTextStaysText();
    void copyAndPaste();
    void layoutHitsItsOwnCarets();
    void accessible();
    void windowShortcutsStayOff();
};

// Tokens come back as given, whatever they hold; only the user's edits are signalled.
void TokenFieldTest::setTokensKeepsThemAsGiven() {
    TokenField field;
    QSignalSpy edited(&field, &TokenField::tokensEdited);
    const QVariantList tokens{str("take"),   str("-"), tok("Today's Date"), 42,
                              QVariantMap{}, str(""),  str("@@ @@")};
    field.setTokens(tokens);
    QCOMPARE(field.tokens(), tokens);
    QCOMPARE(field.displayText(), u"take-Today's DateUnknownUnknown"_s);
    QCOMPARE(edited.count(), 0);
}

// The menu offers the kinds; a choice goes where the document puts tokens, as one edit.
void TokenFieldTest::tokenMenuInsertsTheChosenKind() {
    TokenField field;
    TokenMenuButton button(&field);
    field.setTokens(TokenField::defaultTokens());
    QSignalSpy edited(&field, &TokenField::tokensEdited);
    QStringList titles;
    QAction* chosen = nullptr;
    for (QAction* a : button.menu()->actions()) {
        titles << a->text();
        if (a->data().toString() == u"Created Date") chosen = a;
    }
    QCOMPARE(titles, TokenField::kindTitles());
    QVERIFY(chosen);
    chosen->trigger();
    const QVariantList after{tok("Filename"),     str("_"), tok("Created Date"),  str("."),
                             tok("Frame Number"), str("."), tok("File Extension")};
    QCOMPARE(field.tokens(), after);
    QCOMPARE(edited.count(), 1);
    QCOMPARE(edited.first().first().toList(), after);
}

void TokenFieldTest::keyboard_data() {
    QTest::addColumn<QVariantList>("before");
    QTest::addColumn<QString>("keys");
    QTest::addColumn<QVariantList>("after");
    QTest::addColumn<QString>("selected");
    const QVariantList def = TokenField::defaultTokens();
    const QString fn = tok("Filename"), fr = tok("Frame Number"), ext = tok("File Extension");
    // The caret starts at the end.
    QTest::newRow("Backspace takes the chip before the caret whole")
        << def << u"Backspace"_s << QVariantList{fn, str("."), fr, str(".")} << QString();
    QTest::newRow("Delete takes the chip after the caret whole")
        << def << u"Home Delete"_s << QVariantList{str("."), fr, str("."), ext} << QString();
    QTest::newRow("an emptied run goes") << QVariantList{fr, str("x"), ext} << u"Left Backspace"_s
                                         << QVariantList{fr, ext} << QString();
    QTest::newRow("Backspace in text takes one character: a pair, a letter and its mark")
        << QVariantList{QString::fromUtf8("xe\xCC\x81\xF0\x9F\x8E\x9E")} << u"Backspace Backspace"_s
        << QVariantList{str("x")} << QString();
    QTest::newRow("Shift+End from inside")
        << def << u"Home Right Right Shift+End"_s << def << u"Frame Number.File Extension"_s;
    QTest::newRow("Right collapses a selection to its end")
        << def << u"Home Shift+Right Right Backspace"_s << QVariantList{str("."), fr, str("."), ext}
        << QString();
    QTest::newRow("select all, type: text replaces everything")
        << def << u"Ctrl+A X"_s << QVariantList{str("x")} << QString();
    QTest::newRow("word-wise delete stops at a chip")
        << QVariantList{fn, str("shot take")} << u"Ctrl+Backspace Ctrl+Backspace"_s
        << QVariantList{fn} << QString();
    QTest::newRow("undo brings a chip back, redo takes it again")
        << def << u"Backspace Backspace Ctrl+Z Ctrl+Z Ctrl+Shift+Z"_s
        << QVariantList{fn, str("."), fr, str(".")} << QString();
    QTest::newRow("a caret move ends a run of typing")
        << QVariantList{fr} << u"A B C Left D Ctrl+Z"_s << QVariantList{fr, str("abc")}
        << QString();
    QTest::newRow("a run of typing is one undo step")
        << QVariantList{fr} << u"A B C Left D Ctrl+Z Ctrl+Z"_s << QVariantList{fr} << QString();
    QTest::newRow("Return changes nothing")
        << QVariantList{str("a,b")} << u"Return Enter"_s << QVariantList{str("a,b")} << QString();
}

void TokenFieldTest::keyboard() {
    QFETCH(QVariantList, before);
    QFETCH(QString, keys);
    QFETCH(QVariantList, after);
    QFETCH(QString, selected);
    TokenField field;
    field.setTokens(before);
    QSignalSpy edited(&field, &TokenField::tokensEdited);
    press(&field, keys);
    QCOMPARE(field.tokens(), after);
    QCOMPARE(field.selectedText(), selected);
    if (after != before) QCOMPARE(edited.last().first().toList(), after);
}

void TokenFieldTest::typedTextStaysText() {
    TokenField field;
    QSignalSpy edited(&field, &TokenField::tokensEdited);
    const QString typed = u"@@ Filename @@"_s;
    QTest::keyClicks(&field, typed);
    QCOMPARE(edited.count(), typed.size()); // keystroke by keystroke
    QCOMPARE(field.displayText(), typed);
    press(&field, u"Left"_s);
    field.setTokens(field.tokens()); // the form echoed back leaves the caret alone
    QCOMPARE(field.cursorPosition(), typed.size() - 1);
    // The format reads it as free text, not as the file's name.
    const QVariantList format = MyDocument::formatComponentsFromArray(field.tokens());
    QVERIFY(!format.isEmpty());
    for (const QVariant& e : format)
        QVERIFY(!e.toMap().contains(u"Filename"_s));

    // Composed input arrives as committed text.
    QInputMethodEvent composed;
    composed.setCommitString(QString::fromUtf8("\xC3\xA9"));
    QApplication::sendEvent(&field, &composed);
    QCOMPARE(field.displayText(), QString::fromUtf8("@@ Filename @\xC3\xA9@"));

    // Text typed between two chips is a run of its own; after a "." it joins the dot.
    field.setTokens({tok("Filename"), tok("Frame Number"), str("."), tok("File Extension")});
    press(&field, u"Home Right"_s);
    QTest::keyClicks(&field, u"_v2"_s);
    press(&field, u"Right Right"_s);
    QTest::keyClicks(&field, u"x"_s);
    QCOMPARE(field.tokens(), (QVariantList{tok("Filename"), str("_v2"), tok("Frame Number"),
                                           str(".x"), tok("File Extension")}));
}

void TokenFieldTest::copyAndPaste() {
    TokenField field;
    field.setTokens(TokenField::defaultTokens());
    press(&field, u"Shift+Left Shift+Left Ctrl+C End"_s);
    QCOMPARE(QGuiApplication::clipboard()->text(), u".File Extension"_s);
    press(&field, u"Ctrl+V"_s);
    // Chips copied from the field come back as chips.
    const QVariantList twice =
        TokenField::defaultTokens() + QVariantList{str("."), tok("File Extension")};
    QCOMPARE(field.tokens(), twice);

    // Cut takes the chips out and puts their names on the clipboard.
    press(&field, u"Home Shift+Right Shift+Right Ctrl+X"_s);
    QCOMPARE(QGuiApplication::clipboard()->text(), u"Filename."_s);
    QCOMPARE(field.tokens(), twice.mid(2));

    // Text from elsewhere is text, whatever it looks like, and keeps to one line.
    QGuiApplication::clipboard()->setText(u"@@ Frame Number @@\nx"_s);
    field.setTokens({});
    press(&field, u"Ctrl+V"_s);
    QCOMPARE(field.displayText(), u"@@ Frame Number @@ x"_s);
    QCOMPARE(MyDocument::formatComponentsFromArray(field.tokens()).size(), 1);
}

void TokenFieldTest::layoutHitsItsOwnCarets() {
    TokenField field;
    field.setTokens({tok("Filename"), str(" take two of the shot "), tok("Frame Number"), str("."),
                     tok("File Extension"), str("x_averyveryverylongwordwithoutspaces")});
    for (int width : {900, 150, 90}) {
        field.resize(width, field.heightForWidth(width));
        for (int pos = 0; pos <= field.content().length(); ++pos)
            QCOMPARE(field.positionAt(field.cursorRect(pos).center()), pos);
    }
    QVERIFY(field.heightForWidth(150) > field.heightForWidth(900)); // wraps, and grows

    // A click on a chip selects it; a drag selects what it passes over.
    field.resize(600, field.heightForWidth(600));
    const int chip = field.content().elementStart(2);
    QTest::mouseClick(&field, Qt::LeftButton, {}, field.unitRect(chip).center());
    QCOMPARE(field.selectedText(), u"Frame Number"_s);
    const QPoint from = field.cursorRect(chip - 3).center(),
                 to = field.cursorRect(chip + 2).center();
    QTest::mousePress(&field, Qt::LeftButton, {}, from);
    QMouseEvent move(QEvent::MouseMove, to, field.mapToGlobal(to), Qt::NoButton, Qt::LeftButton,
                     Qt::NoModifier);
    QApplication::sendEvent(&field, &move);
    QTest::mouseRelease(&field, Qt::LeftButton, {}, to);
    QCOMPARE(field.selectedText(), u"ot Frame Number."_s);
}

void TokenFieldTest::accessible() {
    TokenField field;
    field.setTokens({tok("Filename"), str("_v"), 7});
    field.resize(400, field.heightForWidth(400));
    QAccessibleInterface* a = QAccessible::queryAccessibleInterface(&field);
    QVERIFY(a);
    QCOMPARE(a->role(), QAccessible::EditableText);
    QCOMPARE(a->text(QAccessible::Value), u"Filename_vUnknown"_s);
    QCOMPARE(a->child(0)->text(QAccessible::Name), u"Filename"_s);

    // Offsets count the shown names: "Filename" is eight characters, one chip.
    QAccessibleTextInterface* text = a->textInterface();
    QVERIFY(text);
    QCOMPARE(text->characterCount(), 17);
    text->setSelection(0, 0, 9);
    QCOMPARE(field.selectedText(), u"Filename_"_s);
    text->setCursorPosition(10);
    QCOMPARE(field.cursorPosition(), 3);

    // Children, one a chip or a run of text, follow edits.
    press(&field, u"Home Delete"_s);
    QCOMPARE(a->childCount(), 2);
    QCOMPARE(a->child(0)->text(QAccessible::Name), u"_v"_s);
}

void TokenFieldTest::windowShortcutsStayOff() {
    QWidget window;
    auto* field = new TokenField(&window);
    auto* button = new QPushButton(u"b"_s, &window);
    QAction remove(&window);
    remove.setShortcut(QKeySequence::Delete);
    window.addAction(&remove);
    QSignalSpy removed(&remove, &QAction::triggered);
    field->setTokens(TokenField::defaultTokens());
    window.show();
    window.activateWindow();
    QVERIFY(QTest::qWaitForWindowActive(&window));

    field->setFocus();
    press(field, u"Home Delete"_s);
    QCOMPARE(removed.count(), 0);
    QCOMPARE(field->tokens().size(), 4);
    button->setFocus();
    press(button, u"Delete"_s);
    QCOMPARE(removed.count(), 1); // the shortcut itself works
}

SEQMATE_APP_TEST_MAIN(TokenFieldTest)
#include "TokenFieldTest.moc"
