#include "FindReplacePanel.h"

#include "ui_FindReplacePanel.h"

FindReplacePanel::FindReplacePanel(QWidget* parent)
    : SettingsPanel(parent), m_ui(new Ui::FindReplacePanel) {
    m_ui->setupUi(this);
    wireOutlets();
    // The line keeps its height while empty, so the form does not jump as
    // the pattern turns valid and invalid with each keystroke.
    m_ui->findErrorText->setMinimumHeight(m_ui->findErrorText->fontMetrics().height());
    colorErrorLine();
}

void FindReplacePanel::changeEvent(QEvent* event) {
    SettingsPanel::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) colorErrorLine();
}

void FindReplacePanel::colorErrorLine() {
    // A red that reads on the window's background, light theme or dark.
    const bool dark = palette().color(QPalette::Window).lightness() < 128;
    QPalette line = m_ui->findErrorText->palette();
    line.setColor(QPalette::WindowText, dark ? QColor(0xff, 0x7b, 0x72) : QColor(0xb0, 0x1c, 0x1c));
    m_ui->findErrorText->setPalette(line);
}

FindReplacePanel::~FindReplacePanel() {
    delete m_ui;
}

void FindReplacePanel::setRegexError(const QString& message) {
    m_ui->findErrorText->setText(message);
    // A screen reader on the field hears why the pattern is refused.
    m_ui->findStringField->setAccessibleDescription(message);
}

QString FindReplacePanel::regexError() const {
    return m_ui->findErrorText->text();
}
