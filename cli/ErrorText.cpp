#include "ErrorText.h"

#include "backup/BackupFolderError.h"
#include "backup/BackupFolderLock.h"
#include "backup/Manifest.h"
#include "device/DeviceError.h"
#include "device/MediaSourceError.h"
#include "library/PhotoLibraryError.h"
#include "library/SQLiteError.h"

#include <QDir>

QString manifestProblem(const QString& root, const QString& detail)
{
    return QString::fromUtf8("The manifest \u201c%1\u201d of this backup folder is damaged or is not an Ombrelo "
                             "manifest, so nothing was done; the file was left as it is. (%2)")
        .arg(QDir(root).filePath(Manifest::fileName), detail);
}

std::optional<QString> backupFolderProblem(const QString& given)
{
    try {
        BackupFolderError::requireFolder(given);
        return std::nullopt;
    } catch (const BackupFolderError& error) {
        return error.description();
    }
}
