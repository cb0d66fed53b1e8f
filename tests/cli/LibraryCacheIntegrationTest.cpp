#include "BackupComparison.h"
#include "CliProcess.h"
#include "FolderSnapshot.h"
#include "PhoneBackup.h"
#include "TempDir.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <memory>
#include <thread>

namespace {

int databaseFetches(PhoneBackup& phone)
{
    return int(phone.simulator().log().count("FILE_OPEN /PhotoData/Photos.sqlite "));
}

QString cacheOf(const PhoneBackup& phone)
{
    return phone.environment().value("XDG_CACHE_HOME") + "/Ombrelo/" + phone.udid();
}

} // namespace

// The copy of the phone's database is read again while the phone's files are unchanged, and
// fetched again as soon as one of them changes, the log alone included.
TEST(LibraryCache, AnUnchangedDatabaseIsNotFetchedAgain)
{
    PhoneBackup phone({"--assets", "20", "--seed", "4"});
    const ProgramResult first = phone.cli({"tree"});
    ASSERT_EQ(first.exitCode, 0) << first.describe().toStdString();
    EXPECT_EQ(databaseFetches(phone), 1);

    const ProgramResult second = phone.cli({"tree"});
    EXPECT_EQ(second.out, first.out);
    EXPECT_EQ(databaseFetches(phone), 1) << "an unchanged database was fetched again";

    QFile wal(phone.deviceFolder() + "/media/PhotoData/Photos.sqlite-wal");
    ASSERT_TRUE(wal.open(QIODevice::ReadWrite));
    ASSERT_TRUE(wal.setFileTime(QDateTime::currentDateTime().addSecs(60), QFileDevice::FileModificationTime));
    wal.close();
    const ProgramResult third = phone.cli({"tree"});
    EXPECT_EQ(third.out, first.out);
    EXPECT_EQ(databaseFetches(phone), 2) << "a changed log did not make the database be fetched again";
}

// The cache is the program's own, and links planted in it lead nowhere: a link where the phone's
// folder should be is replaced by a real folder, and a link where the copy should be is replaced,
// their targets untouched.
TEST(LibraryCache, LinksInTheCacheAreReplacedNeverFollowed)
{
    PhoneBackup phone({"--assets", "10", "--seed", "4"});
    TempDir dirs;
    const QString victim = dirs.filePath("victim");
    writeFile(victim + "/Photos.sqlite", "the user's own file");
    writeFile(victim + "/holiday.txt", "keep me");
    const FolderSnapshot before = FolderSnapshot::take(victim);

    QDir().mkpath(QFileInfo(cacheOf(phone)).path());
    ASSERT_TRUE(QFile::link(victim, cacheOf(phone)));
    const ProgramResult throughFolderLink = phone.cli({"tree"});
    EXPECT_EQ(throughFolderLink.exitCode, 0) << throughFolderLink.describe().toStdString();
    EXPECT_FALSE(QFileInfo(cacheOf(phone)).isSymLink());
    EXPECT_TRUE(QFileInfo(cacheOf(phone) + "/Photos.sqlite").isFile());

    QFile::remove(cacheOf(phone) + "/device-files.json"); // so that the next run fetches
    QFile::remove(cacheOf(phone) + "/Photos.sqlite");
    ASSERT_TRUE(QFile::link(victim + "/Photos.sqlite", cacheOf(phone) + "/Photos.sqlite"));
    const ProgramResult throughFileLink = phone.cli({"tree"});
    EXPECT_EQ(throughFileLink.exitCode, 0) << throughFileLink.describe().toStdString();
    EXPECT_FALSE(QFileInfo(cacheOf(phone) + "/Photos.sqlite").isSymLink());
    EXPECT_EQ(FolderSnapshot::take(victim), before);
}

// Backups of one phone into three folders, started together while its database must be fetched:
// one fetches, the others wait for the copy, and all three end with the same whole backup.
TEST(LibraryCache, BackupsStartedTogetherShareOneFetch)
{
    PhoneBackup phone({"--assets", "30", "--seed", "6"});
    phone.setFaults({{"bytesPerSecond", 2000000}});
    TempDir dirs;
    std::vector<std::unique_ptr<CliProcess>> runs;
    for (int i = 0; i < 3; ++i) {
        QDir().mkpath(dirs.filePath(QString::number(i)));
        runs.push_back(std::make_unique<CliProcess>(
            PhoneBackup::cliPath(), QStringList{"backup", "--all", "--yes", dirs.filePath(QString::number(i))},
            phone.environment()));
        std::this_thread::sleep_for(std::chrono::milliseconds(150));
    }
    for (auto& run : runs) {
        const ProgramResult result = run->finish();
        EXPECT_EQ(result.exitCode, 0) << result.describe().toStdString();
        EXPECT_FALSE(result.err.contains("SQLite")) << result.err.toStdString();
    }
    EXPECT_EQ(databaseFetches(phone), 1);
    EXPECT_EQ(backupDifferences(dirs.filePath("0"), dirs.filePath("1")), QStringList());
    EXPECT_EQ(backupDifferences(dirs.filePath("0"), dirs.filePath("2")), QStringList());
}
