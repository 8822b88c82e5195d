// Saving a batch to a batch file and reading it back.
#include "MyDocument.h"

#include "PropertyList.h"
#include "QXLog.h"
#include "VariantDescription.h"

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

bool MyDocument::readFromURL(const QString& path) {
    // A file that is not a readable dictionary gives an empty batch; loading
    // itself never fails.
    const QVariant root = PropertyList::readFile(path);
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
