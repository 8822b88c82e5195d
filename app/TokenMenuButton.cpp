#include "TokenMenuButton.h"
#include "TokenField.h"

#include <QAction>
#include <QMenu>
#include <QStyle>

TokenMenuButton::TokenMenuButton(TokenField* field, QWidget* parent)
    : QToolButton(parent), m_field(field) {
    setObjectName(QStringLiteral("tokenMenuButton"));
    setText(tr("Insert Token"));
    setAccessibleName(tr("Insert Token"));
    setToolTip(tr("Insert a token into the format"));
    setPopupMode(QToolButton::InstantPopup);
    setToolButtonStyle(Qt::ToolButtonTextOnly);
    auto* menu = new QMenu(this);
    menu->setObjectName(QStringLiteral("tokenMenu"));
    for (const QString& title : TokenField::kindTitles()) {
        // The kind travels in the action's data: some desktops add mnemonic
        // ampersands to menu texts.
        QAction* action = menu->addAction(title);
        action->setData(title);
    }
    connect(menu, &QMenu::triggered, this, [this](QAction* action) {
        if (!m_field) return;
        m_field->insertToken(action->data().toString());
        m_field->setFocus(Qt::OtherFocusReason);
    });
    setMenu(menu);
    // The style draws the menu arrow inside the text's box; room for it keeps
    // the last letters readable.
    setMinimumWidth(sizeHint().width() +
                    style()->pixelMetric(QStyle::PM_MenuButtonIndicator, nullptr, this));
}
