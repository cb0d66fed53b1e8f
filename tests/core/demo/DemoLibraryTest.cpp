#include "QtPrinters.h"
#include "demo/DemoLibrary.h"
#include "plan/BackupPlan.h"

#include <QDateTime>

#include <gtest/gtest.h>

namespace {

// Sets or clears the many-albums switch for one scope.
class ManyAlbums {
public:
    explicit ManyAlbums(const char* value)
    {
        if (value)
            qputenv("OMB_DEMO_MANY_ALBUMS", value);
        else
            qunsetenv("OMB_DEMO_MANY_ALBUMS");
    }
    ~ManyAlbums() { qunsetenv("OMB_DEMO_MANY_ALBUMS"); }
};

QString isoDate(const LibraryAsset& asset) { return asset.captureDate()->toString(Qt::ISODate); }

} // namespace

TEST(DemoLibrary, AssetsFollowTheGroupRules)
{
    ManyAlbums off(nullptr);
    const PhotoLibrary library = DemoLibrary::make();
    ASSERT_EQ(library.assets.size(), 3170);

    const LibraryAsset& first = library.assets.first();
    EXPECT_EQ(first.pk, 101);
    EXPECT_EQ(first.uuid, "DEMO-ASSET-101");
    EXPECT_EQ(first.sourcePath(), "/DCIM/100APPLE/IMG_1001.HEIC");
    EXPECT_FALSE(first.originalFilename);
    EXPECT_EQ(isoDate(first), "2024-01-02T00:00:00Z");
    EXPECT_EQ(first.savedAssetType, 3);
    EXPECT_FALSE(first.isTrashed);
    EXPECT_TRUE(first.isLivePhoto());

    // Group 3 (Japan) starts at index 2184 + 38: the rules follow the index within the group.
    const qsizetype japan = 2184 + 38;
    const LibraryAsset& fifth = library.assets[japan + 4];
    const LibraryAsset& tenth = library.assets[japan + 9];
    EXPECT_EQ(library.assets[japan].pk, 101 + japan);
    EXPECT_EQ(isoDate(library.assets[japan]), "2026-04-03T00:00:00Z");
    EXPECT_EQ(isoDate(library.assets[japan + 1]), "2026-04-03T03:00:00Z");
    EXPECT_TRUE(fifth.isVideo);
    EXPECT_EQ(fifth.filename, QString("IMG_%1.MOV").arg(1001 + japan + 4));
    EXPECT_FALSE(fifth.isLivePhoto());
    EXPECT_TRUE(tenth.isLivePhoto());
    EXPECT_FALSE(tenth.isVideo);
    EXPECT_TRUE(tenth.hasAdjustments); // (9 - 2) mod 7 = 0
    EXPECT_TRUE(library.assets[japan + 2].hasAdjustments);
    EXPECT_FALSE(library.assets[japan + 3].hasAdjustments);
    EXPECT_TRUE(library.assets[japan + 58].isVideo); // 58 mod 9 = 4
    EXPECT_FALSE(library.assets[japan + 58].hasAdjustments); // though (58 - 2) mod 7 = 0: videos never do
    EXPECT_EQ(library.assets.last().filename, "IMG_4170.HEIC");

    int hidden = 0;
    for (const LibraryAsset& asset : library.assets)
        hidden += asset.isHidden ? 1 : 0;
    EXPECT_EQ(hidden, 38);
    EXPECT_EQ(library.membership.value(2).size(), 312);
    EXPECT_EQ(library.membership.value(2).first(), 101 + japan);
}

TEST(DemoLibrary, PlanShowsTheAlbumsAndOneAlbumWithNewItems)
{
    ManyAlbums off(nullptr);
    const BackupPlan plan(DemoLibrary::make());

    EXPECT_EQ(plan.cameraRoll.assetUUIDs.size(), 2184);
    EXPECT_EQ(plan.hidden.assetUUIDs.size(), 38);
    EXPECT_TRUE(plan.skipped.isEmpty());
    QStringList titles;
    for (const BackupNode& node : plan.albumTree)
        titles << node.title;
    EXPECT_EQ(titles, (QStringList{"Family", "Holidays", "Pets"}));
    const auto japan = plan.node("DEMO-ALBUM-JAPAN-2026");
    ASSERT_TRUE(japan);
    EXPECT_EQ(japan->relativePath, "Albums/Holidays/Japan 2026");
    EXPECT_EQ(japan->assetUUIDs.size(), 312);
    EXPECT_EQ(plan.node("DEMO-FOLDER-HOLIDAYS")->totalCount(), 312 + 148);

    const QHash<QString, QSet<QString>> backedUp = DemoLibrary::backedUp(plan);
    EXPECT_EQ(backedUp.size(), 6);
    for (const BackupNode& leaf : plan.allLeaves()) {
        const QSet<QString> done = backedUp.value(leaf.relativePath);
        if (leaf.id != "DEMO-ALBUM-JAPAN-2026") {
            EXPECT_EQ(done.size(), leaf.assetUUIDs.size()) << leaf.relativePath.toStdString();
            continue;
        }
        // The 16 newest items of the album are the ones still to back up.
        EXPECT_EQ(done.size(), 312 - 16);
        for (qsizetype i = 0; i < leaf.assetUUIDs.size(); ++i)
            EXPECT_EQ(done.contains(leaf.assetUUIDs[i]), i < 312 - 16) << i;
    }
}

TEST(DemoLibrary, ManyAlbumsOnlyWhenTheSwitchIsExactlyOne)
{
    {
        ManyAlbums on("true");
        EXPECT_EQ(DemoLibrary::make().assets.size(), 3170);
        EXPECT_EQ(DemoLibrary::make().albums.size(), 5);
    }
    ManyAlbums on("1");
    const PhotoLibrary library = DemoLibrary::make();
    ASSERT_EQ(library.assets.size(), 3362);
    ASSERT_EQ(library.albums.size(), 21);
    EXPECT_EQ(library.albums[5].pk, 10);
    EXPECT_EQ(library.albums[5].title, "Birthdays");
    EXPECT_TRUE(library.albums[5].uuid.startsWith("DEMO-ALBUM-EXTRA-"));
    EXPECT_EQ(library.albums.last().pk, 25);
    EXPECT_EQ(library.albums.last().title, "Wedding");
    EXPECT_FALSE(library.albums.last().parentPK);

    const LibraryAsset& firstExtra = library.assets[3170];
    EXPECT_EQ(firstExtra.pk, 101 + 3170);
    EXPECT_EQ(firstExtra.filename, "IMG_4171.HEIC");
    EXPECT_EQ(isoDate(firstExtra), "2025-01-03T00:00:00Z");
    // Album k = 12 (Road Trip) starts again in January; its fifth item is a video.
    const LibraryAsset& roadTrip = library.assets[3170 + 12 * 12];
    EXPECT_EQ(isoDate(roadTrip), "2025-01-03T00:00:00Z");
    EXPECT_TRUE(library.assets[3170 + 12 * 12 + 4].isVideo);
    EXPECT_EQ(library.membership.value(22).size(), 12);
    EXPECT_EQ(library.membership.value(22).first(), roadTrip.pk);

    const BackupPlan plan(library);
    EXPECT_EQ(plan.albumTree.size(), 3 + 16);
    EXPECT_EQ(plan.cameraRoll.assetUUIDs.size(), 2184);
}
