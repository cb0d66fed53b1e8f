#include "TempDir.h"
#include "backup/BackupFolderLock.h"

#include <QCoreApplication>
#include <QFile>
#include <QSysInfo>
#include <QProcess>

#include <gtest/gtest.h>

#include <csignal>

TEST(BackupFolderLock, OneRunPerFolderAndDeadOwnersAreTakenOver)
{
    TempDir root;
    {
        BackupFolderLock first(root.path());
        EXPECT_TRUE(QFile::exists(root.filePath(BackupFolderLock::fileName)));
        try {
            BackupFolderLock second(root.path());
            FAIL() << "a second lock on the same folder must be refused";
        } catch (const BackupFolderBusy& busy) {
            EXPECT_EQ(busy.pid(), QCoreApplication::applicationPid());
            EXPECT_EQ(busy.description(), "Another backup into this folder is running (process " +
                                              QString::number(busy.pid()) + ").");
        }
    }
    EXPECT_FALSE(QFile::exists(root.filePath(BackupFolderLock::fileName))) << "the lock file goes with the lock";

    // A lock file left by a process that was killed does not block the next run.
    QProcess dead;
    dead.start("sleep", {"30"});
    ASSERT_TRUE(dead.waitForStarted());
    const qint64 deadPid = dead.processId();
    writeFile(root.filePath(BackupFolderLock::fileName),
              QByteArray::number(deadPid) + "\nombrelo-cli\n" + QSysInfo::machineHostName().toUtf8() + "\n");
    dead.kill();
    dead.waitForFinished();
    BackupFolderLock takeover(root.path());
    EXPECT_TRUE(QFile::exists(root.filePath(BackupFolderLock::fileName)));
}
