#include "QXClipView.h"

#include "MyDocument.h"
#include "panels/BlankPanel.h"
#include "panels/ConformPanel.h"
#include "panels/FindReplacePanel.h"
#include "panels/FormPanel.h"

#include "ui_ChangeExtensionPanel.h"
#include "ui_InsertCharsPanel.h"
#include "ui_OffsetPanel.h"
#include "ui_PadPanel.h"
#include "ui_PrefixPanel.h"
#include "ui_RemoveCharsPanel.h"
#include "ui_RemoveRangePanel.h"
#include "ui_RenumberPanel.h"
#include "ui_ReplaceRangePanel.h"
#include "ui_SuffixPanel.h"

#include <QScrollArea>
#include <QVBoxLayout>

namespace {
const QString kBlank = QStringLiteral("windowBlank");
}

QXClipView::QXClipView(QWidget* parent) : QWidget(parent), m_layout(new QVBoxLayout(this)) {
    setObjectName(QStringLiteral("settingsClipView"));
    setAutoFillBackground(false);
    m_layout->setContentsMargins(14, 12, 14, 12);
    addPanel(new BlankPanel(this));
    addPanel(new ConformPanel(this));
    addPanel(new FormPanel<Ui::OffsetPanel>(this));
    addPanel(new FormPanel<Ui::PadPanel>(this));
    addPanel(new FormPanel<Ui::RenumberPanel>(this));
    addPanel(new FormPanel<Ui::ChangeExtensionPanel>(this));
    addPanel(new FormPanel<Ui::PrefixPanel>(this));
    addPanel(new FormPanel<Ui::SuffixPanel>(this));
    addPanel(new FormPanel<Ui::RemoveCharsPanel>(this));
    addPanel(new FormPanel<Ui::RemoveRangePanel>(this));
    addPanel(new FindReplacePanel(this));
    addPanel(new FormPanel<Ui::InsertCharsPanel>(this));
    addPanel(new FormPanel<Ui::ReplaceRangePanel>(this));
    // The stretch takes whatever height the panel leaves: a short panel stays
    // at the top instead of floating in the middle of the area.
    m_layout->addStretch(1);
}

void QXClipView::addPanel(SettingsPanel* panel) {
    panel->hide();
    m_layout->addWidget(panel);
    m_panels.append(panel);
    m_byName.insert(panel->objectName(), panel);
    connect(panel, &SettingsPanel::fieldEdited, this, &QXClipView::fieldEdited);
    connect(panel, &SettingsPanel::checkEdited, this, &QXClipView::checkEdited);
}

void QXClipView::attachTo(QScrollArea* area) {
    area->setWidgetResizable(true);
    area->setWidget(this);
    area->viewport()->setAutoFillBackground(false);
}

QString QXClipView::panelNameForTag(int tag) {
    switch (tag) {
    case 1:
        return QStringLiteral("windowFindReplace");
    case 2:
        return QStringLiteral("windowConform");
    case 3:
        return QStringLiteral("windowOffset");
    case 5:
        return QStringLiteral("windowPad");
    case 7:
        return QStringLiteral("windowRenumber");
    case 10:
        return QStringLiteral("windowChangeExtension");
    case 12:
        return QStringLiteral("windowPrefix");
    case 13:
        return QStringLiteral("windowSuffix");
    case 14:
    case 15:
        return QStringLiteral("windowRemoveChars");
    case 16:
        return QStringLiteral("windowRemoveRange");
    case 25:
        return QStringLiteral("windowInsertCharsAtPosition");
    case 26:
        return QStringLiteral("windowReplaceCharsInRange");
    default:
        // Every other task is described on the blank panel; 0 and unknown
        // tags have no description and show nothing.
        return MyDocument::taskDescription(tag).isEmpty() ? QString() : kBlank;
    }
}

void QXClipView::changeTask(int tag) {
    blankPanel()->setDescription(QString());
    SettingsPanel* next = m_byName.value(panelNameForTag(tag));
    if (next == blankPanel()) blankPanel()->setDescription(MyDocument::taskDescription(tag));
    if (next == m_current) return;
    if (m_current) m_current->hide();
    m_current = next;
    if (m_current) m_current->show();
}

SettingsPanel* QXClipView::panel(const QString& name) const {
    return m_byName.value(name);
}

SettingsPanel* QXClipView::currentPanel() const {
    return m_current;
}

QList<SettingsPanel*> QXClipView::panels() const {
    return m_panels;
}

BlankPanel* QXClipView::blankPanel() const {
    return static_cast<BlankPanel*>(m_byName.value(kBlank));
}

ConformPanel* QXClipView::conformPanel() const {
    return static_cast<ConformPanel*>(m_byName.value(QStringLiteral("windowConform")));
}

FindReplacePanel* QXClipView::findReplacePanel() const {
    return static_cast<FindReplacePanel*>(m_byName.value(QStringLiteral("windowFindReplace")));
}

void QXClipView::loadFrom(const SettingsForm& form) {
    for (SettingsPanel* p : std::as_const(m_panels))
        p->loadFrom(form);
}

void QXClipView::applyTo(SettingsForm& form) const {
    for (const SettingsPanel* p : m_panels)
        p->applyTo(form);
}
