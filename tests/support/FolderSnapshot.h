#pragma once

#include <QMap>
#include <QString>

// Every file under a folder (hidden ones too) with its size, SHA-256 and modification time, so a
// test can prove that something left a folder exactly as it was.
struct FolderSnapshot {
    struct Entry {
        QString sha256;
        qint64 size = 0;
        qint64 modifiedMs = 0;
        bool operator==(const Entry&) const = default;
    };
    QMap<QString, Entry> files; // relative path → entry

    static FolderSnapshot take(const QString& root);
    bool operator==(const FolderSnapshot&) const = default;
};
