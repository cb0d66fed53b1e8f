#include "BackupError.h"

namespace {
QString describe(BackupError::Kind kind, const QString& path, const QString& reason)
{
    switch (kind) {
    case BackupError::Kind::temporaryFolder:
        return "The temporary folder “" + path + "” could not be created (" + reason +
               "), so the backup did not start.";
    case BackupError::Kind::unsafeFolder:
        return "The destination folder “" + path +
               "” does not lie inside the backup folder, so nothing was written to it.";
    case BackupError::Kind::unsafeName:
        return "The file name “" + path + "” cannot be used inside the backup folder, so the file was not written.";
    case BackupError::Kind::folder:
        return "The folder “" + path + "” could not be created (" + reason + ").";
    case BackupError::Kind::write:
        break;
    }
    return "The file “" + path + "” could not be written (" + reason + ").";
}
} // namespace

BackupError::BackupError(Kind kind, const QString& path, const QString& reason)
    : DescribedError(describe(kind, path, reason)), m_kind(kind), m_path(path), m_reason(reason)
{
}
