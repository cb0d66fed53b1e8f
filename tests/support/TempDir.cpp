#include "TempDir.h"

#include "device/StreamingHasher.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>

#include <stdexcept>

// In /dev/shm, in memory, where it exists: the engine syncs every file, folder and manifest row to
// the disk, and on a busy shared disk those syncs take most of the tests' time.
TempDir::TempDir()
    : m_dir((QFileInfo("/dev/shm").isWritable() ? QString("/dev/shm") : QDir::tempPath()) + "/ombrelo-test-XXXXXX")
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

QByteArray randomBytes(qsizetype size, quint32 seed)
{
    QByteArray bytes(size, Qt::Uninitialized);
    QRandomGenerator generator(seed);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char(generator.generate() & 0xFF);
    return bytes;
}

QString sha256Of(const QByteArray& bytes)
{
    StreamingHasher hasher;
    hasher.update(bytes.constData(), size_t(bytes.size()));
    return hasher.finish().sha256;
}
