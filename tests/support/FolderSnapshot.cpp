#include "FolderSnapshot.h"

#include "device/StreamingHasher.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

FolderSnapshot FolderSnapshot::take(const QString& root)
{
    FolderSnapshot snapshot;
    QDirIterator it(root, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    const QDir base(root);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info(path);
        const DownloadResult hash = sha256OfFile(path);
        snapshot.files.insert(base.relativeFilePath(path),
                              {hash.sha256, qint64(hash.size), info.lastModified().toMSecsSinceEpoch()});
    }
    return snapshot;
}
