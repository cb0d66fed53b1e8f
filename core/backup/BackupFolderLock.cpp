#include "BackupFolderLock.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QThread>

#include <algorithm>

namespace {

QString busyText(qint64 pid)
{
    return "Another backup into this folder is running (process " + QString::number(pid) + ").";
}

// A run writes its details into the lock file the moment it has made it. A lock file still without
// them a second later was left by a run that died in between, and is taken over; another run that
// finds it at the same moment waits for this check under a lock of its own.
bool takeOverUnnamedLock(QLockFile& lock, const QString& path)
{
    constexpr qint64 kWriteMs = 1000;
    for (;;) {
        qint64 pid = 0;
        QString host, app;
        if (lock.getLockInfo(&pid, &host, &app))
            return false;
        const QFileInfo file(path);
        if (!file.exists())
            return lock.tryLock(0);
        const qint64 age = file.lastModified().msecsTo(QDateTime::currentDateTime());
        if (age < kWriteMs) {
            QThread::msleep(unsigned(std::max<qint64>(10, kWriteMs - age)));
            continue;
        }
        QLockFile guard(path + ".rmlock");
        if (!guard.tryLock(0))
            return false;
        if (lock.getLockInfo(&pid, &host, &app))
            return false;
        lock.removeStaleLockFile();
        return lock.tryLock(0);
    }
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
        if (takeOverUnnamedLock(*m_lock, QDir(root).filePath(fileName)))
            return;
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
