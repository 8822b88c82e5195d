#include "TempTree.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

TempTree::TempTree() : m_dir(QDir::tempPath() + QStringLiteral("/seqmate-tree-XXXXXX")) {
    m_path = QFileInfo(m_dir.path()).canonicalFilePath();
}

QString TempTree::file(const QString& relative, const QByteArray& content) const {
    const QString p = (*this)(relative);
    QDir().mkpath(QFileInfo(p).path());
    QFile f(p);
    if (f.open(QIODevice::WriteOnly)) f.write(content);
    return p;
}

QString TempTree::dir(const QString& relative) const {
    const QString p = (*this)(relative);
    QDir().mkpath(p);
    return p;
}

bool TempTree::exists(const QString& relative) const {
    return QFileInfo::exists((*this)(relative));
}

QByteArray TempTree::read(const QString& relative) const {
    QFile f((*this)(relative));
    if (!f.open(QIODevice::ReadOnly)) return QByteArray();
    return f.readAll();
}

QStringList TempTree::list(const QString& relative) const {
    QDir d(relative.isEmpty() ? m_path : (*this)(relative));
    return d.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                       QDir::Name);
}

QString readText(const QString& path) {
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly)) return QString();
    return QString::fromUtf8(f.readAll());
}
