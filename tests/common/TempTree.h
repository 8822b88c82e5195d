#pragma once

#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A temporary folder that tests fill with files and folders; removed at the end.
class TempTree {
public:
    TempTree();
    const QString& path() const { return m_path; }
    // Path of a relative name inside the tree.
    QString operator()(const QString& relative) const { return m_path + u'/' + relative; }
    // Creates a file (and its folders) with the given content; returns its path.
    QString file(const QString& relative, const QByteArray& content = QByteArray()) const;
    QString dir(const QString& relative) const;
    bool exists(const QString& relative) const;
    QByteArray read(const QString& relative) const;
    // Entries of a folder of the tree, sorted by name.
    QStringList list(const QString& relative = QString()) const;

private:
    QTemporaryDir m_dir;
    QString m_path;
};

// Reads a whole file as UTF-8 text ("" when missing).
QString readText(const QString& path);
