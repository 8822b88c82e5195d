#pragma once

#include "SettingsForm.h"

#include <QHash>
#include <QWidget>

class QScrollArea;
class QVBoxLayout;
class SettingsPanel;
class BlankPanel;
class ConformPanel;
class FindReplacePanel;

// The settings area's content: it holds the thirteen settings panels of one
// window (made once, kept for the window's life) and shows the panel of the
// selected task at the top of the scroll area, however short the panel.
class QXClipView : public QWidget {
    Q_OBJECT
public:
    explicit QXClipView(QWidget* parent = nullptr);

    // Becomes the scroll area's content, drawing no background of its own.
    void attachTo(QScrollArea* area);

    // Shows the panel of a task tag: its own, the blank panel with the
    // task's description, or none for tag 0 and tags above 26.
    void changeTask(int tag);
    // The panel's name for a tag ("windowPad", "windowBlank"); empty for none.
    static QString panelNameForTag(int tag);

    SettingsPanel* panel(const QString& name) const; // null for unknown names
    SettingsPanel* currentPanel() const;             // null when none is shown
    QList<SettingsPanel*> panels() const;
    BlankPanel* blankPanel() const;
    ConformPanel* conformPanel() const;
    FindReplacePanel* findReplacePanel() const;

    // Fills every panel from the form, reporting no edits.
    void loadFrom(const SettingsForm& form);
    void applyTo(SettingsForm& form) const;

signals:
    // A user edit in any panel (see SettingsPanel).
    void fieldEdited(const QString& outlet, const QString& text);
    void checkEdited(const QString& outlet, int state);

private:
    void addPanel(SettingsPanel* panel);

    QVBoxLayout* m_layout;
    QList<SettingsPanel*> m_panels;
    QHash<QString, SettingsPanel*> m_byName;
    SettingsPanel* m_current = nullptr;
};
