// The task pop-up, the settings panels in their scroll area, and preferences.
#include "AppTest.h"
#include "MyDocument.h"
#include "Preferences.h"
#include "PreferencesDialog.h"
#include "QXClipView.h"
#include "SettingsPanel.h"
#include "TaskPopUp.h"
#include "UserDefaults.h"
#include "panels/BlankPanel.h"
#include "panels/FindReplacePanel.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QScrollArea>
#include <QSettings>
#include <QSignalSpy>
#include <QSpinBox>

#include <numeric>

namespace {
struct PanelCase {
    const char* name;
    int tag; // a task that shows it
    QStringList outlets;
};

const QStringList kChecks = {Outlet::suffixAddBeforeFrameCheck, Outlet::findMatchCaseCheck,
                             Outlet::findRegExCheck, Outlet::findIncludeExtension};

const QStringList kNumeric = {Outlet::padLengthField,
                              Outlet::offsetField,
                              Outlet::reorderStartFrameField,
                              Outlet::removeCharCountField,
                              Outlet::removeCharRangeStartField,
                              Outlet::removeCharRangeEndField,
                              Outlet::insertCharsPosition,
                              Outlet::replaceRangeStartPosition,
                              Outlet::replaceRangeEndPosition};

const QList<PanelCase> kPanels = {
    {"windowFindReplace",
     1,
     {Outlet::findStringField, Outlet::replaceStringField, Outlet::findMatchCaseCheck,
      Outlet::findRegExCheck, Outlet::findIncludeExtension}},
    {"windowConform", 2, {}},
    {"windowOffset", 3, {Outlet::offsetField}},
    {"windowPad", 5, {Outlet::padLengthField}},
    {"windowRenumber", 7, {Outlet::reorderStartFrameField}},
    {"windowChangeExtension", 10, {Outlet::fileExtensionField}},
    {"windowPrefix", 12, {Outlet::prefixField}},
    {"windowSuffix", 13, {Outlet::suffixField, Outlet::suffixAddBeforeFrameCheck}},
    {"windowRemoveChars", 14, {Outlet::removeCharCountField}},
    {"windowRemoveRange", 16, {Outlet::removeCharRangeStartField, Outlet::removeCharRangeEndField}},
    {"windowInsertCharsAtPosition", 25, {Outlet::insertCharsText, Outlet::insertCharsPosition}},
    {"windowReplaceCharsInRange",
     26,
     {Outlet::replaceRangeStartPosition, Outlet::replaceRangeEndPosition,
      Outlet::replaceRangeText}},
};

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
        m_area->resize(520, 600);
        m_clip = new QXClipView;
        m_clip->attachTo(m_area);
        m_area->show();
    }
    void cleanup() { delete m_area; }

    void popUpHoldsEveryTaskOnceInGroups() {
        QComboBox popUp;
        popUp.addItem(QStringLiteral("stale"), 99);
        TaskPopUp::fill(&popUp);
        QList<int> tags;
        QStringList titles;
        int separators = 0;
        for (int i = 0; i < popUp.count(); ++i) {
            if (popUp.itemData(i, Qt::AccessibleDescriptionRole).toString() ==
                QStringLiteral("separator")) {
                ++separators;
                continue;
            }
            tags.append(popUp.itemData(i).toInt());
            titles.append(popUp.itemText(i));
            QCOMPARE(TaskPopUp::title(tags.last()), titles.last());
        }
        std::sort(tags.begin(), tags.end());
        QList<int> all(26);
        std::iota(all.begin(), all.end(), 1);
        QCOMPARE(tags, all);
        QCOMPARE(separators, 7); // eight groups
        titles.removeDuplicates();
        QCOMPARE(titles.size(), 26);
        QVERIFY(!titles.contains(QString()));

        QVERIFY(TaskPopUp::selectTag(&popUp, 5));
        QCOMPARE(popUp.currentText(), QStringLiteral("Pad Frame Numbers"));
        QCOMPARE(TaskPopUp::selectedTag(&popUp), 5);
        QVERIFY(!TaskPopUp::selectTag(&popUp, 27));
        QVERIFY(!TaskPopUp::selectTag(&popUp, 0));
        QCOMPARE(TaskPopUp::selectedTag(&popUp), 5);
    }

    void choosingATaskShowsItsPanel_data() {
        QTest::addColumn<int>("tag");
        QTest::addColumn<QString>("panel");
        QTest::addColumn<QString>("text"); // the blank panel's, when fixed here
        for (const PanelCase& p : kPanels)
            QTest::addRow("%d", p.tag) << p.tag << QString::fromLatin1(p.name) << QString();
        QTest::addRow("15") << 15 << QStringLiteral("windowRemoveChars") << QString();
        QTest::addRow("6") << 6 << QStringLiteral("windowBlank")
                           << QStringLiteral("Reverses frame numbers.");
        QTest::addRow("9") << 9 << QStringLiteral("windowBlank")
                           << QStringLiteral("Removes all frame numbers.\n\nExample: "
                                             "MyImage.2.jpg becomes MyImage.jpg");
        for (int tag : {4, 8, 11, 17, 18, 19, 20, 21, 22, 23, 24})
            QTest::addRow("%d", tag) << tag << QStringLiteral("windowBlank") << QString();
        for (int tag : {0, 27, 28, -1})
            QTest::addRow("%d", tag) << tag << QString() << QString();
    }
    void choosingATaskShowsItsPanel() {
        QFETCH(int, tag);
        QFETCH(QString, panel);
        QFETCH(QString, text);
        // Start from a blank task, so a leftover description would show.
        m_clip->changeTask(24);
        m_clip->changeTask(tag);
        QCOMPARE(m_area->widget(), m_clip);
        QStringList visible;
        for (SettingsPanel* p : m_clip->panels())
            if (p->isVisibleTo(m_clip)) visible.append(p->objectName());
        QCOMPARE(visible, panel.isEmpty() ? QStringList() : QStringList{panel});
        QCOMPARE(m_clip->currentPanel() ? m_clip->currentPanel()->objectName() : QString(), panel);

        const auto* label = m_clip->findChild<QLabel*>(QStringLiteral("blankDescriptionText"));
        QVERIFY(label);
        if (panel == QStringLiteral("windowBlank")) {
            QVERIFY(!label->text().isEmpty());
            QCOMPARE(label->text(), text.isEmpty() ? MyDocument::taskDescription(tag) : text);
        } else {
            QCOMPARE(label->text(), QString());
        }
        if (m_clip->currentPanel()) {
            // A short panel sits at the top of a tall area, not in its middle.
            QTRY_VERIFY(m_clip->currentPanel()->y() <= 20);
            QVERIFY(m_clip->height() >= m_area->viewport()->height());
        }
    }

    void panelsAreMadeOnceAndKept() {
        SettingsPanel* pad = m_clip->panel(QStringLiteral("windowPad"));
        QVERIFY(pad);
        for (int tag = 0; tag <= 27; ++tag)
            m_clip->changeTask(tag);
        m_clip->changeTask(5);
        QCOMPARE(m_clip->currentPanel(), pad);
        QCOMPARE(m_clip->findChildren<SettingsPanel*>().size(), 13);
    }

    void panelRoundTripsAForm_data() {
        QTest::addColumn<int>("index");
        for (int i = 0; i < kPanels.size(); ++i)
            QTest::addRow("%s", kPanels[i].name) << i;
    }
    void panelRoundTripsAForm() {
        QFETCH(int, index);
        const PanelCase& c = kPanels[index];
        m_clip->changeTask(c.tag);
        SettingsPanel* panel = m_clip->currentPanel();
        QVERIFY(panel);
        QCOMPARE(panel->outlets(), c.outlets);

        SettingsForm form;
        for (const QString& outlet : c.outlets) {
            if (kChecks.contains(outlet))
                form.checks.insert(outlet, 1);
            else
                form.text.insert(outlet, QStringLiteral(" 4") + outlet.left(3));
        }
        // Outlets of other panels in the form are no business of this one.
        form.text.insert(QStringLiteral("noSuchField"), QStringLiteral("x"));
        QSignalSpy texts(m_clip, &QXClipView::fieldEdited);
        QSignalSpy checks(m_clip, &QXClipView::checkEdited);
        m_clip->loadFrom(form);
        QCOMPARE(texts.size() + checks.size(), 0);
        SettingsForm back;
        panel->applyTo(back);
        for (const QString& outlet : c.outlets) {
            if (kChecks.contains(outlet))
                QCOMPARE(back.checkState(outlet), 1);
            else
                QCOMPARE(back.fieldText(outlet), form.fieldText(outlet));
        }

        for (const QString& outlet : c.outlets) {
            if (kChecks.contains(outlet)) {
                auto* check = panel->findChild<QCheckBox*>(outlet);
                QVERIFY(check);
                QCOMPARE(check->accessibleName(), spoken(check->text()));
                // On the box itself: a check box wider than its text ignores
                // clicks at its centre.
                QTest::mouseClick(check, Qt::LeftButton, {}, QPoint(6, check->height() / 2));
                QCOMPARE(checks.size(), 1);
                QCOMPARE(checks.takeFirst(), (QVariantList{outlet, 0}));
                QTest::keyClick(check, Qt::Key_Space);
                QCOMPARE(checks.takeFirst(), (QVariantList{outlet, 1}));
                continue;
            }
            auto* field = panel->findChild<QLineEdit*>(outlet);
            QVERIFY(field);
            QVERIFY(!field->accessibleName().isEmpty());
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
            QCOMPARE(texts.size(), 2);
            QCOMPARE(texts.takeFirst(), (QVariantList{outlet, QString(loaded + u'z')}));
            QCOMPARE(texts.takeFirst(), (QVariantList{outlet, loaded}));
        }
        QCOMPARE(texts.size() + checks.size(), 0);
    }

    void numericFieldsTakeWhatTheEngineReads_data() {
        QTest::addColumn<QString>("typed");
        QTest::addColumn<qint64>("value");
        QTest::newRow("space and sign") << QStringLiteral(" -12") << qint64(-12);
        QTest::newRow("plus and trailing text") << QStringLiteral("+7 frames") << qint64(7);
        QTest::newRow("no digits") << QStringLiteral("abc") << qint64(0);
    }
    void numericFieldsTakeWhatTheEngineReads() {
        QFETCH(QString, typed);
        QFETCH(qint64, value);
        for (const QString& outlet : kNumeric) {
            auto* field = m_clip->findChild<QLineEdit*>(outlet);
            QVERIFY2(field, qPrintable(outlet));
            for (const PanelCase& c : kPanels)
                if (c.outlets.contains(outlet)) m_clip->changeTask(c.tag);
            QSignalSpy texts(m_clip, &QXClipView::fieldEdited);
            field->clear();
            field->setFocus();
            QTest::keyClicks(field, typed);
            QCOMPARE(field->text(), typed);
            QCOMPARE(texts.size(), typed.size()); // keystroke by keystroke
            QCOMPARE(texts.last(), (QVariantList{outlet, typed}));
            QCOMPARE(leadingInteger(texts.last().at(1).toString()), value);
        }
    }

    void findFieldShowsTheRegexError() {
        FindReplacePanel* find = m_clip->findReplacePanel();
        m_clip->changeTask(1);
        auto* line = find->findChild<QLabel*>(QStringLiteral("findErrorText"));
        QVERIFY(line);
        QCOMPARE(line->text(), QString());
        QVERIFY(line->height() > 0); // the room is kept while empty
        find->setRegexError(QStringLiteral("U_REGEX_MISSING_CLOSE_BRACKET"));
        QCOMPARE(line->text(), QStringLiteral("U_REGEX_MISSING_CLOSE_BRACKET"));
        QVERIFY(line->isVisible());
        m_clip->loadFrom(SettingsForm());
        QCOMPARE(find->regexError(), QStringLiteral("U_REGEX_MISSING_CLOSE_BRACKET"));
        find->setRegexError(QString());
        QCOMPARE(line->text(), QString());
    }

    void preferencesAreStoredAtOnce() {
        QSettings stored(QStringLiteral("Corvane"), QStringLiteral("Seqmate"));
        stored.setValue(UserDefaults::conflictActionKey, 5); // none of the three
        stored.setValue(UserDefaults::showFullSourcePathsKey, 0);
        PreferencesDialog dialog;
        dialog.show();
        auto radio = [&](const char* name) {
            return dialog.findChild<QRadioButton*>(QString::fromLatin1(name));
        };
        auto* move = radio("conflictMoveRadio");
        auto* rename = radio("conflictRenameRadio");
        auto* trash = radio("conflictTrashRadio");
        auto* paths = dialog.findChild<QCheckBox*>(QStringLiteral("showFullSourcePathsCheck"));
        QVERIFY(move && rename && trash && paths);
        QVERIFY(!move->isChecked() && !rename->isChecked() && !trash->isChecked());
        QVERIFY(!paths->isChecked());

        QSignalSpy changed(UserDefaults::instance(), &UserDefaults::changed);
        QTest::mouseClick(trash, Qt::LeftButton);
        QCOMPARE(stored.value(QStringLiteral("conflictAction")).toInt(), 2);
        QTest::mouseClick(rename, Qt::LeftButton);
        QTest::mouseClick(move, Qt::LeftButton);
        QCOMPARE(Preferences::conflictAction(), 0); // what the commit will read
        QTest::mouseClick(paths, Qt::LeftButton);
        QCOMPARE(stored.value(QStringLiteral("showFullSourcePaths")).toInt(), 1);
        QVERIFY(Preferences::showFullSourcePaths());
        QCOMPARE(changed.size(), 4);
        QCOMPARE(changed.last().first().toString(), QStringLiteral("showFullSourcePaths"));
        // Clicking the choice already made stores nothing new.
        QTest::mouseClick(move, Qt::LeftButton);
        QCOMPARE(changed.size(), 4);

        // A value stored elsewhere shows when the dialog is opened again.
        dialog.hide();
        stored.setValue(UserDefaults::conflictActionKey, 1);
        dialog.show();
        QVERIFY(rename->isChecked());
        QVERIFY(paths->isChecked());
        auto* jobs = dialog.findChild<QSpinBox*>(QStringLiteral("commitJobsSpin"));
        QVERIFY(jobs && jobs->value() == Preferences::kDefaultCommitJobs);
        jobs->setValue(4);
        QCOMPARE(Preferences::commitJobs(), 4); // what the commit reads
        QCOMPARE(changed.last().first().toString(), UserDefaults::commitJobsKey);
    }
};

SEQMATE_APP_TEST_MAIN(SettingsPanelsTest)
#include "SettingsPanelsTest.moc"
