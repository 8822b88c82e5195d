#include "AboutDialog.h"

#include "ui_QXAbout.h"

#include <QIcon>

AboutDialog* AboutDialog::load(QWidget* parent) {
    return new AboutDialog(parent);
}

AboutDialog::AboutDialog(QWidget* parent) : QDialog(parent), m_ui(std::make_unique<Ui::QXAbout>()) {
    m_ui->setupUi(this);
    const QIcon icon(QStringLiteral(":/shell/seqmate.png"));
    if (!icon.isNull()) m_ui->aboutIcon->setPixmap(icon.pixmap(96, 96));
    m_ui->aboutVersion->setText(tr("Version %1").arg(QStringLiteral(SEQMATE_VERSION)));
    m_ui->aboutVersion->setAccessibleName(m_ui->aboutVersion->text());
}

AboutDialog::~AboutDialog() = default;
