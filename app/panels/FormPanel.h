#pragma once

#include "SettingsPanel.h"

// A settings panel that is nothing but its Designer form: the outlets do all
// the work, so one template serves the panels without extra behaviour.
template <class Form> class FormPanel : public SettingsPanel {
public:
    explicit FormPanel(QWidget* parent = nullptr) : SettingsPanel(parent) {
        m_form.setupUi(this);
        wireOutlets();
    }

private:
    Form m_form;
};
