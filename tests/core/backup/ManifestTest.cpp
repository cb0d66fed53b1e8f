#include "backup/Manifest.h"
#include "TempDir.h"

#include <gtest/gtest.h>

namespace {

int rowCount(Manifest& manifest, const QString& table)
{
    int count = 0;
    manifest.db().query("SELECT count(*) FROM " + table, {}, [&](const SQLRow& row) { count = int(*row.integer(0)); });
    return count;
}

void insertFile(Manifest& manifest, const QString& asset, const QString& dest, const QString& component,
                const QString& relPath, const QString& sha, const QString& status)
{
    manifest.db().execute("INSERT OR IGNORE INTO files VALUES(?,?,?,?,?,?,?,?,?,?)",
                          {asset, dest, component, relPath, sha, int64_t(10), SQLValue::null(), "/DCIM/x", status,
                           "2024-05-01T09:30:00Z"});
}

} // namespace

// (A foreign or damaged file in its place: BackupFaults.DamagedOrForeignManifestIsReportedAndLeftAlone.)
TEST(Manifest, KeysAreWriteOnceAndSurviveReopening)
{
    TempDir root;
    EXPECT_FALSE(Manifest::exists(root.path()));
    writeFile(root.filePath(Manifest::fileName), ""); // an empty file becomes a manifest
    {
        Manifest manifest(root.path());
        EXPECT_TRUE(Manifest::exists(root.path()));
        EXPECT_EQ(manifest.fileCount(), 0);

        manifest.reserveStem("A", "Camera Roll", "IMG_0001");
        manifest.reserveStem("A", "Camera Roll", "IMG_0001 (2)"); // ignored: the first stem wins
        EXPECT_EQ(manifest.stem("A", "Camera Roll"), QString("IMG_0001"));
        EXPECT_FALSE(manifest.stem("A", "Hidden").has_value());
        EXPECT_EQ(manifest.stems("Camera Roll"), QSet<QString>{"img_0001"});

        manifest.recordAlbum("U1", "Albums/Trips", "Trips");
        manifest.recordAlbum("U1", "Albums/Elsewhere", "Renamed");
        EXPECT_EQ(manifest.albumPaths(), (QHash<QString, QString>{{"U1", "Albums/Trips"}}));

        insertFile(manifest, "A", "Camera Roll", "original", "Camera Roll/IMG_0001.HEIC", "aa", "copied");
        insertFile(manifest, "A", "Camera Roll", "original", "Camera Roll/OTHER.HEIC", "bb", "copied");
        insertFile(manifest, "B", "Albums/Trips", "original", "Camera Roll/IMG_0001.HEIC", "aa", "duplicate");
        insertFile(manifest, "C", "Albums/Trips", "original", "Albums/Trips/C.HEIC", "cc", "adopted");
        insertFile(manifest, "D", "Albums/Trips", "live-video", "Albums/Trips/D.MOV", "dd", "copied");
        EXPECT_EQ(manifest.fileCount(), 4);
        EXPECT_EQ(manifest.path("aa", "Camera Roll"), QString("Camera Roll/IMG_0001.HEIC"));
        // Duplicates are found per folder only.
        EXPECT_FALSE(manifest.path("cc", "Camera Roll").has_value());
        // Any status of the original counts as backed up; other components do not.
        EXPECT_EQ(manifest.backedUpAssets("Albums/Trips"), (QSet<QString>{"B", "C"}));
    }
    Manifest reopened(root.path());
    EXPECT_EQ(reopened.fileCount(), 4);
    EXPECT_EQ(reopened.stem("A", "Camera Roll"), QString("IMG_0001"));
    EXPECT_EQ(reopened.albumPaths().value("U1"), "Albums/Trips");
    EXPECT_EQ(rowCount(reopened, "meta"), 1);
    QString row;
    reopened.db().query("SELECT rel_path FROM files WHERE asset_uuid='A'", {},
                        [&](const SQLRow& r) { row = *r.text(0); });
    EXPECT_EQ(row, "Camera Roll/IMG_0001.HEIC");
}
