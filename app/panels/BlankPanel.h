#pragma once

#include "SettingsPanel.h"

namespace Ui {
class BlankPanel;
}

// The panel of the tasks without settings: it only describes the task.
class BlankPanel : public SettingsPanel {
    Q_OBJECT
public:
    explicit BlankPanel(QWidget* parent = nullptr);
    ~BlankPanel() override;

    void setDescription(const QString& text);
    QString description() const;

private:
    Ui::BlankPanel* m_ui;
};
