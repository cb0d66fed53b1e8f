#include "BackupComparison.h"
#include "CliProcess.h"
#include "PhoneBackup.h"
#include "TempDir.h"
#include "checks/BackupVerifier.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <csignal>

namespace {

const QStringList kBackup{"backup", "--all", "--yes"};

// Every recorded file has exactly the size of the phone's file it was copied from.
void expectOnlyWholeFilesRecorded(const QString& dest, const PhoneBackup& phone)
{
    for (const ManifestRow& row : readManifestRows(dest))
        EXPECT_EQ(row.size, QFileInfo(phone.deviceFolder() + "/media" + row.sourcePath).size())
            << row.relPath.toStdString();
    EXPECT_TRUE(BackupVerifier::run(dest).isClean());
}

} // namespace

// The phone freezes in the middle of a backup: within half a minute the run stops with one line
// that says what to do and exits as a failed run, without a line per remaining item; nothing short
// is recorded; once the phone answers again, the next run completes the backup.
TEST(BackupFrozenPhone, StopsWithOneLineAndTheNextRunCarriesOn)
{
    PhoneBackup phone({"--assets", "30", "--seed", "5"});
    TempDir dirs;
    const QString reference = dirs.filePath("reference");
    const QString dest = dirs.filePath("dest");
    QDir().mkpath(reference);
    QDir().mkpath(dest);
    ASSERT_EQ(phone.cli(kBackup + QStringList{reference}).exitCode, 0);

    phone.setFaults({{"bytesPerSecond", 1000000}});
    CliProcess run(PhoneBackup::cliPath(), kBackup + QStringList{dest}, phone.environment());
    ASSERT_TRUE(run.waitForOutput("\nCopied ", 60000)) << run.err().toStdString();
    ::kill(phone.simulator().pid(), SIGSTOP);
    QElapsedTimer frozen;
    frozen.start();
    const ProgramResult stopped = run.finish(60);
    const qint64 seconds = frozen.elapsed() / 1000;
    ::kill(phone.simulator().pid(), SIGCONT);

    EXPECT_LT(seconds, 30);
    EXPECT_EQ(stopped.exitCode, 3) << stopped.describe().toStdString();
    const QString expected = "ERROR The device stopped responding. Check the cable, unlock it, and run the backup "
                             "again: it carries on where it stopped.";
    EXPECT_EQ(QString::fromUtf8(stopped.out).count(expected), 1) << stopped.out.toStdString();
    EXPECT_LE(QString::fromUtf8(stopped.out).count("\nERROR "), 1) << stopped.out.toStdString();
    expectOnlyWholeFilesRecorded(dest, phone);

    phone.setFaults({});
    const ProgramResult next = phone.cli(kBackup + QStringList{dest});
    EXPECT_EQ(next.exitCode, 0) << next.describe().toStdString();
    EXPECT_EQ(backupDifferences(reference, dest), QStringList());
}
