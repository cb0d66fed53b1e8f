#pragma once

#include "DescribedError.h"

#include <QLockFile>
#include <QString>

#include <memory>
#include <stdexcept>

// Thrown when another run holds the lock of a backup folder.
class BackupFolderBusy : public DescribedError {
public:
    explicit BackupFolderBusy(qint64 pid);
    qint64 pid() const { return m_pid; }

private:
    qint64 m_pid;
};

// One real run per backup folder at a time, across processes. The lock file ".ombrelo-lock" sits in
// the folder while a run copies and is removed when the lock goes; a lock left by a process that
// died is taken over, even one that died before it had written its process id into the file. Without it, a second run's
// clean-up of the temporary folder would delete the first run's downloads.
class BackupFolderLock {
public:
    static inline const QString fileName = QStringLiteral(".ombrelo-lock");

    // Takes the lock at once or throws BackupFolderBusy. Throws BackupFolderError when the lock file
    // or its guard is a link or not a plain file, or when the disk is full, and std::runtime_error
    // when the folder cannot hold a lock file for another reason.
    explicit BackupFolderLock(const QString& root);
    ~BackupFolderLock();
    BackupFolderLock(const BackupFolderLock&) = delete;
    BackupFolderLock& operator=(const BackupFolderLock&) = delete;

private:
    std::unique_ptr<QLockFile> m_lock;
};
