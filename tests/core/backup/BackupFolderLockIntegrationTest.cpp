#include "EngineFixture.h"
#include "FolderSnapshot.h"
#include "TempDir.h"
#include "backup/BackupFolderLock.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QSysInfo>

#include <gtest/gtest.h>

TEST(BackupFolderLock, OneRunPerFolderAndAnEmptyLockFileIsTakenOverOnceOld)
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
        }
    }
    EXPECT_FALSE(QFile::exists(root.filePath(BackupFolderLock::fileName))) << "the lock file goes with the lock";

    // A lock file left by a killed run does not block the next run (BackupKilled); nor does the
    // empty one a process killed between making it and writing its id into it leaves, once it is a
    // second old (a live owner writes its id at once).
    for (const int secondsOld : {30, 0}) {
        SCOPED_TRACE(secondsOld);
        writeFile(root.filePath(BackupFolderLock::fileName), "");
        QFile file(root.filePath(BackupFolderLock::fileName));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        ASSERT_TRUE(
            file.setFileTime(QDateTime::currentDateTime().addSecs(-secondsOld), QFileDevice::FileModificationTime));
        file.close();
        QElapsedTimer clock;
        clock.start();
        BackupFolderLock takeover(root.path());
        EXPECT_EQ(readFile(root.filePath(BackupFolderLock::fileName)).split('\n').first(),
                  QByteArray::number(QCoreApplication::applicationPid()));
        if (secondsOld == 0) {
            EXPECT_GE(clock.elapsed(), 900);
        }
    }
}

// A run killed while it was taking over a dead run's lock leaves the guard file for doing so behind,
// often empty: the next run is not refused in the dead run's name because of it.
TEST(BackupFolderLock, AGuardLeftByARunKilledWhileTakingOverIsNotInTheWay)
{
    TempDir root;
    QProcess gone; // a process that has ended: its id names nobody
    gone.start("sleep", {"0.1"});
    ASSERT_TRUE(gone.waitForStarted());
    const qint64 deadPid = gone.processId();
    ASSERT_TRUE(gone.waitForFinished());
    const QString lockFile = root.filePath(BackupFolderLock::fileName);
    // Written as QLockFile writes it: process id, program, host, machine id, boot id.
    writeFile(lockFile, QByteArray::number(deadPid) + "\nombrelo-cli\n" + QSysInfo::machineHostName().toUtf8() + "\n" +
                            QSysInfo::machineUniqueId() + "\n" + QSysInfo::bootUniqueId() + "\n");
    writeFile(lockFile + ".rmlock", "");

    QElapsedTimer clock;
    clock.start();
    BackupFolderLock takeover(root.path());
    EXPECT_EQ(readFile(lockFile).split('\n').first(), QByteArray::number(QCoreApplication::applicationPid()));
    EXPECT_LT(clock.elapsed(), 5000) << "not half a minute later";
}

// The engine takes the lock itself for a real run, whichever front end runs it: while another run
// holds the folder, a real run stops before it touches anything (the other run's downloads in the
// temporary folder survive); a dry run, which writes nothing, still goes ahead.
TEST(BackupFolderLock, TheEngineHoldsItForEveryRealRun)
{
    TestPhone phone;
    phone.addAsset("P", "IMG_0001.JPG", "p");
    const BackupPlan plan(phone.library, {});
    TempDir root;
    Manifest manifest(root.path());
    writeFile(root.filePath(BackupEngine::tempFolderName + "/download-of-the-other-run"), "half a video");

    {
        const BackupFolderLock otherRun(root.path());
        const FolderSnapshot before = FolderSnapshot::take(root.path());
        BackupEngine engine(phone.source, plan, root.path(), manifest);
        EXPECT_THROW(engine.run(options({"camera-roll"}), {}, {}), BackupFolderBusy);
        EXPECT_EQ(FolderSnapshot::take(root.path()), before);
        EXPECT_EQ(phone.source.downloads, 0);
        const BackupSummary preview = engine.run(options({"camera-roll"}, true), {}, {});
        EXPECT_EQ(preview.filesToCopy, 1);
    }

    // With the folder free, the run holds the lock while it copies and lets it go at the end.
    bool lockedDuringRun = false;
    BackupEngine engine(phone.source, plan, root.path(), manifest);
    const BackupSummary summary = engine.run(options({"camera-roll"}), {}, [&](const BackupEvent&) {
        lockedDuringRun = QFile::exists(root.filePath(BackupFolderLock::fileName));
    });
    EXPECT_TRUE(lockedDuringRun);
    EXPECT_EQ(summary.filesCopied, 1);
    EXPECT_FALSE(QFile::exists(root.filePath(BackupFolderLock::fileName)));
    EXPECT_FALSE(QFile::exists(root.filePath(BackupEngine::tempFolderName)));
}
