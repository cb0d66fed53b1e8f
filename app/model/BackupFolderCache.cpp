#include "BackupFolderCache.h"

#include "backup/Manifest.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>

namespace {

// Where SQLite's header keeps the file change counter, which every committed write raises.
constexpr qint64 kChangeCounterEnd = 28;

} // namespace

ExistingBackup BackupFolderCache::read(const QString& folder)
{
    if (!m_kept || m_kept->folder != folder || m_kept->stamp != stamp(folder))
        m_kept = readNow(folder);
    return m_kept->contents;
}

BackupFolderCache::Reading BackupFolderCache::readNow(const QString& folder)
{
    // Stamped first: a write while it is read makes the next look read it again.
    QByteArray before = stamp(folder);
    return {folder, std::move(before), ExistingBackup::read(folder)};
}

QByteArray BackupFolderCache::stamp(const QString& folder)
{
    const QByteArray path = QFile::encodeName(QDir(folder).filePath(Manifest::fileName));
    struct stat info {};
    if (::lstat(path.constData(), &info) != 0)
        return {};
    QByteArray stamp = QByteArray::number(info.st_mode) + ' ' + QByteArray::number(qint64(info.st_size)) + ' ' +
                       QByteArray::number(qint64(info.st_mtim.tv_sec)) + '.' +
                       QByteArray::number(qint64(info.st_mtim.tv_nsec)) + ' ';
    // Only a plain file is opened: a pipe put there would never answer.
    QFile file(QFile::decodeName(path));
    if (S_ISREG(info.st_mode) && file.open(QIODevice::ReadOnly))
        stamp += file.read(kChangeCounterEnd);
    return stamp;
}
