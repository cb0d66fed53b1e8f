#include "BackupFolderError.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

namespace {

QString describe(BackupFolderError::Kind kind, const QString& path, const QString& what)
{
    const QString shown = QDir::toNativeSeparators(path);
    switch (kind) {
    case BackupFolderError::Kind::missingFolder:
        return QString::fromUtf8("The backup folder \u201c%1\u201d doesn't exist. Is the drive connected?").arg(shown);
    case BackupFolderError::Kind::notAFolder:
        return QString::fromUtf8("\u201c%1\u201d is a file, not a folder. Give the path of the backup folder instead.")
            .arg(shown);
    case BackupFolderError::Kind::diskFull:
        return QString::fromUtf8("The disk of the backup folder \u201c%1\u201d is full, so nothing was done. Free "
                                 "some space on it, then try again.")
            .arg(shown);
    case BackupFolderError::Kind::notAPlainFile:
        break;
    }
    return QString::fromUtf8("\u201c%1\u201d, where the backup keeps a file of its own, is %2, so nothing was done "
                             "and it was left as it is. Move it out of the backup folder, then try again.")
        .arg(shown, what);
}

} // namespace

void BackupFolderError::requireFolder(const QString& root)
{
    const QFileInfo folder(root);
    if (!folder.isDir())
        throw BackupFolderError(folder.exists() ? Kind::notAFolder : Kind::missingFolder, root, {});
}

void BackupFolderError::requirePlainFile(const QString& path)
{
    struct stat info;
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0 || S_ISREG(info.st_mode))
        return;
    QString what = QStringLiteral("not a plain file");
    if (S_ISLNK(info.st_mode))
        what = QStringLiteral("a link to another place");
    else if (S_ISDIR(info.st_mode))
        what = QStringLiteral("a folder");
    else if (S_ISFIFO(info.st_mode))
        what = QStringLiteral("a named pipe");
    throw BackupFolderError(Kind::notAPlainFile, path, what);
}

BackupFolderError::BackupFolderError(Kind kind, const QString& path, const QString& what)
    : DescribedError(describe(kind, path, what)), m_kind(kind), m_path(path)
{
}
