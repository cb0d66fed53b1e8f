#pragma once

#include <QString>

// The backup folder seen as a place to write into. Everything the engine writes goes through here:
// folders are created one level at a time and never through a link, and a file appears under its
// final name only when it is complete, and only where no entry of that name exists.
class DestinationFolder {
public:
    // What a name in a folder currently is, without following links.
    enum class Entry { none, file, other };
    enum class Placement { placed, taken, otherFileSystem };

    explicit DestinationFolder(const QString& root) : m_root(root) {}
    const QString& root() const { return m_root; }

    // A relative folder path ("Albums/Trips") that stays inside the root and away from the
    // backup's own files: not empty, not absolute, no empty, "." or ".." part, and not
    // beginning with a name that starts ".ombrelo".
    static bool isSafeRelativePath(const QString& relativePath);
    // One plain name inside a folder: not empty, not "." or "..", no "/" and no NUL.
    static bool isSafeFileName(const QString& name);

    // Creates root/relativePath level by level and returns its absolute path. A level that is a
    // link or a file is refused, so nothing is ever created outside the root. Throws BackupError.
    QString makeFolder(const QString& relativePath) const;

    // Throws BackupError when the name cannot be looked up at all (too long, for one).
    static Entry entryAt(const QString& path);
    // Gives the complete file `from` the name `to` without ever replacing an existing entry:
    // `taken` when something is already there, `otherFileSystem` when the two are on different
    // file systems. `from` is gone after `placed`. Throws BackupError for any other failure.
    static Placement placeExclusively(const QString& from, const QString& to);
    // Copies the file `from` into the new file `to` (never an existing one), with the system's own
    // reason when that fails (a full disk says so). Throws BackupError.
    static void copyFile(const QString& from, const QString& to);
    // Forces a file's bytes and dates to the disk. Throws BackupError.
    static void syncFile(const QString& path);
    // Forces a folder's entries to the disk; a file system that cannot do it is not an error.
    static void syncFolder(const QString& path);

private:
    QString m_root;
};
