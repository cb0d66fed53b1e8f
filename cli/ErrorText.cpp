#include "ErrorText.h"

#include "backup/BackupFolderLock.h"
#include "device/DeviceError.h"
#include "device/MediaSourceError.h"
#include "library/PhotoLibraryError.h"
#include "library/SQLiteError.h"

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
