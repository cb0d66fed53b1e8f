#include "EngineFixture.h"

#include "backup/BackupError.h"
#include "backup/DestinationFolder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>

using ::testing::IsEmpty;

TEST(BackupEngineSafety, FolderAndFileNameRules)
{
    for (const QString path : {"Camera Roll", "Hidden", "Albums/Trips (2)", "Albums/..-up", "Albums/.x", "Albums/a..b"})
        EXPECT_TRUE(DestinationFolder::isSafeRelativePath(path)) << path.toStdString();
    for (const QString path : {"", "/etc", "..", "../x", "Albums/../..", "Albums/./x", "Albums//x", "Albums/",
                               ".ombrelo-tmp", ".OMBRELO-TMP/x", ".ombrelo-manifest.sqlite-journal"})
        EXPECT_FALSE(DestinationFolder::isSafeRelativePath(path)) << path.toStdString();
    for (const QString name : {"IMG_0001 (2).HEIC", "..x", ".hidden", "a:b"})
        EXPECT_TRUE(DestinationFolder::isSafeFileName(name)) << name.toStdString();
    for (const QString name : {"", ".", "..", "a/b", "../x.JPG"})
        EXPECT_FALSE(DestinationFolder::isSafeFileName(name)) << name.toStdString();
}

TEST(BackupEngineSafety, RunDoesNotStartWithoutItsTemporaryFolder)
{
    TestPhone phone;
    phone.addAsset("P", "IMG_0001.JPG", "p");
    const BackupPlan plan(phone.library, {});
    TempDir dir;
    Manifest manifest(dir.path());
    const QString gone = dir.path() + "/unplugged drive";
    BackupEngine engine(phone.source, plan, gone, manifest);
    int events = 0;
    try {
        engine.run(
            options({"camera-roll"}), [] { return false; }, [&](const BackupEvent&) { ++events; });
        FAIL() << "a run without its temporary folder must not start";
    } catch (const BackupError& error) {
        EXPECT_EQ(error.kind(), BackupError::Kind::temporaryFolder);
        EXPECT_EQ(error.description(), "The temporary folder “" + gone +
                                           "/.ombrelo-tmp” could not be created (No such file or directory), so "
                                           "the backup did not start.");
    }
    EXPECT_EQ(events, 0);
    EXPECT_EQ(phone.source.downloads, 0);
    EXPECT_FALSE(QFileInfo::exists(gone)); // a missing backup folder is never created
}

TEST(BackupEngineSafety, PlacingAFileNeverReplacesAnother)
{
    TempDir dir;
    writeFile(dir.filePath("new"), "new");
    writeFile(dir.filePath("existing"), "existing");
    EXPECT_EQ(DestinationFolder::placeExclusively(dir.filePath("new"), dir.filePath("existing")),
              DestinationFolder::Placement::taken);
    EXPECT_EQ(readFile(dir.filePath("existing")), "existing");
    ASSERT_TRUE(QFile::link(dir.filePath("nowhere"), dir.filePath("dangling")));
    EXPECT_EQ(DestinationFolder::placeExclusively(dir.filePath("new"), dir.filePath("dangling")),
              DestinationFolder::Placement::taken);
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("nowhere")));
    EXPECT_EQ(DestinationFolder::placeExclusively(dir.filePath("new"), dir.filePath("free")),
              DestinationFolder::Placement::placed);
    EXPECT_EQ(readFile(dir.filePath("free")), "new");
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("new")));

    writeFile(dir.filePath("Albums"), "a file where a folder should be");
    try {
        DestinationFolder(dir.path()).makeFolder("Albums/Trips");
        FAIL() << "a file in the way must stop the folder";
    } catch (const BackupError& error) {
        EXPECT_EQ(error.description(), "The folder “" + dir.filePath("Albums") +
                                           "” could not be created (a file of that name is in the way).");
    }
    EXPECT_EQ(readFile(dir.filePath("Albums")), "a file where a folder should be");
}

TEST(BackupEngineSafety, ANameTheFileSystemRefusesFailsThatFileAlone)
{
    TestPhone phone;
    // A name cut to 120 characters and an extension of 140: more than the 255 bytes a name may have.
    const QString longExt = QString(140, 'X');
    phone.addAsset("long", "IMG_0001." + longExt, "long").originalFilename = QString(190, 'n') + ".JPG";
    phone.addAsset("fine", "IMG_0002.JPG", "fine");
    const BackupPlan plan(phone.library, {});
    TempDir dir;
    Manifest manifest(dir.path());

    const RunResult run = runEngine(phone.source, plan, dir.path(), manifest, options({"camera-roll"}));

    ASSERT_EQ(run.summary.errors.size(), 1);
    EXPECT_EQ(run.summary.errors[0], QString(190, 'n') + ".JPG: The file “" + dir.filePath("Camera Roll/") +
                                         QString(120, 'n') + "." + longExt + "” could not be written (" +
                                         QString::fromLocal8Bit(std::strerror(ENAMETOOLONG)) + ").");
    EXPECT_EQ(readFile(dir.filePath("Camera Roll/IMG_0002.JPG")), "fine");
    EXPECT_EQ(fileRows(manifest).size(), 1);
    EXPECT_THAT(inconsistencies(dir.path()), IsEmpty());
}
