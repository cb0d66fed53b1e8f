#pragma once

#include "backup/ExistingBackup.h"

#include <QByteArray>
#include <QString>

#include <optional>

// What a backup folder holds, as its manifest records it, kept while the manifest is unchanged: a
// plan is rebuilt at every connection, choice of folder and closed run, and reading 100,000 rows
// again each time would hold the window up. A run's worker reads the folder once the run has
// ended, so closing the run finds it read.
class BackupFolderCache {
public:
    struct Reading {
        QString folder;
        QByteArray stamp; // the manifest's size, time and SQLite change counter when it was read
        ExistingBackup contents;
    };

    // The folder's contents: those kept while its manifest is unchanged, else read now (and kept).
    // Throws as ExistingBackup::read does.
    ExistingBackup read(const QString& folder);
    // Reads the folder, on any thread. Throws as ExistingBackup::read does.
    static Reading readNow(const QString& folder);
    void keep(Reading reading) { m_kept = std::move(reading); }

private:
    static QByteArray stamp(const QString& folder);

    std::optional<Reading> m_kept;
};
