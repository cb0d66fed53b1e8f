#include "TempDir.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <stdexcept>

TempDir::TempDir() : m_dir(QDir::tempPath() + "/ombrelo-test-XXXXXX")
{
    if (!m_dir.isValid())
        throw std::runtime_error("cannot create a temporary folder");
}

void writeFile(const QString& path, const QByteArray& content)
{
    QDir().mkpath(QFileInfo(path).absolutePath());
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(content) != content.size())
        throw std::runtime_error(("cannot write " + path).toStdString());
}

QByteArray readFile(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        throw std::runtime_error(("cannot read " + path).toStdString());
    return file.readAll();
}
