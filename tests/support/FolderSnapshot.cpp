#include "FolderSnapshot.h"

#include "device/StreamingHasher.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>

FolderSnapshot FolderSnapshot::take(const QString& root, const QString& except)
{
    FolderSnapshot snapshot;
    QDirIterator it(root, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    const QDir base(root);
    const QString skipped = except.isEmpty() ? QString() : base.relativeFilePath(except);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = base.relativeFilePath(path);
        if (!skipped.isEmpty() && (relative == skipped || relative.startsWith(skipped + "/")))
            continue;
        const QFileInfo info(path);
        if (info.isSymLink()) {
            snapshot.others.insert(relative, "link to " + info.symLinkTarget());
        } else if (info.isDir()) {
            snapshot.others.insert(relative, "folder");
        } else if (info.isFile()) {
            const DownloadResult hash = sha256OfFile(path);
            snapshot.files.insert(relative, {hash.sha256, qint64(hash.size), info.lastModified().toMSecsSinceEpoch()});
        } else {
            snapshot.others.insert(relative, "special");
        }
    }
    return snapshot;
}

void PrintTo(const FolderSnapshot& snapshot, std::ostream* os)
{
    for (auto it = snapshot.files.cbegin(); it != snapshot.files.cend(); ++it)
        *os << "\n  " << it.key().toStdString() << ": " << it->sha256.left(12).toStdString() << "… " << it->size
            << " bytes, modified " << it->modifiedMs;
    for (auto it = snapshot.others.cbegin(); it != snapshot.others.cend(); ++it)
        *os << "\n  " << it.key().toStdString() << ": " << it->toStdString();
}
