// The task pop-up, the settings panels in their scroll area, and preferences.
#include "AppTest.h"
#include "Preferences.h"
#include "PreferencesDialog.h"
#include "QXClipView.h"
#include "SettingsPanel.h"
#include "TaskPopUp.h"
#include "UserDefaults.h"
#include "panels/BlankPanel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QScrollArea>
#include <QSettings>
#include <QSignalSpy>
#include <QSpinBox>

using namespace Qt::StringLiterals;

namespace {
QString spoken(QString label) {
    label.remove(u'&');
    if (label.endsWith(u':')) label.chop(1);
    return label;
}
} // namespace

class SettingsPanelsTest : public QObject {
    Q_OBJECT
    QScrollArea* m_area = nullptr;
    QXClipView* m_clip = nullptr;

private slots:
    void init() {
        m_area = new QScrollArea;
        m_clip = new QXClipView;
        m_clip->attachTo(m_area);
        m_area->show();
    }
    void cleanup() { delete m_area; }

    // Every task is there (the window test picks each from it), under a title
    // of its own.
    void popUpHoldsEveryTaskOnce() {
        QComboBox popUp;
        popUp.addItem(u"stale"_s, 99);
        TaskPopUp::fill(&popUp);
        QStringList titles;
        for (int i = 0; i < popUp.count(); ++i)
            if (popUp.itemData(i).isValid()) titles.append(popUp.itemText(i));
        titles.removeDuplicates();
        QCOMPARE(titles.size(), 26);
        QVERIFY(!TaskPopUp::selectTag(&popUp, 27)); // a hand-edited batch's tag
    }

    // Leaving a blank task leaves no description behind; a tag without a task
    // shows no panel.
    void leavingABlankTaskClearsItsDescription() {
        for (int tag : {5, 0, 27, 28, -1}) {
            m_clip->changeTask(6);
            m_clip->changeTask(tag);
            QCOMPARE(m_clip->blankPanel()->description(), QString());
            QStringList visible;
            for (SettingsPanel* p : m_clip->panels())
                if (p->isVisibleTo(m_clip)) visible << p->objectName();
            QCOMPARE(visible, tag == 5 ? QStringList{u"windowPad"_s} : QStringList());
        }
    }

    // A panel loads its outlets from a form and writes them back, reports each
    // edit as it happens (numbers too are text: the engine reads what it can),
    // and its controls are named as their labels say.
    void panelRoundTripsAForm_data() {
        QTest::addColumn<int>("tag"); // one task for each panel with settings
        for (int tag : {1, 3, 5, 7, 10, 12, 13, 14, 16, 25, 26})
            QTest::addRow("%d", tag) << tag;
    }
    void panelRoundTripsAForm() {
        QFETCH(int, tag);
        m_clip->changeTask(tag);
        SettingsPanel* panel = m_clip->currentPanel();
        QVERIFY(panel);
        const QStringList outlets = panel->outlets();
        QVERIFY(!outlets.isEmpty());

        SettingsForm form;
        for (const QString& outlet : outlets) {
            if (panel->findChild<QCheckBox*>(outlet))
                form.checks.insert(outlet, 1);
            else
                form.text.insert(outlet, u" -4"_s + outlet.left(3));
        }
        // Outlets of other panels in the form are no business of this one.
        form.text.insert(u"noSuchField"_s, u"x"_s);
        QSignalSpy texts(m_clip, &QXClipView::fieldEdited);
        QSignalSpy checks(m_clip, &QXClipView::checkEdited);
        m_clip->loadFrom(form);
        QCOMPARE(texts.size() + checks.size(), 0);
        SettingsForm back;
        panel->applyTo(back);
        for (const QString& outlet : outlets) {
            QCOMPARE(back.checkState(outlet), form.checkState(outlet));
            QCOMPARE(back.fieldText(outlet), form.fieldText(outlet));
            if (auto* check = panel->findChild<QCheckBox*>(outlet)) {
                QCOMPARE(check->accessibleName(), spoken(check->text()));
                // On the box itself: a check box wider than its text ignores
                // clicks at its centre.
                QTest::mouseClick(check, Qt::LeftButton, {}, QPoint(6, check->height() / 2));
                QCOMPARE(checks.takeFirst(), (QVariantList{outlet, 0}));
                continue;
            }
            auto* field = panel->findChild<QLineEdit*>(outlet);
            QVERIFY(field);
            bool labelled = false;
            for (const QLabel* label : panel->findChildren<QLabel*>())
                if (label->buddy() == field)
                    labelled = field->accessibleName() == spoken(label->text());
            QVERIFY2(labelled, qPrintable(outlet));
            const QString loaded = field->text();
            field->setFocus();
            field->end(false);
            QTest::keyClick(field, Qt::Key_Z);
            QTest::keyClick(field, Qt::Key_Backspace);
            QCOMPARE(texts.takeFirst(), (QVariantList{outlet, QString(loaded + u'z')}));
            QCOMPARE(texts.takeFirst(), (QVariantList{outlet, loaded}));
        }
        QCOMPARE(texts.size() + checks.size(), 0);
    }

    // A choice is stored as it is clicked, once per change; the dialog shows
    // what is stored when it opens again.
    void preferencesAreStoredAtOnce() {
        QSettings stored(u"Corvane"_s, u"Seqmate"_s);
        PreferencesDialog dialog;
        dialog.show();
        auto* move = dialog.findChild<QRadioButton*>(u"conflictMoveRadio"_s);
        auto* rename = dialog.findChild<QRadioButton*>(u"conflictRenameRadio"_s);
        auto* trash = dialog.findChild<QRadioButton*>(u"conflictTrashRadio"_s);
        QVERIFY(move && rename && trash);

        QSignalSpy changed(UserDefaults::instance(), &UserDefaults::changed);
        QTest::mouseClick(trash, Qt::LeftButton);
        QCOMPARE(stored.value(u"conflictAction"_s).toInt(), 2);
        QTest::mouseClick(rename, Qt::LeftButton);
        QTest::mouseClick(move, Qt::LeftButton);
        QCOMPARE(Preferences::conflictAction(), 0); // what the commit will read
        QTest::mouseClick(move, Qt::LeftButton);    // already chosen: nothing new
        QCOMPARE(changed.size(), 3);

        dialog.hide();
        stored.setValue(UserDefaults::conflictActionKey, 1);
        stored.setValue(UserDefaults::showFullSourcePathsKey, 1);
        dialog.show();
        QVERIFY(rename->isChecked());
        QVERIFY(dialog.findChild<QCheckBox*>(u"showFullSourcePathsCheck"_s)->isChecked());
        auto* jobs = dialog.findChild<QSpinBox*>(u"commitJobsSpin"_s);
        QVERIFY(jobs && jobs->value() == Preferences::kDefaultCommitJobs);
        jobs->setValue(4);
        QCOMPARE(Preferences::commitJobs(), 4); // what the commit reads
        QCOMPARE(changed.last().first().toString(), UserDefaults::commitJobsKey);
    }
};

SEQMATE_APP_TEST_MAIN(SettingsPanelsTest)
#include "SettingsPanelsTest.moc"
