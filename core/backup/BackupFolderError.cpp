#include "BackupFolderError.h"

#include <QDir>
#include <QFile>

#include <sys/stat.h>

namespace {

QString describe(BackupFolderError::Kind kind, const QString& path, const QString& what)
{
    const QString shown = QDir::toNativeSeparators(path);
    if (kind == BackupFolderError::Kind::diskFull)
        return QString::fromUtf8("The disk of the backup folder \u201c%1\u201d is full, so nothing was done. Free "
                                 "some space on it, then try again.")
            .arg(shown);
    return QString::fromUtf8("\u201c%1\u201d, where the backup keeps a file of its own, is %2, so nothing was done "
                             "and it was left as it is. Move it out of the backup folder, then try again.")
        .arg(shown, what);
}

} // namespace

void BackupFolderError::requirePlainFile(const QString& path)
{
    struct stat info;
    if (::lstat(QFile::encodeName(path).constData(), &info) != 0 || S_ISREG(info.st_mode))
        return;
    if (S_ISLNK(info.st_mode))
        throw notAPlainFile(path, QStringLiteral("a link to another place"));
    if (S_ISDIR(info.st_mode))
        throw notAPlainFile(path, QStringLiteral("a folder"));
    if (S_ISFIFO(info.st_mode))
        throw notAPlainFile(path, QStringLiteral("a named pipe"));
    throw notAPlainFile(path, QStringLiteral("not a plain file"));
}

BackupFolderError::BackupFolderError(Kind kind, const QString& path, const QString& what)
    : std::runtime_error(describe(kind, path, what).toStdString()), m_kind(kind), m_path(path), m_what(what)
{
}

QString BackupFolderError::description() const { return describe(m_kind, m_path, m_what); }
