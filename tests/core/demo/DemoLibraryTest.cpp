#include "demo/DemoLibrary.h"
#include "QtPrinters.h"
#include "plan/BackupPlan.h"

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

} // namespace

TEST(DemoLibrary, PlanShowsTheAlbumsAndOneAlbumWithNewItems)
{
    ManyAlbums off(nullptr);
    const PhotoLibrary library = DemoLibrary::make();
    ASSERT_EQ(library.assets.size(), 3170);
    const BackupPlan plan(library);

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
    // The extra albums hold 12 items each.
    EXPECT_EQ(library.membership.value(22).size(), 12);

    const BackupPlan plan(library);
    EXPECT_EQ(plan.albumTree.size(), 3 + 16);
    EXPECT_EQ(plan.cameraRoll.assetUUIDs.size(), 2184);
}
