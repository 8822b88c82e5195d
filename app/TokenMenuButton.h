#pragma once

#include <QPointer>
#include <QToolButton>

class TokenField;

// The button beside the token field whose menu inserts a kind token.
class TokenMenuButton : public QToolButton {
    Q_OBJECT
public:
    explicit TokenMenuButton(TokenField* field, QWidget* parent = nullptr);

private:
    QPointer<TokenField> m_field;
};
