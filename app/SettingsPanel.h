#pragma once

#include "SettingsForm.h"

#include <QHash>
#include <QStringList>
#include <QWidget>

class QCheckBox;
class QLineEdit;

// One task's settings panel: the fields and check boxes named after their
// outlets. It shows a settings form and reports each user edit as it happens;
// the window turns the edits into the document's form and a new preview.
class SettingsPanel : public QWidget {
    Q_OBJECT
public:
    explicit SettingsPanel(QWidget* parent = nullptr);

    // Fills the controls from the form without reporting edits.
    void loadFrom(const SettingsForm& form);
    // Writes what the controls show into the form (this panel's outlets only).
    void applyTo(SettingsForm& form) const;
    // The outlets this panel holds, fields first, each in layout order.
    QStringList outlets() const;
    bool hasOutlet(const QString& outlet) const;

signals:
    // A keystroke or paste in a field: its whole new text.
    void fieldEdited(const QString& outlet, const QString& text);
    // The user toggled a check box: 0 off, 1 on.
    void checkEdited(const QString& outlet, int state);

protected:
    // Finds the outlet controls after setupUi, connects them and names each
    // for screen readers after its label.
    void wireOutlets();

private:
    QList<QLineEdit*> m_fields;
    QList<QCheckBox*> m_checks;
};
