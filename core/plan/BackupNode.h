#pragma once

#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// One node of the backup tree: the camera roll, the hidden items, an album folder or an album.
struct BackupNode {
    enum class Kind { cameraRoll, hidden, folder, album };

    QString id;
    QString title;
    Kind kind = Kind::album;
    QString relativePath;
    std::optional<QList<BackupNode>> children; // folders only
    QStringList assetUUIDs;                    // leaves only, in plan order

    bool isLeaf() const { return kind != Kind::folder; }
    QList<BackupNode> leaves() const;
    int totalCount() const;

    bool operator==(const BackupNode&) const = default;
};

QString rawValue(BackupNode::Kind kind);
