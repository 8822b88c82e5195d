#pragma once

#include "SettingsPanel.h"

namespace Ui {
class FindReplacePanel;
}

// Find and replace, with a message line under the find field that names a
// regular expression the engine cannot compile.
class FindReplacePanel : public SettingsPanel {
    Q_OBJECT
public:
    explicit FindReplacePanel(QWidget* parent = nullptr);
    ~FindReplacePanel() override;

    // The engine's error text for the find field; empty clears the line.
    void setRegexError(const QString& message);
    QString regexError() const;

protected:
    void changeEvent(QEvent* event) override;

private:
    void colorErrorLine();

    Ui::FindReplacePanel* m_ui;
};
