#pragma once

#include "BackupNode.h"
#include "SkipReason.h"
#include "library/PhotoLibrary.h"

#include <QHash>
#include <QList>
#include <QString>

#include <optional>

// The tree of what can be backed up, built from a library, and what was left out of it.
struct BackupPlan {
    static inline const QString cameraRollID = QStringLiteral("camera-roll");
    static inline const QString hiddenID = QStringLiteral("hidden");
    static inline const QString cameraRollPath = QStringLiteral("Camera Roll");
    static inline const QString hiddenPath = QStringLiteral("Hidden");
    static inline const QString albumsPath = QStringLiteral("Albums");

    PhotoLibrary library;
    BackupNode cameraRoll;
    BackupNode hidden;
    QList<BackupNode> albumTree;
    QHash<SkipReason, int> skipped;
    QHash<QString, LibraryAsset> assetsByUUID;
    QHash<QString, QString> albumPaths;

    // existingAlbumPaths: album UUID → folder recorded by an earlier backup of the destination.
    BackupPlan(const PhotoLibrary& library, const QHash<QString, QString>& existingAlbumPaths = {});

    QList<BackupNode> topLevelNodes() const;
    QList<BackupNode> allLeaves() const;
    std::optional<BackupNode> node(const QString& id) const;
    QList<LibraryAsset> assets(const BackupNode& node) const;

    static QList<LibraryAsset> sorted(QList<LibraryAsset> assets);
};
