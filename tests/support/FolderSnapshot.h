#pragma once

#include <QMap>
#include <QString>

#include <ostream>

// Everything under a folder (hidden entries too): each file with its size, SHA-256 and
// modification time, each folder, link and other entry by what it is. Links are not followed. A
// test proves with it that something left a folder exactly as it was.
struct FolderSnapshot {
    struct Entry {
        QString sha256;
        qint64 size = 0;
        qint64 modifiedMs = 0;
        bool operator==(const Entry&) const = default;
    };
    QMap<QString, Entry> files;    // relative path → entry
    QMap<QString, QString> others; // relative path → "folder", "link to <target>" or "special"

    // `except`, a folder below `root`, is left out with everything in it.
    static FolderSnapshot take(const QString& root, const QString& except = {});
    bool operator==(const FolderSnapshot&) const = default;
};
void PrintTo(const FolderSnapshot& snapshot, std::ostream* os);
