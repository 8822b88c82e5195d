#include "ConformPanel.h"

#include "ui_ConformPanel.h"

#include <QHBoxLayout>

ConformPanel::ConformPanel(QWidget* parent) : SettingsPanel(parent), m_ui(new Ui::ConformPanel) {
    m_ui->setupUi(this);
    wireOutlets();
}

ConformPanel::~ConformPanel() {
    delete m_ui;
}

QHBoxLayout* ConformPanel::tokenFieldSlot() const {
    return m_ui->tokenFieldSlot;
}

void ConformPanel::setTokenField(QWidget* field) {
    m_ui->tokenFieldSlot->insertWidget(0, field, 1);
    // The mnemonic only once there is a field for it to reach.
    m_ui->tokenFieldSlotLabel->setText(tr("&Format:"));
    m_ui->tokenFieldSlotLabel->setBuddy(field);
}

void ConformPanel::setTokenMenuButton(QWidget* button) {
    auto* row = new QHBoxLayout;
    row->addWidget(button);
    row->addStretch(1);
    m_ui->formLayout->insertRow(1, QString(), row);
}
