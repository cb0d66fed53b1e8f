#include "SnapshotFolder.h"

#include "DescribedError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kPartPrefix = QStringLiteral(".part-");
const QString kLockName = QStringLiteral(".lock");

QByteArray native(const QString& path) { return QFile::encodeName(path); }

// Makes `path` a real folder: a link (or anything but a folder) in its place is removed first,
// never followed.
void makeRealFolder(const QString& path)
{
    struct stat status {};
    if (::lstat(native(path).constData(), &status) == 0) {
        if (S_ISDIR(status.st_mode))
            return;
        ::unlink(native(path).constData());
    }
    if (::mkdir(native(path).constData(), 0700) != 0 && errno != EEXIST)
        throw DescribedError(QString::fromUtf8("Could not create the folder \u201c%1\u201d for the database copy (%2).")
                                 .arg(path, QString::fromLocal8Bit(std::strerror(errno))));
}

} // namespace

SnapshotFolder::SnapshotFolder(const QString& path) : m_path(QDir::cleanPath(path))
{
    const QString parent = QFileInfo(m_path).path();
    if (!QDir().mkpath(QFileInfo(parent).path()))
        throw DescribedError(
            QString::fromUtf8("Could not create the folder \u201c%1\u201d for the database copy.").arg(parent));
    makeRealFolder(parent);
    makeRealFolder(m_path);
    m_lock.emplace(filePath(kLockName));
    // Fetching a large database takes a while; only a dead owner makes the lock stale.
    m_lock->setStaleLockTime(0);
    if (!m_lock->lock())
        throw DescribedError(QString::fromUtf8("The database copy in \u201c%1\u201d cannot be locked. Check that the "
                                               "folder is writable.")
                                 .arg(m_path));
}

QString SnapshotFolder::filePath(const QString& name) const { return m_path + '/' + name; }

void SnapshotFolder::clear(const QStringList& names)
{
    QStringList doomed = names;
    doomed << recordName;
    for (const QString& entry : QDir(m_path).entryList({kPartPrefix + '*'}, QDir::Files | QDir::Hidden | QDir::System))
        doomed << entry;
    for (const QString& name : std::as_const(doomed))
        ::unlink(native(filePath(name)).constData());
}

QString SnapshotFolder::partPath(const QString& name) const
{
    return filePath(kPartPrefix + name + '-' + QUuid::createUuid().toString(QUuid::WithoutBraces));
}

void SnapshotFolder::place(const QString& partPath, const QString& name)
{
    // A rename replaces whatever entry has the name, a link included, without following it.
    if (::rename(native(partPath).constData(), native(filePath(name)).constData()) != 0)
        throw DescribedError(QString::fromUtf8("Could not put the database copy \u201c%1\u201d in place (%2).")
                                 .arg(filePath(name), QString::fromLocal8Bit(std::strerror(errno))));
}

std::optional<QJsonObject> SnapshotFolder::record() const
{
    QFile file(filePath(recordName));
    if (QFileInfo(file.fileName()).isSymLink() || !file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QJsonDocument document = QJsonDocument::fromJson(file.read(1 << 20));
    if (!document.isObject())
        return std::nullopt;
    return document.object();
}

void SnapshotFolder::writeRecord(const QJsonObject& record)
{
    const QString part = partPath(recordName);
    QFile file(part);
    if (!file.open(QIODevice::WriteOnly | QIODevice::NewOnly) || file.write(QJsonDocument(record).toJson()) < 0 ||
        !file.flush())
        throw DescribedError(QString::fromUtf8("Could not write \u201c%1\u201d: %2").arg(part, file.errorString()));
    file.close();
    place(part, recordName);
}
