#pragma once

#include <QString>
#include <QStringList>

#include <functional>

class MediaSource;

// Puts back the files of a backup folder that its manifest records but that are gone, fetched
// again from the device. A file is put back only where nothing is, only with exactly the content
// the manifest records (same size and SHA-256), and only once it is complete and synced. Files that
// are there but changed are never touched. Everything is written through DestinationFolder, as a
// backup writes, while the folder's lock is held, so no backup runs into the folder meanwhile.
class BackupRepair {
public:
    struct Report {
        int missing = 0;
        QStringList restored;    // paths relative to the backup folder
        QStringList notRestored; // "path: why"

        // "Restored N of M missing files from the device.", then one line per file.
        QStringList lines() const;
    };
    // Called after each file with (files done, files in all).
    using Progress = std::function<void(int done, int total)>;

    // Restores the files at `missing` (paths relative to `root`, as BackupVerifier reports them)
    // from `source`, each from the device path the manifest records for it. Throws BackupFolderBusy
    // when a backup holds the folder, BackupFolderError or SQLiteError when the manifest cannot be
    // read, BackupError when the temporary folder cannot be made.
    static Report run(const QString& root, MediaSource& source, const QStringList& missing,
                      const Progress& onProgress = {});
};
