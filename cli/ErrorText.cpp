#include "ErrorText.h"

#include "backup/BackupFolderLock.h"
#include "backup/Manifest.h"
#include "device/DeviceError.h"
#include "device/MediaSourceError.h"
#include "library/PhotoLibraryError.h"
#include "library/SQLiteError.h"

#include <QDir>
#include <QFileInfo>

QString describeError(const std::exception& error)
{
    if (auto e = dynamic_cast<const DeviceError*>(&error))
        return e->description();
    if (auto e = dynamic_cast<const MediaSourceError*>(&error))
        return e->description();
    if (auto e = dynamic_cast<const SQLiteError*>(&error))
        return e->description();
    if (auto e = dynamic_cast<const PhotoLibraryError*>(&error))
        return e->description();
    if (auto e = dynamic_cast<const BackupFolderBusy*>(&error))
        return e->description();
    return QString::fromUtf8(error.what());
}

QString manifestProblem(const QString& root, const QString& detail)
{
    return QString::fromUtf8("The manifest \u201c%1\u201d of this backup folder is damaged or is not an Ombrelo "
                             "manifest, so nothing was done; the file was left as it is. (%2)")
        .arg(QDir(root).filePath(Manifest::fileName), detail);
}

std::optional<QString> backupFolderProblem(const QString& given)
{
    const QFileInfo folder(given);
    if (folder.isDir())
        return std::nullopt;
    if (folder.exists())
        return QString::fromUtf8("\u201c%1\u201d is a file, not a folder. Give the path of the backup folder instead.")
            .arg(given);
    return QString::fromUtf8("The backup folder \u201c%1\u201d doesn't exist. Is the drive connected?").arg(given);
}
