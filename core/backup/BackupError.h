#pragma once

#include "DescribedError.h"

#include <QString>

#include <stdexcept>

// A failure of the backup run itself or of writing one file into the backup folder.
// Only `temporaryFolder` ends a run; the others fail the asset being backed up.
class BackupError : public DescribedError {
public:
    enum class Kind { temporaryFolder, unsafeFolder, unsafeName, folder, write };

    static BackupError temporaryFolder(const QString& path, const QString& reason)
    {
        return {Kind::temporaryFolder, path, reason};
    }
    // A destination folder path that would lead outside the backup folder or into its own files.
    static BackupError unsafeFolder(const QString& relativePath) { return {Kind::unsafeFolder, relativePath, {}}; }
    // A file name that is not one plain name inside its folder.
    static BackupError unsafeName(const QString& name) { return {Kind::unsafeName, name, {}}; }
    static BackupError folder(const QString& path, const QString& reason) { return {Kind::folder, path, reason}; }
    static BackupError write(const QString& path, const QString& reason) { return {Kind::write, path, reason}; }

    Kind kind() const { return m_kind; }
    const QString& path() const { return m_path; }
    const QString& reason() const { return m_reason; }

    bool operator==(const BackupError& other) const
    {
        return m_kind == other.m_kind && m_path == other.m_path && m_reason == other.m_reason;
    }

private:
    BackupError(Kind kind, const QString& path, const QString& reason);

    Kind m_kind;
    QString m_path;
    QString m_reason;
};
