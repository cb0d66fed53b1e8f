#pragma once

#include <QHash>
#include <QSet>
#include <QString>

struct BackupNode;

// What a backup folder already holds, as its manifest records it, read without writing anything:
// the folder names earlier runs gave the albums (kept by the next plan) and what each folder holds.
struct ExistingBackup {
    QHash<QString, QString> albumPaths;     // album UUID → folder path
    int fileCount = 0;                      // files recorded in the manifest
    QHash<QString, QSet<QString>> backedUp; // folder path → UUIDs of the assets recorded there

    // Nothing when the folder has no manifest or it cannot be read: that counts as no backup yet.
    // Throws BackupFolderError when the manifest or its journal is a link or not a plain file.
    static ExistingBackup read(const QString& root);

    // How many of the node's assets are recorded in the folders of its leaves.
    int backedUpCount(const BackupNode& node) const;
};
