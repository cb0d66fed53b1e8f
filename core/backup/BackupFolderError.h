#pragma once

#include "DescribedError.h"

#include <QString>

// A backup folder that cannot be used as it is: it is missing or is a file, one of the backup's
// own files in it (the manifest, its journal, the lock or the lock's guard) is a link or not a
// plain file, or its disk is full. Nothing was written when it is thrown.
class BackupFolderError : public DescribedError {
public:
    enum class Kind { missingFolder, notAFolder, notAPlainFile, diskFull };

    // Throws missingFolder or notAFolder unless `root` is a folder (a link to one counts).
    static void requireFolder(const QString& root);
    // Throws notAPlainFile when something at `path` is not a regular file (a link, whatever it
    // points at, a folder, a pipe): the backup's own files are opened by name, and a link or a pipe
    // there would send a write outside the folder or hang a read. Nothing at `path` is fine.
    static void requirePlainFile(const QString& path);
    static BackupFolderError diskFull(const QString& root) { return {Kind::diskFull, root, {}}; }

    Kind kind() const { return m_kind; }
    const QString& path() const { return m_path; }

private:
    BackupFolderError(Kind kind, const QString& path, const QString& what);

    Kind m_kind;
    QString m_path;
};
