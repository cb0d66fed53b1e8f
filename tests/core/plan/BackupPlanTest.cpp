#include "plan/BackupPlan.h"
#include "QtPrinters.h"

#include <QLocale>

#include <gtest/gtest.h>

namespace {

LibraryAsset photo(int64_t pk, const QString& uuid, std::optional<double> date = 0.0)
{
    LibraryAsset asset;
    asset.pk = pk;
    asset.uuid = uuid;
    asset.directory = "DCIM/100APPLE";
    asset.filename = QString("IMG_%1.HEIC").arg(pk, 4, 10, QLatin1Char('0'));
    asset.dateCreated = date;
    return asset;
}

LibraryAlbum album(int64_t pk, const QString& title, std::optional<int64_t> parent = std::nullopt)
{
    return {pk, QString("album-%1").arg(pk), title, false, parent, false};
}

LibraryAlbum folder(int64_t pk, const QString& title, std::optional<int64_t> parent = std::nullopt)
{
    return {pk, QString("album-%1").arg(pk), title, true, parent, false};
}

QStringList titles(const QList<BackupNode>& nodes)
{
    QStringList result;
    for (const BackupNode& node : nodes)
        result << node.title;
    return result;
}

QStringList uuids(const QList<LibraryAsset>& assets)
{
    QStringList result;
    for (const LibraryAsset& asset : assets)
        result << asset.uuid;
    return result;
}

// Every asset UUID the tree places anywhere, leaf by leaf.
QStringList placed(const BackupPlan& plan)
{
    QStringList result;
    for (const BackupNode& leaf : plan.allLeaves())
        result << leaf.assetUUIDs;
    return result;
}

} // namespace

TEST(BackupPlan, EligibilityTestsRunInOrderAndLeaveSkippedAssetsOutOfEveryLeaf)
{
    PhotoLibrary library;
    const QString shared = "PhotoData/PhotoCloudSharingData/4F2A";
    const struct {
        const char* uuid;
        bool trashed = false, hidden = false;
        std::optional<int64_t> savedType = {}, scope = {};
        QString directory = "DCIM/100APPLE";
    } assets[] = {
        // Trashed wins over every later test.
        {"trashed-and-messages", true, false, 12},
        {"trashed-hidden", true, true},
        {"messages-other-scope", false, false, 12, 5},
        {"scope-3-in-shared-folder", false, false, {}, 3, shared},
        {"shared-folder-other-scope", false, false, {}, 7, shared},
        {"other-scope", false, false, {}, 1},
        // Eligible: scope 0 or absent, other saved types, hidden, cloud assets elsewhere.
        {"scope-0", false, false, 3, 0},
        {"no-scope"},
        {"hidden", false, true},
        {"cloud", false, false, {}, {}, "PhotoData/CPLAssets/group1"},
    };
    for (const auto& a : assets) {
        LibraryAsset asset = photo(library.assets.size() + 1, a.uuid);
        asset.isTrashed = a.trashed;
        asset.isHidden = a.hidden;
        asset.savedAssetType = a.savedType;
        asset.bundleScope = a.scope;
        asset.directory = a.directory;
        library.assets << asset;
    }
    library.albums << album(1, "Trip");
    library.membership[1] = {1, 3, 7};

    const BackupPlan plan(library);

    EXPECT_EQ(plan.skipped, (QHash<SkipReason, int>{{SkipReason::trashed, 2},
                                                    {SkipReason::sharedWithYou, 2},
                                                    {SkipReason::sharedAlbum, 1},
                                                    {SkipReason::otherLibrary, 1}}));
    QStringList eligible = plan.assetsByUUID.keys();
    eligible.sort();
    EXPECT_EQ(eligible, (QStringList{"cloud", "hidden", "no-scope", "scope-0"}));

    QStringList all = placed(plan);
    all.sort();
    EXPECT_EQ(all, eligible); // skipped members of the album are dropped too
    EXPECT_EQ(plan.albumTree.at(0).assetUUIDs, QStringList{"scope-0"});
    EXPECT_EQ(plan.hidden.assetUUIDs, QStringList{"hidden"});
}

TEST(BackupPlan, ClashingAlbumPathsAreNumberedWithoutRegardToCase)
{
    PhotoLibrary library;
    library.albums << album(1, "Trips") << album(2, "trips") << album(3, "TRIPS") << folder(4, "Family")
                   << album(5, "family") // an album named like a folder
                   << album(6, "X") << album(7, "X (2)") << album(8, "X") << album(9, "a/b:c") << album(10, " ... ")
                   << folder(11, "Holidays") << album(12, "Japan", 11) << album(13, "Japan", 11) << album(14, "Japan");
    const BackupPlan plan(library);

    // Folders have no album path of their own, but hold their names against albums.
    EXPECT_EQ(plan.node("album-4")->relativePath, "Albums/Family");
    EXPECT_EQ(plan.node("album-13")->relativePath, "Albums/Holidays/Japan (2)");
    EXPECT_EQ(plan.albumPaths, (QHash<QString, QString>{{"album-1", "Albums/Trips"},
                                                        {"album-2", "Albums/trips (2)"},
                                                        {"album-3", "Albums/TRIPS (3)"},
                                                        {"album-5", "Albums/family (2)"},
                                                        {"album-6", "Albums/X"},
                                                        {"album-7", "Albums/X (2)"},
                                                        {"album-8", "Albums/X (3)"},
                                                        {"album-9", "Albums/a-b-c"},
                                                        {"album-10", "Albums/Untitled"},
                                                        {"album-12", "Albums/Holidays/Japan"},
                                                        {"album-13", "Albums/Holidays/Japan (2)"},
                                                        {"album-14", "Albums/Japan"}}));
}

TEST(BackupPlan, PathsRecordedByAnEarlierBackupAreKeptAndReserved)
{
    PhotoLibrary library;
    library.albums << album(1, "Japan 2026 (renamed)") << album(2, "Paris") << album(3, "paris") << album(4, "Rome")
                   << folder(5, "Old");
    const QHash<QString, QString> existing{
        {"album-1", "Albums/Japan 2026"},  // title changed on the phone since
        {"album-4", "Albums/Weird:Name "}, // used as it stands, not sanitised
        {"album-99", "Albums/PARIS"},      // an album gone from the phone still holds its folder
    };
    const BackupPlan plan(library, existing);

    EXPECT_EQ(plan.node("album-1")->title, "Japan 2026 (renamed)");
    EXPECT_EQ(plan.albumPaths, (QHash<QString, QString>{{"album-1", "Albums/Japan 2026"},
                                                        {"album-2", "Albums/Paris (2)"},
                                                        {"album-3", "Albums/paris (3)"},
                                                        {"album-4", "Albums/Weird:Name "}}));
}

TEST(BackupPlan, ParentsThatAreMissingTrashedOrNotFoldersLeaveAlbumsAtTheTopLevel)
{
    PhotoLibrary library;
    library.assets << photo(1, "in-trashed-album") << photo(2, "in-orphan");
    LibraryAlbum trashedFolder = folder(1, "Gone");
    trashedFolder.isTrashed = true;
    LibraryAlbum trashedAlbum = album(2, "Deleted album");
    trashedAlbum.isTrashed = true;
    library.albums << trashedFolder << trashedAlbum << album(3, "Under trashed folder", 1) << album(4, "Orphan", 77)
                   << album(5, "Plain") << album(6, "Under an album", 5) << folder(7, "Empty folder")
                   << folder(8, "Outer") << folder(9, "Inner", 8) << album(10, "Deep", 9);
    library.membership[2] = {1};
    library.membership[4] = {2};
    const BackupPlan plan(library);

    EXPECT_EQ(titles(plan.albumTree),
              (QStringList{"Empty folder", "Orphan", "Outer", "Plain", "Under an album", "Under trashed folder"}));
    EXPECT_EQ(plan.albumPaths.value("album-3"), "Albums/Under trashed folder");
    EXPECT_EQ(plan.albumPaths.value("album-4"), "Albums/Orphan");
    EXPECT_EQ(plan.albumPaths.value("album-6"), "Albums/Under an album");
    EXPECT_FALSE(plan.node("album-1"));
    EXPECT_FALSE(plan.node("album-2"));
    EXPECT_FALSE(plan.albumPaths.contains("album-2"));
    // A trashed album's members are in no album any more: they belong to the camera roll.
    EXPECT_EQ(plan.cameraRoll.assetUUIDs, QStringList{"in-trashed-album"});

    const auto empty = plan.node("album-7");
    ASSERT_TRUE(empty);
    EXPECT_EQ(empty->kind, BackupNode::Kind::folder);
    ASSERT_TRUE(empty->children);
    EXPECT_TRUE(empty->children->isEmpty());
    EXPECT_TRUE(empty->leaves().isEmpty());

    const auto outer = plan.node("album-8");
    ASSERT_TRUE(outer && outer->children);
    ASSERT_EQ(outer->children->size(), 1);
    const BackupNode& inner = outer->children->at(0);
    EXPECT_EQ(inner.relativePath, "Albums/Outer/Inner");
    ASSERT_TRUE(inner.children);
    ASSERT_EQ(inner.children->size(), 1);
    EXPECT_EQ(inner.children->at(0).relativePath, "Albums/Outer/Inner/Deep");
    EXPECT_TRUE(inner.children->at(0).assetUUIDs.isEmpty()); // empty albums are kept
    EXPECT_FALSE(inner.children->at(0).children);
}

// Folders enclosing each other (a damaged library) neither hang the plan nor lose the photos of
// the albums inside them.
TEST(BackupPlan, FolderLoopsEndAndStayInTheTree)
{
    PhotoLibrary library;
    library.assets << photo(1, "in-loop") << photo(2, "in-top");
    library.albums << album(3, "C", 1) << folder(1, "A", 2) << folder(2, "B", 1) << folder(4, "Self", 4)
                   << album(5, "Top");
    library.membership[3] = {1};
    library.membership[5] = {2};
    const BackupPlan plan(library);

    // Each folder of the loop appears once among the enclosing folders.
    EXPECT_EQ(plan.albumPaths.value("album-3"), "Albums/B/A/C");
    // One folder of each loop stands at the top level, the rest of the loop below it.
    EXPECT_EQ(titles(plan.albumTree), (QStringList{"A", "Self", "Top"}));
    ASSERT_TRUE(plan.albumTree[0].children);
    EXPECT_EQ(titles(*plan.albumTree[0].children), (QStringList{"B", "C"}));
    EXPECT_EQ((*plan.albumTree[0].children)[0].children->size(), 0);
    EXPECT_EQ(placed(plan), (QStringList{"in-loop", "in-top"}));
}

TEST(BackupPlan, AlbumTreeIsSortedNumericallyIgnoringCaseWithAccentsBesideTheirLetters)
{
    const QLocale before;
    PhotoLibrary library;
    library.albums << album(1, "Zebra") << album(2, "Album 10") << album(3, "beach") << album(4, "Água")
                   << album(5, "album 9") << album(6, "Beach") << folder(7, "Éclairs") << album(8, "Trip 2", 7)
                   << album(9, "trip 12", 7) << album(10, "Trip 1", 7);
    const QStringList expectedTop{"Água", "album 9", "Album 10", "beach", "Beach", "Éclairs", "Zebra"};

    // Servers and CI run under the C locale; the order must not fall back to code points there.
    for (const QLocale& locale :
         {QLocale::c(), QLocale(QLocale::English, QLocale::UnitedKingdom), QLocale(QLocale::French, QLocale::France)}) {
        QLocale::setDefault(locale);
        const BackupPlan plan(library);
        EXPECT_EQ(titles(plan.albumTree), expectedTop) << locale.name().toStdString();
        ASSERT_TRUE(plan.node("album-7")->children);
        EXPECT_EQ(titles(*plan.node("album-7")->children), (QStringList{"Trip 1", "Trip 2", "trip 12"}));
    }
    QLocale::setDefault(before);
}

TEST(BackupPlan, AssetsLandInTheirAlbumsInPlanOrderAndHiddenOnesOnlyInHidden)
{
    PhotoLibrary library;
    library.assets << photo(1, "late", 5000) << photo(2, "early", 100) << photo(3, "undated", std::nullopt)
                   << photo(4, "b-tie", 300) << photo(5, "a-tie", 300) << photo(6, "loose", 200)
                   << photo(7, "hidden-in-album", 50) << photo(8, "hidden-loose", 10);
    library.assets[6].isHidden = true;
    library.assets[7].isHidden = true;
    library.albums << folder(1, "Trips") << album(2, "Rome", 1) << album(3, "Venice", 1) << album(4, "Nothing");
    library.membership[2] = {1, 2, 7, 4, 999}; // 999 is no asset of the library
    library.membership[3] = {5, 2, 3};         // "early" is in both albums
    library.membership[4] = {7};
    const BackupPlan plan(library);

    EXPECT_EQ(plan.node("album-2")->assetUUIDs, (QStringList{"early", "b-tie", "late"}));
    EXPECT_EQ(plan.node("album-3")->assetUUIDs, (QStringList{"undated", "early", "a-tie"}));
    EXPECT_TRUE(plan.node("album-4")->assetUUIDs.isEmpty());
    EXPECT_EQ(plan.cameraRoll.assetUUIDs, QStringList{"loose"});
    EXPECT_EQ(plan.hidden.assetUUIDs, (QStringList{"hidden-loose", "hidden-in-album"}));

    const BackupNode trips = *plan.node("album-1");
    EXPECT_EQ(trips.totalCount(), 6);
    EXPECT_EQ(uuids(plan.assets(trips)), (QStringList{"early", "b-tie", "late", "undated", "early", "a-tie"}));

    QStringList leafIDs;
    for (const BackupNode& leaf : plan.allLeaves())
        leafIDs << leaf.id;
    EXPECT_EQ(leafIDs, (QStringList{"camera-roll", "hidden", "album-4", "album-2", "album-3"}));
    EXPECT_EQ(titles(plan.topLevelNodes()), (QStringList{"Camera Roll", "Hidden", "Nothing", "Trips"}));

    BackupNode stale = plan.cameraRoll;
    stale.assetUUIDs << "no-such-asset";
    EXPECT_EQ(uuids(plan.assets(stale)), QStringList{"loose"});
}
