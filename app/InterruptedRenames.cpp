#include "InterruptedRenames.h"

#include "QXAlert.h"
#include "RenameJournal.h"

#include <QSettings>
#include <QWidget>

const QString InterruptedRenames::leftJournalsKey = QStringLiteral("interruptedRenamesLeft");

namespace {
QSettings userSettings() {
    return QSettings(QStringLiteral("Corvane"), QStringLiteral("Seqmate"));
}

QString plural(qsizetype n, const char* one, const char* many) {
    return QStringLiteral("%L1 %2").arg(n).arg(QString::fromLatin1(n == 1 ? one : many));
}
} // namespace

InterruptedRenames::InterruptedRenames(QObject* parent) : QObject(parent) {}

InterruptedRenames::~InterruptedRenames() {
    if (m_undo.joinable()) m_undo.join();
}

bool InterruptedRenames::offer(QWidget* window) {
    if (!window || m_undo.joinable() || !m_journals.isEmpty()) return false;
    const QStringList left = userSettings().value(leftJournalsKey).toStringList();
    int done = 0;
    int unsure = 0;
    qsizetype temporary = 0;
    for (const RenameJournal::Interrupted& i : RenameJournal::interrupted()) {
        if (left.contains(i.contents.path)) continue;
        m_journals << i.contents.path;
        // An undo cut short is finished by undoing its original journal again.
        m_undoWith << (i.undoWith.isEmpty() ? i.contents.path : i.undoWith);
        done += i.done;
        unsure += i.pending;
        temporary += i.temporaryFiles.size();
    }
    if (m_journals.isEmpty()) return false;
    m_window = window;

    QString detail = QStringLiteral("Seqmate stopped before it finished renaming: %1 renamed")
                         .arg(plural(done, "file was", "files were"));
    if (unsure > 0)
        detail += QStringLiteral(", %1 may have been").arg(plural(unsure, "more", "more"));
    if (temporary > 0)
        detail += QStringLiteral(", and %1 under a temporary name")
                      .arg(plural(temporary, "file is", "files are"));
    detail += QStringLiteral(
        ".\n\nYou can restore the original names, or leave the files as they are now.");
    auto* alert = new QXAlert(this);
    connect(alert, &QXAlert::ended, this, [this, alert](int code) {
        alert->deleteLater();
        answered(code);
    });
    QXAlert::alertSheetWithMessageText(
        m_journals.size() == 1
            ? QStringLiteral("A rename did not complete")
            : QStringLiteral("%1 renames did not complete").arg(m_journals.size()),
        QStringLiteral("Restore Original Names"), QStringLiteral("Leave As They Are"), QString(),
        detail, window, nullptr, QString(), false, alert);
    return true;
}

void InterruptedRenames::answered(int returnCode) {
    if (returnCode == QXAlert::DefaultReturn && m_window) {
        restore();
        return;
    }
    // Left as they are: asking at every launch would only nag.
    QSettings settings = userSettings();
    QStringList left = settings.value(leftJournalsKey).toStringList();
    left << m_journals;
    settings.setValue(leftJournalsKey, left);
    m_journals.clear();
    m_undoWith.clear();
    emit finished();
}

void InterruptedRenames::restore() {
    // Thousands of moves back must not freeze the window; the window stays
    // usable meanwhile, and the report comes as a sheet when they are done.
    m_undo = std::thread([this, journals = m_undoWith] {
        int undone = 0;
        QStringList problems;
        for (const QString& path : journals) {
            QString error;
            const RenameJournal::UndoReport report = RenameJournal::undo(path, &error);
            undone += report.undone;
            problems << report.refused;
            if (!error.isEmpty()) problems << error;
        }
        QMetaObject::invokeMethod(
            this, [this, undone, problems] { restored(undone, problems); }, Qt::QueuedConnection);
    });
}

void InterruptedRenames::restored(int undone, const QStringList& problems) {
    m_undo.join();
    m_journals.clear();
    m_undoWith.clear();
    if (m_window) {
        const QString done = QStringLiteral("%1 moved back to %2.")
                                 .arg(plural(undone, "file was", "files were"),
                                      undone == 1 ? QStringLiteral("its original name")
                                                  : QStringLiteral("their original names"));
        if (problems.isEmpty())
            QXAlert::alertSheetWithMessageText(QStringLiteral("The original names are restored"),
                                               QString(), QString(), QString(), done, m_window,
                                               false);
        else
            QXAlert::alertSheetWithMessageText(
                QStringLiteral("Some files could not be restored"), QString(), QString(), QString(),
                done + QStringLiteral("\n\n") + problems.join(u'\n'), m_window, false);
    }
    emit finished();
}
