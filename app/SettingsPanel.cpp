#include "SettingsPanel.h"

#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>

namespace {
// Every outlet a settings panel may hold; a control under another name is
// layout, not a setting.
const QStringList& knownOutlets() {
    static const QStringList outlets = {
        Outlet::padLengthField,
        Outlet::offsetField,
        Outlet::reorderStartFrameField,
        Outlet::fileExtensionField,
        Outlet::prefixField,
        Outlet::suffixField,
        Outlet::suffixAddBeforeFrameCheck,
        Outlet::removeCharCountField,
        Outlet::removeCharRangeStartField,
        Outlet::removeCharRangeEndField,
        Outlet::findStringField,
        Outlet::findMatchCaseCheck,
        Outlet::findRegExCheck,
        Outlet::findIncludeExtension,
        Outlet::replaceStringField,
        Outlet::insertCharsPosition,
        Outlet::insertCharsText,
        Outlet::replaceRangeStartPosition,
        Outlet::replaceRangeEndPosition,
        Outlet::replaceRangeText,
    };
    return outlets;
}

// A label as a screen reader should say it: no mnemonic marker, no colon.
QString spokenLabel(QString text) {
    text.replace(QStringLiteral("&&"), QStringLiteral("\x01"));
    text.remove(u'&');
    text.replace(u'\x01', u'&');
    if (text.endsWith(u':')) text.chop(1);
    return text.trimmed();
}
} // namespace

SettingsPanel::SettingsPanel(QWidget* parent) : QWidget(parent) {}

void SettingsPanel::wireOutlets() {
    const auto labels = findChildren<QLabel*>();
    auto labelFor = [&labels](QWidget* control) -> QString {
        for (QLabel* label : labels)
            if (label->buddy() == control) return spokenLabel(label->text());
        return QString();
    };
    // findChildren walks the tree in creation order, which is the layout
    // order of a Designer form.
    for (QLineEdit* field : findChildren<QLineEdit*>()) {
        const QString outlet = field->objectName();
        if (!knownOutlets().contains(outlet)) continue;
        m_fields.append(field);
        if (field->accessibleName().isEmpty()) field->setAccessibleName(labelFor(field));
        // textEdited, not textChanged: loading the form must not read as an edit.
        connect(field, &QLineEdit::textEdited, this,
                [this, outlet](const QString& text) { emit fieldEdited(outlet, text); });
    }
    for (QCheckBox* check : findChildren<QCheckBox*>()) {
        const QString outlet = check->objectName();
        if (!knownOutlets().contains(outlet)) continue;
        m_checks.append(check);
        if (check->accessibleName().isEmpty()) check->setAccessibleName(spokenLabel(check->text()));
        // clicked fires for mouse, keyboard and mnemonic, never for setChecked.
        connect(check, &QCheckBox::clicked, this,
                [this, outlet](bool on) { emit checkEdited(outlet, on ? 1 : 0); });
    }
}

void SettingsPanel::loadFrom(const SettingsForm& form) {
    for (QLineEdit* field : std::as_const(m_fields)) {
        const QString text = form.fieldText(field->objectName());
        // Left alone when unchanged, so a reload while typing keeps the cursor.
        if (field->text() != text) {
            const QSignalBlocker quiet(field);
            field->setText(text);
        }
    }
    for (QCheckBox* check : std::as_const(m_checks)) {
        const QSignalBlocker quiet(check);
        check->setChecked(form.checkState(check->objectName()) != 0);
    }
}

void SettingsPanel::applyTo(SettingsForm& form) const {
    for (const QLineEdit* field : m_fields)
        form.text.insert(field->objectName(), field->text());
    for (const QCheckBox* check : m_checks)
        form.checks.insert(check->objectName(), check->isChecked() ? 1 : 0);
}

QStringList SettingsPanel::outlets() const {
    QStringList names;
    for (const QLineEdit* field : m_fields)
        names.append(field->objectName());
    for (const QCheckBox* check : m_checks)
        names.append(check->objectName());
    return names;
}

bool SettingsPanel::hasOutlet(const QString& outlet) const {
    return outlets().contains(outlet);
}
