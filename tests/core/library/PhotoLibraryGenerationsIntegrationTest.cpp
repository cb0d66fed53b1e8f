#include "PhoneBackup.h"
#include "PhotosDatabases.h"
#include "library/PhotoLibrary.h"

#include <QFileInfo>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

class GenerationTest : public testing::TestWithParam<const char*> {};

TEST_P(GenerationTest, ReadsWhatThePhoneHolds)
{
    TempDir dir;
    const ProgramResult made =
        makePhone(dir.filePath("phone"), {"--generation", GetParam(), "--assets", "60", "--files", "none",
                                          "--answer-key", dir.filePath("key.json")});
    ASSERT_EQ(made.exitCode, 0) << made;
    const PhoneAnswerKey key = PhoneAnswerKey::read(dir.filePath("key.json"));
    const QString device = dir.filePath("phone/media/PhotoData");
    ASSERT_GT(QFileInfo(device + "/Photos.sqlite-wal").size(), 0) << "the phone keeps recent changes in its log";
    const PhotoLibrary library = PhotoLibrary::load(copyPhotosDatabase(device, dir.filePath("copy")));

    QHash<int64_t, LibraryAsset> assets;
    for (const LibraryAsset& asset : library.assets)
        assets.insert(asset.pk, asset);
    EXPECT_EQ(assets.size(), key.assets.size());
    QHash<QString, QList<int64_t>> membersByAlbumUUID;
    for (const PhoneAnswerKey::Asset& expected : key.assets) {
        for (const QString& album : expected.albums)
            membersByAlbumUUID[album] << expected.pk;
        ASSERT_TRUE(assets.contains(expected.pk)) << expected.pk;
        const LibraryAsset& asset = assets[expected.pk];
        SCOPED_TRACE(asset.uuid.toStdString());
        EXPECT_EQ(asset.uuid, expected.uuid);
        EXPECT_EQ(asset.sourcePath(), "/" + expected.directory + "/" + expected.filename);
        EXPECT_EQ(asset.originalFilename.value_or(""), expected.originalFilename.value_or("")); // empty: none
        EXPECT_EQ(asset.dateCreated, expected.dateCreated);
        EXPECT_EQ(asset.isVideo, expected.isVideo);
        EXPECT_EQ(asset.isLivePhoto(), expected.isLivePhoto);
        EXPECT_EQ(asset.isHidden, expected.isHidden);
        EXPECT_EQ(asset.isTrashed, expected.isTrashed);
        EXPECT_EQ(asset.hasAdjustments, expected.hasAdjustments);
        EXPECT_EQ(asset.savedAssetType, expected.savedAssetType);
        EXPECT_EQ(asset.bundleScope, expected.bundleScope);
    }

    // Regular albums and folders only, with their nesting; membership as the phone has it.
    QList<LibraryAlbum> expectedAlbums;
    QHash<int64_t, QList<int64_t>> expectedMembership;
    for (const PhoneAnswerKey::Album& album : key.albums) {
        if (album.kind != 2 && album.kind != 4000)
            continue;
        const PhoneAnswerKey::Album* parent = key.album(album.parentUUID);
        expectedAlbums.append({album.pk, album.uuid, album.title.value_or("Untitled"), album.kind == 4000,
                               parent ? std::optional(parent->pk) : std::nullopt, album.isTrashed});
        if (membersByAlbumUUID.contains(album.uuid))
            expectedMembership.insert(album.pk, membersByAlbumUUID[album.uuid]);
    }
    std::sort(expectedAlbums.begin(), expectedAlbums.end(),
              [](const LibraryAlbum& a, const LibraryAlbum& b) { return a.pk < b.pk; });
    EXPECT_EQ(library.albums, expectedAlbums);
    QHash<int64_t, QList<int64_t>> membership = library.membership;
    for (auto& members : membership)
        std::sort(members.begin(), members.end());
    EXPECT_EQ(membership, expectedMembership);

    // Without its log the same database misses the latest changes.
    const PhotoLibrary stale = PhotoLibrary::load(copyPhotosDatabase(device, dir.filePath("stale"), {"Photos.sqlite"}));
    EXPECT_LT(stale.assets.size(), library.assets.size());
    EXPECT_LT(stale.albums.size(), library.albums.size());
}

INSTANTIATE_TEST_SUITE_P(PhotoLibrary, GenerationTest,
                         testing::Values("ios12", "ios13", "ios14", "ios15", "ios16", "ios17", "ios18", "ios26"),
                         [](const testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

} // namespace
