#pragma once

#include <QHash>
#include <QString>
#include <QVariantList>

// The outlet names of the settings fields and check boxes; the settings form
// and the GUI's widgets (objectName) are keyed by them.
namespace Outlet {
inline const QString padLengthField = QStringLiteral("padLengthField");
inline const QString offsetField = QStringLiteral("offsetField");
inline const QString reorderStartFrameField = QStringLiteral("reorderStartFrameField");
inline const QString fileExtensionField = QStringLiteral("fileExtensionField");
inline const QString prefixField = QStringLiteral("prefixField");
inline const QString suffixField = QStringLiteral("suffixField");
inline const QString suffixAddBeforeFrameCheck = QStringLiteral("suffixAddBeforeFrameCheck");
inline const QString removeCharCountField = QStringLiteral("removeCharCountField");
inline const QString removeCharRangeStartField = QStringLiteral("removeCharRangeStartField");
inline const QString removeCharRangeEndField = QStringLiteral("removeCharRangeEndField");
inline const QString findStringField = QStringLiteral("findStringField");
inline const QString findMatchCaseCheck = QStringLiteral("findMatchCaseCheck");
inline const QString findRegExCheck = QStringLiteral("findRegExCheck");
inline const QString findIncludeExtension = QStringLiteral("findIncludeExtension");
inline const QString replaceStringField = QStringLiteral("replaceStringField");
inline const QString insertCharsPosition = QStringLiteral("insertCharsPosition");
inline const QString insertCharsText = QStringLiteral("insertCharsText");
inline const QString replaceRangeStartPosition = QStringLiteral("replaceRangeStartPosition");
inline const QString replaceRangeEndPosition = QStringLiteral("replaceRangeEndPosition");
inline const QString replaceRangeText = QStringLiteral("replaceRangeText");
} // namespace Outlet

// The document's settings form: what each settings field shows and each check
// box is set to, plus the token field's object list and the selected task.
struct SettingsForm {
    int selectedTag = 0;
    QHash<QString, QString> text; // outlet -> field text (absent: empty)
    QHash<QString, int> checks;   // outlet -> check box state, 0 off, 1 on
    QVariantList tokens;          // the conform token field's objects

    QString fieldText(const QString& outlet) const { return text.value(outlet); }
    int checkState(const QString& outlet) const { return checks.value(outlet, 0); }
    // The field's integer value: leading white space, an optional sign, decimal
    // digits (0 when none); text of a number in the unsigned upper half of the
    // 64-bit range reads as the signed value of the same bits.
    qint64 fieldIntegerValue(const QString& outlet) const;
};

// Reads text as an integer the way the tasks convert their text settings:
// leading white space skipped, an optional sign, then decimal digits; 0 when
// no digits follow. Saturates at the 64-bit range.
qint64 leadingInteger(const QString& text);
