#pragma once

#include "SettingsPanel.h"

class QHBoxLayout;

namespace Ui {
class ConformPanel;
}

// Conform to format. Its one setting is the token field's object list, which
// the token field reports itself: the panel only gives it a place.
class ConformPanel : public SettingsPanel {
    Q_OBJECT
public:
    explicit ConformPanel(QWidget* parent = nullptr);
    ~ConformPanel() override;

    // The empty row beside the "Format:" label where the token field and its
    // menu button go.
    QHBoxLayout* tokenFieldSlot() const;
    // Puts the token field into the slot and makes it the label's buddy.
    void setTokenField(QWidget* field);
    // The token menu's button, on a row of its own under the field: beside it,
    // it would squeeze the field into one chip per line.
    void setTokenMenuButton(QWidget* button);

private:
    Ui::ConformPanel* m_ui;
};
