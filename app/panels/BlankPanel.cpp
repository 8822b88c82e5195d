#include "BlankPanel.h"

#include "ui_BlankPanel.h"

BlankPanel::BlankPanel(QWidget* parent) : SettingsPanel(parent), m_ui(new Ui::BlankPanel) {
    m_ui->setupUi(this);
    wireOutlets();
}

BlankPanel::~BlankPanel() {
    delete m_ui;
}

void BlankPanel::setDescription(const QString& text) {
    m_ui->blankDescriptionText->setText(text);
}

QString BlankPanel::description() const {
    return m_ui->blankDescriptionText->text();
}
