#pragma once

#include <QDialog>

class QButtonGroup;

namespace Ui {
class PreferencesDialog;
}

// Edit > Preferences: what a commit does with a file that stands in the way,
// how many files it moves at once, and whether the table shows full source
// paths. A change is stored at once (UserDefaults), with no OK to press, and
// open windows follow its signal.
class PreferencesDialog : public QDialog {
    Q_OBJECT
public:
    explicit PreferencesDialog(QWidget* parent = nullptr);
    ~PreferencesDialog() override;

protected:
    void showEvent(QShowEvent* event) override;

private:
    void load(); // the stored values into the controls

    Ui::PreferencesDialog* m_ui;
    QButtonGroup* m_conflictChoices;
};
