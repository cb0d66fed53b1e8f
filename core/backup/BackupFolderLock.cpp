#include "BackupFolderLock.h"

#include "BackupFolderError.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSysInfo>
#include <QThread>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <sys/statvfs.h>

namespace {

QString busyText(qint64 pid)
{
    return "Another backup into this folder is running (process " + QString::number(pid) + ").";
}

constexpr qint64 kWriteMs = 1000;

// Qt's guard for taking over a lock file: the lock file's name with this added.
const QString kGuardSuffix = QStringLiteral(".rmlock");

// Whether the disk of `root` has no room left, for a block or for a new file.
bool isFull(const QString& root)
{
    struct statvfs disk;
    return ::statvfs(QFile::encodeName(root).constData(), &disk) == 0 && (disk.f_bavail == 0 || disk.f_favail == 0);
}

// Whether the lock file at `path` was left behind by a run that is gone: one whose process no longer
// runs on this machine, or one still without its details a second after it was made (a run writes
// them the moment it has made the file, so that second is waited out). A missing file was left by
// nobody.
bool isLeftBehind(const QString& path)
{
    for (;;) {
        const QFileInfo file(path);
        if (!file.exists())
            return false;
        QLockFile reader(path);
        qint64 pid = 0;
        QString host, app;
        if (reader.getLockInfo(&pid, &host, &app)) {
            const bool here = host.isEmpty() || host == QSysInfo::machineHostName();
            return here && ::kill(pid_t(pid), 0) != 0 && errno == ESRCH;
        }
        const qint64 age = file.lastModified().msecsTo(QDateTime::currentDateTime());
        if (age >= kWriteMs)
            return true;
        QThread::msleep(unsigned(std::max<qint64>(10, kWriteMs - age)));
    }
}

// Takes over a lock left behind by a run that died. Qt takes over a dead owner's lock by itself, but
// not an empty lock file, and not while its guard for doing so (the lock file's name + ".rmlock") is
// in the way: a run killed while it was taking over leaves that guard behind, often empty, and Qt
// then trusts it for half a minute. Both are cleared here, under the same guard as Qt's.
bool takeOverLeftLock(QLockFile& lock, const QString& path)
{
    const QString guardPath = path + kGuardSuffix;
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (!isLeftBehind(path))
            return lock.tryLock(0);
        if (isLeftBehind(guardPath))
            QFile::remove(guardPath);
        {
            QLockFile guard(guardPath);
            if (!guard.tryLock(0))
                return false;
            if (isLeftBehind(path))
                lock.removeStaleLockFile();
        }
        if (lock.tryLock(0))
            return true;
    }
    return false;
}

} // namespace

BackupFolderBusy::BackupFolderBusy(qint64 pid) : DescribedError(busyText(pid)), m_pid(pid) {}

BackupFolderLock::BackupFolderLock(const QString& root)
    : m_lock(std::make_unique<QLockFile>(QDir(root).filePath(fileName)))
{
    // Qt would follow a link there, or keep reading a folder as a lock someone holds.
    BackupFolderError::requirePlainFile(QDir(root).filePath(fileName));
    BackupFolderError::requirePlainFile(QDir(root).filePath(fileName) + kGuardSuffix);
    // A run can last hours: only a dead owner makes a lock stale, never its age.
    m_lock->setStaleLockTime(0);
    if (m_lock->tryLock(0))
        return;
    if (m_lock->error() == QLockFile::LockFailedError) {
        if (takeOverLeftLock(*m_lock, QDir(root).filePath(fileName)))
            return;
        qint64 pid = 0;
        QString host, app;
        m_lock->getLockInfo(&pid, &host, &app);
        throw BackupFolderBusy(pid);
    }
    // Qt made the file but could not write its process id into it (a read-only disk is a permission
    // error, even one that shows no free space).
    if (m_lock->error() == QLockFile::UnknownError && isFull(root))
        throw BackupFolderError::diskFull(root);
    throw DescribedError(
        QString::fromUtf8("The backup folder \u201c%1\u201d cannot be locked for this run. Check that it is writable.")
            .arg(QDir::toNativeSeparators(root)));
}

BackupFolderLock::~BackupFolderLock() = default;
