// Saving a batch to a batch file and reading it back.
#include "MyDocument.h"

#include "PropertyList.h"
#include "QXLog.h"
#include "VariantDescription.h"

#include <algorithm>

bool MyDocument::writeToURL(const QString& path) const {
    QStringList files;
    for (const FileItemPtr& item : fileArray())
        files.append(item->fullPath());
    QVariantMap root;
    root.insert(QStringLiteral("version"), QStringLiteral("1.0"));
    root.insert(QStringLiteral("files"), files);
    root.insert(QStringLiteral("selectedAction"), QVariant::fromValue<qlonglong>(selectedTag()));
    root.insert(QStringLiteral("settings"), dictionaryFromSettings());
    QXLog::appendLog(QStringLiteral("dict: %1").arg(describeVariant(root)));
    return PropertyList::writeFile(path, root);
}

namespace {
bool isInteger(const QVariant& v) {
    const int type = v.typeId();
    return type == QMetaType::LongLong || type == QMetaType::ULongLong || type == QMetaType::Int;
}

// Why a property list is not a batch: empty when it is one. The known keys
// must hold their types; "version" is written but never read, so any string
// or none will do, and a batch without "files" is an empty batch.
QString batchProblem(const QVariant& root, const QString& readError) {
    if (!root.isValid())
        return QStringLiteral("not a property list: %1")
            .arg(readError.isEmpty() ? QStringLiteral("unreadable") : readError);
    if (root.typeId() != QMetaType::QVariantMap)
        return QStringLiteral("the property list is not a dictionary");
    const QVariantMap dict = root.toMap();
    static const QString keys[] = {QStringLiteral("version"), QStringLiteral("files"),
                                   QStringLiteral("selectedAction"), QStringLiteral("settings")};
    if (std::none_of(std::begin(keys), std::end(keys),
                     [&dict](const QString& k) { return dict.contains(k); }))
        return QStringLiteral("none of the keys of a batch file");
    const QVariant files = dict.value(keys[1]);
    if (files.isValid()) {
        const QVariantList list = files.toList();
        const bool paths = files.typeId() == QMetaType::QVariantList &&
                           std::all_of(list.cbegin(), list.cend(), [](const QVariant& v) {
                               return v.typeId() == QMetaType::QString;
                           });
        if (!paths) return QStringLiteral("\"files\" is not a list of paths");
    }
    if (dict.contains(keys[0]) && dict.value(keys[0]).typeId() != QMetaType::QString)
        return QStringLiteral("\"version\" is not a string");
    if (dict.contains(keys[2]) && !isInteger(dict.value(keys[2])))
        return QStringLiteral("\"selectedAction\" is not an integer");
    if (dict.contains(keys[3]) && dict.value(keys[3]).typeId() != QMetaType::QVariantMap)
        return QStringLiteral("\"settings\" is not a dictionary");
    return QString();
}
} // namespace

bool MyDocument::readFromURL(const QString& path, QString* problem) {
    // A file that is not a readable dictionary gives an empty batch; loading
    // itself never fails. What is wrong with it goes to a caller who asks.
    QString readError;
    const QVariant root = PropertyList::readFile(path, &readError);
    if (problem) *problem = batchProblem(root, readError);
    const QVariantMap dict = root.typeId() == QMetaType::QVariantMap ? root.toMap() : QVariantMap();
    FileList items;
    const QVariant files = dict.value(QStringLiteral("files"));
    if (files.typeId() == QMetaType::QVariantList) {
        const QVariantList list = files.toList();
        items.reserve(list.size());
        for (const QVariant& v : list) {
            if (v.typeId() != QMetaType::QString) continue;
            const QString p = v.toString();
            if (p.isEmpty()) continue;
            items.append(QXFileItem::fileItemWithFile(p));
        }
    }
    QMutexLocker lock(&m_mutex);
    m_batchFileDict = dict;
    // The path list is taken as it stands: no uniqueness or existence test.
    for (FileItemPtr& item : items)
        appendItemLocked(std::move(item));
    return true;
}

QVariantMap MyDocument::batchFileDict() const {
    QMutexLocker lock(&m_mutex);
    return m_batchFileDict;
}

void MyDocument::windowControllerDidLoadNib() {
    QVariantMap dict;
    {
        QMutexLocker lock(&m_mutex);
        dict.swap(m_batchFileDict);
    }
    if (!dict.isEmpty()) {
        const QVariant action = dict.value(QStringLiteral("selectedAction"));
        bool ok = false;
        const qlonglong tag = action.toLongLong(&ok);
        setSelectedTag(ok ? static_cast<int>(tag) : 0);
        const QVariant settings = dict.value(QStringLiteral("settings"));
        setSettingsFromDictionary(settings.typeId() == QMetaType::QVariantMap ? settings.toMap()
                                                                              : QVariantMap());
    }
    changeTask(selectedTag());
}
