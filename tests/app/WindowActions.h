#pragma once
// Driving document windows as a user does: a window over some files, the task
// pop-up, keystrokes in the fields, and what the list shows.
#include "DocumentWindow.h"
#include "DocumentWindows.h"
#include "MyDocument.h"
#include "QXWindowController.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLineEdit>
#include <QPushButton>
#include <QTest>

inline QStringList column(DocumentWindow* window, int column, int role = Qt::DisplayRole) {
    QAbstractItemModel* model = window->tableModel();
    QStringList out;
    for (int row = 0; row < model->rowCount(); ++row)
        out << model->index(row, column).data(role).toString();
    return out;
}

// A window over these files, with the previews of its first task shown.
inline DocumentWindow* windowWith(const QStringList& files) {
    DocumentWindow* window = DocumentWindows::newUntitled();
    window->document().addItemsOnThread(files);
    // Never waitForPreviews here: a preview ends by waiting for this thread.
    (void)QTest::qWaitFor([&] { return column(window, 1) == column(window, 0); });
    return window;
}

// The pop-up's item, as the user picks it.
inline void choose(DocumentWindow* window, int tag) {
    auto* popUp = window->findChild<QComboBox*>(QStringLiteral("taskPopUp"));
    const int index = popUp->findData(tag);
    QVERIFY(index >= 0);
    popUp->setCurrentIndex(index);
    emit popUp->activated(index);
}

// Fields as "outlet=text;..." typed in; a check box outlet alone is clicked.
inline void type(DocumentWindow* window, const QString& fields) {
    for (const QString& entry : fields.split(u';', Qt::SkipEmptyParts)) {
        const QString outlet = entry.section(u'=', 0, 0);
        if (auto* check = window->findChild<QCheckBox*>(outlet)) {
            check->click();
            continue;
        }
        auto* field = window->findChild<QLineEdit*>(outlet);
        QVERIFY2(field, qPrintable(outlet));
        field->clear();
        QTest::keyClicks(field, entry.section(u'=', 1));
    }
}

inline QPushButton* renameButton(DocumentWindow* window) {
    return window->findChild<QPushButton*>(QStringLiteral("renameBtn"));
}

// Nothing is left open for the next test, and nothing asks to be saved.
inline void closeAllWindows() {
    for (DocumentWindow* window : DocumentWindows::all()) {
        window->controller().setDocumentEdited(false);
        delete window;
    }
}
