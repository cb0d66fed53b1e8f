#pragma once

#include "QtPrinters.h"
#include <QString>

#include <QTemporaryDir>

// A fresh folder for one test (in memory where it can be), removed afterwards.
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
// `size` bytes that differ for each seed; the SHA-256 of some bytes, as 64 hexadecimal digits.
QByteArray randomBytes(qsizetype size, quint32 seed);
QString sha256Of(const QByteArray& bytes);
