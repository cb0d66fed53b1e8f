#include "BackupRepair.h"

#include "BackupVerifier.h"
#include "DescribedError.h"
#include "backup/BackupEngine.h"
#include "backup/BackupError.h"
#include "backup/BackupFolderLock.h"
#include "backup/DestinationFolder.h"
#include "device/MediaSource.h"
#include "device/MediaSourceError.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QUuid>

#include <cerrno>
#include <cstring>
#include <sys/stat.h>

namespace {

using Recorded = BackupVerifier::RecordedFile;

// Why a file could not be put back; the rest of the repair goes on.
struct NotRestored {
    QString reason;
};

QString freshName() { return QUuid::createUuid().toString(QUuid::WithoutBraces); }

// The folder's temporary area, made afresh as a backup makes it: with the lock held, anything in it
// was left by a run that died, and a link there is removed, never followed.
QString makeTemporaryFolder(const QString& root)
{
    const QString path = QDir(root).filePath(BackupEngine::tempFolderName);
    const QFileInfo info(path);
    if (info.isSymLink() || (info.exists() && !info.isDir()))
        QFile::remove(path);
    else if (info.exists())
        QDir(path).removeRecursively();
    if (::mkdir(QFile::encodeName(path).constData(), 0777) != 0)
        throw BackupError::temporaryFolder(path, QString::fromLocal8Bit(std::strerror(errno)));
    return path;
}

// The manifest's rows for the file at `relPath`, the file's own rows before the rows of later
// copies recorded as duplicates of it.
QList<Recorded> rowsFor(const std::vector<Recorded>& rows, const QString& relPath)
{
    QList<Recorded> found;
    for (const Recorded& row : rows)
        if (row.relPath == relPath && !row.sourcePath.isEmpty())
            found.insert(row.status == Manifest::rawValue(Manifest::Status::duplicate) ? found.size() : 0, row);
    return found;
}

// Downloads the recorded content into `download`, from the first of the rows' device paths that
// holds it.
void fetch(MediaSource& source, const QList<Recorded>& rows, const QString& download)
{
    if (rows.isEmpty())
        throw NotRestored{QStringLiteral("the manifest records no device path for it")};
    QString reason;
    for (const Recorded& row : rows) {
        try {
            const DownloadResult got = source.download(row.sourcePath, download);
            if (got.sha256 == row.sha256 && got.size == uint64_t(row.size))
                return;
            reason = row.sourcePath + " on the device is no longer the file that was backed up (its SHA-256 differs)";
        } catch (const MediaSourceError& error) {
            reason = error.description();
        }
    }
    throw NotRestored{reason};
}

void setCaptureDate(const QString& file, const std::optional<QString>& recorded)
{
    const QDateTime date = recorded ? QDateTime::fromString(*recorded, Qt::ISODate) : QDateTime();
    QFile handle(file);
    if (date.isValid() && handle.open(QIODevice::ReadOnly)) {
        handle.setFileTime(date, QFileDevice::FileModificationTime);
        handle.setFileTime(date, QFileDevice::FileAccessTime);
    }
}

// Gives the complete, synced file `ready` the name `target` in `folder` without replacing anything.
void place(const QString& ready, const QString& folder, const QString& target)
{
    auto placement = DestinationFolder::placeExclusively(ready, target);
    if (placement == DestinationFolder::Placement::otherFileSystem) {
        // The folder is on another drive than the temporary area: staged beside the target instead.
        const QString beside = folder + "/.ombrelo-part-" + freshName();
        const auto removeBeside = qScopeGuard([&] { QFile::remove(beside); });
        DestinationFolder::copyFile(ready, beside);
        DestinationFolder::syncFile(beside);
        placement = DestinationFolder::placeExclusively(beside, target);
    }
    if (placement == DestinationFolder::Placement::taken)
        throw NotRestored{QStringLiteral("something else is at that name now, and was left as it is")};
    DestinationFolder::syncFolder(folder);
}

void restore(const QString& root, MediaSource& source, const QString& tmp, const QList<Recorded>& rows,
             const QString& relPath)
{
    const qsizetype slash = relPath.lastIndexOf('/');
    const QString folderPath = relPath.left(std::max<qsizetype>(slash, 0));
    const QString name = relPath.mid(slash + 1);
    if (!DestinationFolder::isSafeRelativePath(folderPath) || !DestinationFolder::isSafeFileName(name))
        throw NotRestored{QStringLiteral("the recorded path is not a place for a file inside the backup folder")};

    const QString download = tmp + '/' + freshName();
    const auto removeDownload = qScopeGuard([&] { QFile::remove(download); });
    fetch(source, rows, download);
    setCaptureDate(download, rows.first().captureDate);
    DestinationFolder::syncFile(download);
    const QString folder = DestinationFolder(root).makeFolder(folderPath);
    place(download, folder, folder + '/' + name);
}

} // namespace

QStringList BackupRepair::Report::lines() const
{
    QStringList result{"Restored " + QString::number(restored.size()) + " of " + QString::number(missing) +
                       " missing files from the device."};
    for (const QString& path : restored)
        result << "Restored: " + path;
    for (const QString& problem : notRestored)
        result << "Not restored: " + problem;
    return result;
}

BackupRepair::Report BackupRepair::run(const QString& root, MediaSource& source, const QStringList& missing,
                                       const Progress& onProgress)
{
    const BackupFolderLock lock(root);
    const std::vector<Recorded> rows = BackupVerifier::recordedFiles(root);
    const QString tmp = makeTemporaryFolder(root);
    const auto removeTmp = qScopeGuard([&] { QDir(tmp).removeRecursively(); });

    QStringList paths = missing;
    paths.removeDuplicates();
    Report report;
    report.missing = int(paths.size());
    int done = 0;
    for (const QString& relPath : std::as_const(paths)) {
        try {
            // Looked at again under the lock: only a file that is still missing is put back.
            if (QFileInfo(QDir(root).filePath(relPath)).isFile())
                throw NotRestored{QStringLiteral("a file is there again, and was left as it is")};
            restore(root, source, tmp, rowsFor(rows, relPath), relPath);
            report.restored << relPath;
        } catch (const NotRestored& problem) {
            report.notRestored << relPath + ": " + problem.reason;
        } catch (const std::exception& error) {
            report.notRestored << relPath + ": " + describeError(error);
        }
        if (onProgress)
            onProgress(++done, report.missing);
    }
    return report;
}
