// The settings form and its conversion to and from the settings dictionary.
#include "MyDocument.h"

#include "QXLog.h"
#include "VariantDescription.h"

#include <limits>

qint64 leadingInteger(const QString& text) {
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n && text[i].isSpace())
        ++i;
    bool negative = false;
    if (i < n && (text[i] == u'-' || text[i] == u'+')) negative = text[i++] == u'-';
    quint64 magnitude = 0;
    bool overflow = false;
    for (; i < n; ++i) {
        const ushort u = text[i].unicode();
        if (u < '0' || u > '9') break;
        if (magnitude > (std::numeric_limits<quint64>::max() - (u - '0')) / 10)
            overflow = true;
        else
            magnitude = magnitude * 10 + (u - '0');
    }
    constexpr quint64 maxPos = static_cast<quint64>(std::numeric_limits<qint64>::max());
    if (negative) {
        if (overflow || magnitude > maxPos + 1) return std::numeric_limits<qint64>::min();
        return magnitude == maxPos + 1 ? std::numeric_limits<qint64>::min()
                                       : -static_cast<qint64>(magnitude);
    }
    if (overflow || magnitude > maxPos) return std::numeric_limits<qint64>::max();
    return static_cast<qint64>(magnitude);
}

qint64 SettingsForm::fieldIntegerValue(const QString& outlet) const {
    // A frame field that shows a saved negative value as its unsigned bits
    // (18446744073709551613) reads back as that negative value (-3).
    const QString shown = fieldText(outlet).trimmed();
    bool ok = false;
    const quint64 wide = shown.toULongLong(&ok);
    if (ok && wide > static_cast<quint64>(std::numeric_limits<qint64>::max()))
        return static_cast<qint64>(wide);
    return leadingInteger(shown);
}

SettingsForm MyDocument::settingsForm() const {
    QMutexLocker lock(&m_mutex);
    return m_form;
}

void MyDocument::setSettingsForm(const SettingsForm& form) {
    QMutexLocker lock(&m_mutex);
    m_form = form;
}

int MyDocument::selectedTag() const {
    QMutexLocker lock(&m_mutex);
    return m_form.selectedTag;
}

void MyDocument::setSelectedTag(int tag) {
    QMutexLocker lock(&m_mutex);
    m_form.selectedTag = tag;
}

void MyDocument::setFieldText(const QString& outlet, const QString& text) {
    QMutexLocker lock(&m_mutex);
    m_form.text.insert(outlet, text);
}

void MyDocument::setCheckState(const QString& outlet, int state) {
    QMutexLocker lock(&m_mutex);
    m_form.checks.insert(outlet, state);
}

void MyDocument::setTokens(const QVariantList& tokens) {
    QMutexLocker lock(&m_mutex);
    m_form.tokens = tokens;
}

namespace {
// One row of the settings table: the key, the outlet, and how it is carried.
enum class Carry { Text, Check, Frame };
struct SettingRow {
    int tag;
    const char* key;
    const QString* outlet;
    Carry carry;
};
const SettingRow kRows[] = {
    {1, "find", &Outlet::findStringField, Carry::Text},
    {1, "matchCase", &Outlet::findMatchCaseCheck, Carry::Check},
    {1, "regex", &Outlet::findRegExCheck, Carry::Check},
    {1, "includeExtension", &Outlet::findIncludeExtension, Carry::Check},
    {1, "replace", &Outlet::replaceStringField, Carry::Text},
    {3, "offset", &Outlet::offsetField, Carry::Frame},
    {5, "padLength", &Outlet::padLengthField, Carry::Frame},
    {7, "startFrame", &Outlet::reorderStartFrameField, Carry::Frame},
    {10, "fileExt", &Outlet::fileExtensionField, Carry::Text},
    {12, "prefix", &Outlet::prefixField, Carry::Text},
    {13, "suffix", &Outlet::suffixField, Carry::Text},
    {13, "addBeforeFrame", &Outlet::suffixAddBeforeFrameCheck, Carry::Check},
    {14, "charCount", &Outlet::removeCharCountField, Carry::Text},
    {15, "charCount", &Outlet::removeCharCountField, Carry::Text},
    {16, "rangeStart", &Outlet::removeCharRangeStartField, Carry::Text},
    {16, "rangeEnd", &Outlet::removeCharRangeEndField, Carry::Text},
    {25, "position", &Outlet::insertCharsPosition, Carry::Text},
    {25, "text", &Outlet::insertCharsText, Carry::Text},
    {26, "rangeStart", &Outlet::replaceRangeStartPosition, Carry::Text},
    {26, "rangeEnd", &Outlet::replaceRangeEndPosition, Carry::Text},
    {26, "text", &Outlet::replaceRangeText, Carry::Text},
};

// An integer as a saved entry holds it: a number, or text read as a number.
qint64 integerOf(const QVariant& v) {
    switch (v.typeId()) {
    case QMetaType::QString:
        return leadingInteger(v.toString());
    case QMetaType::ULongLong:
        return static_cast<qint64>(v.toULongLong());
    case QMetaType::Bool:
        return v.toBool() ? 1 : 0;
    case QMetaType::Double:
        return static_cast<qint64>(v.toDouble());
    default:
        return v.canConvert<qlonglong>() ? v.toLongLong() : 0;
    }
}
} // namespace

QStringList MyDocument::settingKeys(int tag) {
    QStringList keys;
    if (tag == 2) keys.append(QStringLiteral("formatArray"));
    for (const auto& row : kRows)
        if (row.tag == tag) keys.append(QString::fromLatin1(row.key));
    return keys;
}

MyDocument::SettingField MyDocument::settingField(int tag, const QString& key) {
    for (const auto& row : kRows)
        if (row.tag == tag && key == QLatin1String(row.key))
            return {*row.outlet, row.carry == Carry::Check};
    return {};
}

QVariantMap MyDocument::dictionaryFromSettings() const {
    const SettingsForm form = settingsForm();
    QVariantMap out;
    if (form.selectedTag == 2) {
        out.insert(QStringLiteral("formatArray"), formatComponentsFromArray(form.tokens));
        return out;
    }
    for (const auto& row : kRows) {
        if (row.tag != form.selectedTag) continue;
        const QString key = QString::fromLatin1(row.key);
        switch (row.carry) {
        case Carry::Text:
            out.insert(key, form.fieldText(*row.outlet));
            break;
        case Carry::Check:
            out.insert(key, QVariant::fromValue<qlonglong>(form.checkState(*row.outlet)));
            break;
        case Carry::Frame:
            // The field's signed value carried as an unsigned number of the same
            // bits: -3 is stored as 18446744073709551613 and read back signed.
            out.insert(key, QVariant::fromValue<qulonglong>(
                                static_cast<quint64>(form.fieldIntegerValue(*row.outlet))));
            break;
        }
    }
    return out;
}

void MyDocument::setSettingsFromDictionary(const QVariantMap& settings) {
    const int tag = selectedTag();
    QXLog::appendLog(QStringLiteral("Loading saved settings from batch"));
    QXLog::appendLog(QStringLiteral("tag: %1").arg(tag));
    QXLog::appendLog(QStringLiteral("settings: %1").arg(describeVariant(settings)));
    {
        QMutexLocker lock(&m_mutex);
        // The token field keeps what it shows: a saved format is not restored.
        for (const auto& row : kRows) {
            if (row.tag != tag) continue;
            const QVariant v = settings.value(QString::fromLatin1(row.key));
            switch (row.carry) {
            case Carry::Text:
                // A missing entry leaves the field empty.
                m_form.text.insert(*row.outlet, v.isValid() ? v.toString() : QString());
                break;
            case Carry::Check:
                m_form.checks.insert(*row.outlet, static_cast<int>(integerOf(v)));
                break;
            case Carry::Frame: {
                QString text;
                if (v.typeId() == QMetaType::ULongLong)
                    text = QString::number(v.toULongLong());
                else if (v.isValid())
                    text = v.toString();
                m_form.text.insert(*row.outlet, text);
                break;
            }
            }
        }
    }
    view().settingsChanged();
}
