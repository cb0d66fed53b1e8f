#pragma once

#include <QString>

#include <stdexcept>

// A backup folder that cannot be used as it is: one of the backup's own files (the manifest, its
// journal, the lock or the lock's guard) is a link or not a plain file, or its disk is full.
// Nothing was written when it is thrown.
class BackupFolderError : public std::runtime_error {
public:
    enum class Kind { notAPlainFile, diskFull };

    // Throws notAPlainFile when something at `path` is not a regular file (a link, whatever it
    // points at, a folder, a pipe): the backup's own files are opened by name, and a link or a pipe
    // there would send a write outside the folder or hang a read. Nothing at `path` is fine.
    static void requirePlainFile(const QString& path);

    static BackupFolderError notAPlainFile(const QString& path, const QString& what)
    {
        return {Kind::notAPlainFile, path, what};
    }
    static BackupFolderError diskFull(const QString& root) { return {Kind::diskFull, root, {}}; }

    Kind kind() const { return m_kind; }
    const QString& path() const { return m_path; }
    QString description() const;

private:
    BackupFolderError(Kind kind, const QString& path, const QString& what);

    Kind m_kind;
    QString m_path;
    QString m_what;
};
