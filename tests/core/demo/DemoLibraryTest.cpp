#include "demo/DemoLibrary.h"
#include "QtPrinters.h"
#include "plan/BackupPlan.h"

#include <gtest/gtest.h>

// The demo library shows the app without a phone: everything is backed up but the 16 newest items
// of one album, so that there is something to offer; sixteen more albums only when
// OMB_DEMO_MANY_ALBUMS is exactly "1".
TEST(DemoLibrary, OneAlbumWithNewItemsAndManyAlbumsOnlyWhenAskedFor)
{
    qunsetenv("OMB_DEMO_MANY_ALBUMS");
    const BackupPlan plan(DemoLibrary::make());
    EXPECT_TRUE(plan.skipped.isEmpty());
    EXPECT_FALSE(plan.hidden.assetUUIDs.isEmpty());
    const auto japan = plan.node("DEMO-ALBUM-JAPAN-2026");
    ASSERT_TRUE(japan);
    EXPECT_EQ(japan->relativePath, "Albums/Holidays/Japan 2026");
    const QHash<QString, QSet<QString>> backedUp = DemoLibrary::backedUp(plan);
    for (const BackupNode& leaf : plan.allLeaves()) {
        const qsizetype waiting = leaf.id == japan->id ? 16 : 0;
        for (qsizetype i = 0; i < leaf.assetUUIDs.size(); ++i)
            EXPECT_EQ(backedUp.value(leaf.relativePath).contains(leaf.assetUUIDs[i]),
                      i < leaf.assetUUIDs.size() - waiting)
                << leaf.relativePath.toStdString() << " " << i;
    }

    for (const auto& [value, extra] : {std::pair{"true", 0}, {"1", 16}}) {
        qputenv("OMB_DEMO_MANY_ALBUMS", value);
        EXPECT_EQ(BackupPlan(DemoLibrary::make()).albumTree.size(), plan.albumTree.size() + extra) << value;
    }
    qunsetenv("OMB_DEMO_MANY_ALBUMS");
}
