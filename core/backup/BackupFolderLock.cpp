#include "BackupFolderLock.h"

#include <QDir>

namespace {
QString busyText(qint64 pid)
{
    return "Another backup into this folder is running (process " + QString::number(pid) + ").";
}
} // namespace

BackupFolderBusy::BackupFolderBusy(qint64 pid) : std::runtime_error(busyText(pid).toStdString()), m_pid(pid) {}

QString BackupFolderBusy::description() const { return busyText(m_pid); }

BackupFolderLock::BackupFolderLock(const QString& root)
    : m_lock(std::make_unique<QLockFile>(QDir(root).filePath(fileName)))
{
    // A run can last hours: only a dead owner makes a lock stale, never its age.
    m_lock->setStaleLockTime(0);
    if (m_lock->tryLock(0))
        return;
    if (m_lock->error() == QLockFile::LockFailedError) {
        qint64 pid = 0;
        QString host, app;
        m_lock->getLockInfo(&pid, &host, &app);
        throw BackupFolderBusy(pid);
    }
    throw std::runtime_error(
        QString::fromUtf8("The backup folder \u201c%1\u201d cannot be locked for this run. Check that it is writable.")
            .arg(QDir::toNativeSeparators(root))
            .toStdString());
}

BackupFolderLock::~BackupFolderLock() = default;
