#include "checks/BackupVerifier.h"
#include "FolderSnapshot.h"
#include "TempDir.h"
#include "backup/Manifest.h"
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

// (Flipped, truncated and deleted files, and what verify shows: Verify, on a real backup.)
TEST(BackupVerifier, DuplicateRowsStandForTheFileTheyPointAt)
{
    TempDir root;
    {
        Manifest manifest(root.path());
        for (int i = 0; i < 3; ++i)
            backUpFile(manifest, root.path(), QString("A%1").arg(i), QString("Camera Roll/IMG_%1.HEIC").arg(i),
                       QByteArray(1000 + i, char('a' + i)));
        // Same content in another folder, recorded as pointing at the first file.
        backUpFile(manifest, root.path(), "A9", "Camera Roll/IMG_0.HEIC", QByteArray(1000, 'a'), "duplicate");
        backUpFile(manifest, root.path(), "E", "Albums/Empty file.txt", QByteArray());
    }
    int lastDone = 0, lastTotal = 0;
    const VerificationReport clean = BackupVerifier::run(root.path(), [&](int done, int total) {
        lastDone = done;
        lastTotal = total;
    });
    EXPECT_TRUE(clean.isClean());
    EXPECT_EQ(clean.files, 5);
    EXPECT_EQ(clean.intact, 5);
    EXPECT_EQ(clean.bytes, uint64_t(3000 + 3));
    EXPECT_EQ(lastDone, 5);
    EXPECT_EQ(lastTotal, 5);

    // The file goes: both its rows are missing.
    QFile::remove(root.filePath("Camera Roll/IMG_0.HEIC"));
    EXPECT_EQ(BackupVerifier::run(root.path()).missing.size(), 2);
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

    // A folder without a manifest is no backup: an error, and no manifest is made.
    EXPECT_THROW(BackupVerifier::run(outer.path()), std::runtime_error);
    EXPECT_FALSE(QFile::exists(outer.filePath(Manifest::fileName)));
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
