#pragma once

#include "QtPrinters.h"
#include <QString>

#include <QTemporaryDir>

// A fresh folder for one test, removed afterwards.
class TempDir {
public:
    TempDir();
    QString path() const { return m_dir.path(); }
    QString filePath(const QString& name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
};

// Writes `content` to `path`, creating folders as needed.
void writeFile(const QString& path, const QByteArray& content);
QByteArray readFile(const QString& path);
