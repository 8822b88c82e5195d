#include "PreferencesDialog.h"

#include "UserDefaults.h"
#include "ui_PreferencesDialog.h"

#include "Preferences.h"

#include <QButtonGroup>
#include <QSignalBlocker>

PreferencesDialog::PreferencesDialog(QWidget* parent)
    : QDialog(parent), m_ui(new Ui::PreferencesDialog), m_conflictChoices(new QButtonGroup(this)) {
    m_ui->setupUi(this);
    // The ids are the stored "conflictAction" values.
    m_conflictChoices->addButton(m_ui->conflictMoveRadio, 0);
    m_conflictChoices->addButton(m_ui->conflictRenameRadio, 1);
    m_conflictChoices->addButton(m_ui->conflictTrashRadio, 2);
    m_ui->commitJobsSpin->setRange(1, Preferences::kMaxCommitJobs);
    load();
    connect(m_conflictChoices, &QButtonGroup::idClicked, this,
            [](int id) { UserDefaults::instance()->setConflictAction(id); });
    connect(m_ui->showFullSourcePathsCheck, &QCheckBox::clicked, this,
            [](bool on) { UserDefaults::instance()->setShowFullSourcePaths(on); });
    connect(m_ui->commitJobsSpin, &QSpinBox::valueChanged, this,
            [](int jobs) { UserDefaults::instance()->setCommitJobs(jobs); });
    // Another window may store a value while this one stays open.
    connect(UserDefaults::instance(), &UserDefaults::changed, this, &PreferencesDialog::load);
}

PreferencesDialog::~PreferencesDialog() {
    delete m_ui;
}

void PreferencesDialog::showEvent(QShowEvent* event) {
    load();
    QDialog::showEvent(event);
}

void PreferencesDialog::load() {
    const UserDefaults* defaults = UserDefaults::instance();
    // A value outside the three choices (set by hand) checks none of them.
    QAbstractButton* choice = m_conflictChoices->button(defaults->conflictAction());
    if (choice) {
        choice->setChecked(true);
    } else if (QAbstractButton* checked = m_conflictChoices->checkedButton()) {
        m_conflictChoices->setExclusive(false);
        checked->setChecked(false);
        m_conflictChoices->setExclusive(true);
    }
    m_ui->showFullSourcePathsCheck->setChecked(defaults->showFullSourcePaths());
    const QSignalBlocker quiet(m_ui->commitJobsSpin); // showing a value stores nothing
    m_ui->commitJobsSpin->setValue(defaults->commitJobs());
}
