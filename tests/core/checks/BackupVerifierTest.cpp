#include "FolderSnapshot.h"
#include "TempDir.h"
#include "backup/Manifest.h"
#include "checks/BackupVerifier.h"
#include "device/StreamingHasher.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

namespace {

// Writes a file into the backup and records it the way a run does.
void backUpFile(Manifest& manifest, const QString& root, const QString& asset, const QString& relPath,
                const QByteArray& content, const QString& status = "copied")
{
    if (status != "duplicate")
        writeFile(root + "/" + relPath, content);
    StreamingHasher hasher;
    hasher.update(content.constData(), size_t(content.size()));
    const DownloadResult hash = hasher.finish();
    manifest.db().execute("INSERT OR IGNORE INTO files VALUES(?,?,?,?,?,?,?,?,?,?)",
                          {asset, relPath.section('/', 0, -2), "original", relPath, hash.sha256, int64_t(hash.size),
                           SQLValue::null(), "/DCIM/100APPLE/x", status, "2026-01-01T00:00:00Z"});
}

} // namespace

TEST(BackupVerifier, FindsFlippedTruncatedAndDeletedFilesAndOnlyThose)
{
    TempDir root;
    {
        Manifest manifest(root.path());
        for (int i = 0; i < 6; ++i)
            backUpFile(manifest, root.path(), QString("A%1").arg(i), QString("Camera Roll/IMG_%1.HEIC").arg(i),
                       QByteArray(1000 + i, char('a' + i)));
        // Same content in another folder, recorded as pointing at the first file.
        backUpFile(manifest, root.path(), "A9", "Camera Roll/IMG_0.HEIC", QByteArray(1000, 'a'), "duplicate");
        backUpFile(manifest, root.path(), "E", "Albums/Empty file.txt", QByteArray());
    }
    VerificationReport clean = BackupVerifier::run(root.path());
    EXPECT_TRUE(clean.isClean());
    EXPECT_EQ(clean.files, 8);
    EXPECT_EQ(clean.intact, 8);
    EXPECT_EQ(clean.bytes, uint64_t(6000 + 15));

    // A flipped byte, a truncated file and a deleted one.
    QFile flip(root.filePath("Camera Roll/IMG_1.HEIC"));
    ASSERT_TRUE(flip.open(QIODevice::ReadWrite));
    flip.seek(500);
    flip.write("B");
    flip.close();
    QFile::resize(root.filePath("Camera Roll/IMG_2.HEIC"), 10);
    QFile::remove(root.filePath("Camera Roll/IMG_3.HEIC"));

    const FolderSnapshot before = FolderSnapshot::take(root.path());
    int lastDone = 0, lastTotal = 0;
    const VerificationReport report = BackupVerifier::run(root.path(), [&](int done, int total) {
        lastDone = done;
        lastTotal = total;
    });
    EXPECT_EQ(FolderSnapshot::take(root.path()), before) << "verifying must not write anything";
    EXPECT_EQ(lastDone, 8);
    EXPECT_EQ(lastTotal, 8);

    EXPECT_EQ(report.intact, 5);
    EXPECT_EQ(report.missing, QStringList{"Camera Roll/IMG_3.HEIC"});
    EXPECT_EQ(report.changed, (QStringList{"Camera Roll/IMG_1.HEIC: content differs from the recorded SHA-256",
                                           "Camera Roll/IMG_2.HEIC: size 10 bytes, recorded 1002"}));
    EXPECT_EQ(report.lines().first().left(18), "Verified 8 files (");
    EXPECT_TRUE(report.lines().first().endsWith("): 5 intact, 1 missing, 2 changed"));

    // A duplicate row whose file went away is missing as well.
    QFile::remove(root.filePath("Camera Roll/IMG_0.HEIC"));
    const VerificationReport again = BackupVerifier::run(root.path());
    EXPECT_EQ(again.missing.size(), 3);
}

TEST(BackupVerifier, NeverFollowsAPathOutOfTheFolder)
{
    TempDir outer;
    const QString root = outer.filePath("backup");
    writeFile(outer.filePath("secret.txt"), "outside");
    QDir().mkpath(root);
    {
        Manifest manifest(root);
        backUpFile(manifest, root, "X", "../secret.txt", "outside", "duplicate");
    }
    const VerificationReport report = BackupVerifier::run(root);
    EXPECT_EQ(report.intact, 0);
    ASSERT_EQ(report.changed.size(), 1);
    EXPECT_TRUE(report.changed.first().startsWith("../secret.txt: the recorded path leaves the backup folder"));
}

TEST(BackupVerifier, AFolderWithoutAManifestIsAnError)
{
    TempDir root;
    EXPECT_THROW(BackupVerifier::run(root.path()), std::runtime_error);
    EXPECT_FALSE(QFile::exists(root.filePath(Manifest::fileName)));
}

// A run killed while it recorded a file leaves the manifest's rollback journal behind. Verifying
// then reads the manifest as it was before that change, and still writes nothing in the folder.
TEST(BackupVerifier, ReadsAManifestLeftInTheMiddleOfAChange)
{
    TempDir root;
    {
        Manifest manifest(root.path());
        for (int i = 0; i < 3; ++i)
            backUpFile(manifest, root.path(), QString("A%1").arg(i), QString("Camera Roll/IMG_%1.HEIC").arg(i),
                       QByteArray(100 + i, 'x'));
    }
    // A process that dies in the middle of a change, with part of it already in the file.
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        Manifest manifest(root.path());
        manifest.db().execute("PRAGMA cache_size=1");
        manifest.db().execute("BEGIN");
        manifest.db().execute("DELETE FROM files");
        manifest.db().execute("INSERT INTO meta VALUES('filler', zeroblob(100000))");
        _exit(0);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_GT(QFileInfo(root.filePath(Manifest::fileName + "-journal")).size(), 0);

    const FolderSnapshot before = FolderSnapshot::take(root.path());
    const VerificationReport report = BackupVerifier::run(root.path());
    EXPECT_TRUE(report.isClean()) << report.lines().join("\n").toStdString();
    EXPECT_EQ(report.files, 3);
    EXPECT_EQ(FolderSnapshot::take(root.path()), before) << "the journal is rolled back in a copy, not in the folder";
}
