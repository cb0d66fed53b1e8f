#include "QtPrinters.h"
#include "RunProgram.h"
#include "TempDir.h"
#include "library/PhotoLibrary.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSet>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

class GenerationTest : public testing::TestWithParam<const char*> {};

// Writes a phone of the generation and returns the folder holding its database files.
QString makePhone(const TempDir& dir, const QString& generation, QJsonObject& answerKey)
{
    const QString phone = dir.filePath("phone");
    const ProgramResult made = runProgram(OMBRELO_BIN_DIR "/ombrelo-mkdevice",
                                          {phone, "--generation", generation, "--assets", "60", "--files", "none",
                                           "--answer-key", dir.filePath("key.json")});
    if (made.exitCode != 0)
        throw std::runtime_error(made.describe().toStdString());
    answerKey = QJsonDocument::fromJson(readFile(dir.filePath("key.json"))).object();
    return phone + "/media/PhotoData";
}

// Copies the database files whose names are given, as a fetch would.
QString copy(const QString& from, const QString& to, const QStringList& names)
{
    QDir().mkpath(to);
    for (const QString& name : names) {
        QFile::copy(from + "/" + name, to + "/" + name);
        QFile::setPermissions(to + "/" + name, QFile::ReadOwner | QFile::WriteOwner);
    }
    return to + "/Photos.sqlite";
}

std::optional<int64_t> optionalInteger(const QJsonValue& value)
{
    return value.isNull() ? std::nullopt : std::optional<int64_t>(value.toInteger());
}

TEST_P(GenerationTest, ReadsWhatThePhoneHolds)
{
    TempDir dir;
    QJsonObject key;
    const QString device = makePhone(dir, GetParam(), key);
    const QStringList files{"Photos.sqlite", "Photos.sqlite-wal", "Photos.sqlite-shm"};
    ASSERT_GT(QFileInfo(device + "/Photos.sqlite-wal").size(), 0) << "the phone keeps recent changes in its log";
    const PhotoLibrary library = PhotoLibrary::load(copy(device, dir.filePath("copy"), files));

    QHash<int64_t, LibraryAsset> assets;
    for (const LibraryAsset& asset : library.assets)
        assets.insert(asset.pk, asset);
    const QJsonArray keyAssets = key["assets"].toArray();
    EXPECT_EQ(assets.size(), keyAssets.size());
    QHash<QString, QList<int64_t>> membersByAlbumUUID;
    for (const QJsonValue& value : keyAssets) {
        const QJsonObject expected = value.toObject();
        const int64_t pk = expected["pk"].toInteger();
        for (const QJsonValue& album : expected["albums"].toArray())
            membersByAlbumUUID[album.toString()] << pk;
        ASSERT_TRUE(assets.contains(pk)) << pk;
        const LibraryAsset& asset = assets[pk];
        SCOPED_TRACE(asset.uuid.toStdString());
        EXPECT_EQ(asset.uuid, expected["uuid"].toString());
        EXPECT_EQ(asset.sourcePath(), "/" + expected["directory"].toString() + "/" + expected["filename"].toString());
        const QString original = expected["originalFilename"].toString();
        EXPECT_EQ(asset.originalFilename, original.isEmpty() ? std::nullopt : std::optional(original));
        EXPECT_EQ(asset.dateCreated,
                  expected["dateCreated"].isNull() ? std::nullopt : std::optional(expected["dateCreated"].toDouble()));
        EXPECT_EQ(asset.isVideo, expected["isVideo"].toBool());
        EXPECT_EQ(asset.isLivePhoto(), expected["isLivePhoto"].toBool());
        EXPECT_EQ(asset.isHidden, expected["isHidden"].toBool());
        EXPECT_EQ(asset.isTrashed, expected["isTrashed"].toBool());
        EXPECT_EQ(asset.hasAdjustments, expected["hasAdjustments"].toBool());
        EXPECT_EQ(asset.savedAssetType, optionalInteger(expected["savedAssetType"]));
        EXPECT_EQ(asset.bundleScope, optionalInteger(expected["bundleScope"]));
    }

    // Regular albums and folders only, with their nesting; membership as the phone has it.
    QHash<QString, int64_t> albumPK;
    for (const QJsonValue& value : key["albums"].toArray())
        albumPK.insert(value["uuid"].toString(), value["pk"].toInteger());
    QList<LibraryAlbum> expectedAlbums;
    QHash<int64_t, QList<int64_t>> expectedMembership;
    for (const QJsonValue& value : key["albums"].toArray()) {
        const int64_t kind = value["kind"].toInteger();
        if (kind != 2 && kind != 4000)
            continue;
        const QString uuid = value["uuid"].toString();
        const QString parent = value["parentUUID"].toString();
        expectedAlbums.append({value["pk"].toInteger(), uuid,
                               value["title"].isNull() ? QString("Untitled") : value["title"].toString(), kind == 4000,
                               parent.isEmpty() ? std::nullopt : std::optional(albumPK.value(parent)),
                               value["isTrashed"].toBool()});
        if (membersByAlbumUUID.contains(uuid))
            expectedMembership.insert(value["pk"].toInteger(), membersByAlbumUUID[uuid]);
    }
    std::sort(expectedAlbums.begin(), expectedAlbums.end(),
              [](const LibraryAlbum& a, const LibraryAlbum& b) { return a.pk < b.pk; });
    EXPECT_EQ(library.albums, expectedAlbums);
    QHash<int64_t, QList<int64_t>> membership = library.membership;
    for (auto& members : membership)
        std::sort(members.begin(), members.end());
    EXPECT_EQ(membership, expectedMembership);

    // Without its log the same database misses the latest changes.
    const PhotoLibrary stale = PhotoLibrary::load(copy(device, dir.filePath("stale"), {"Photos.sqlite"}));
    EXPECT_LT(stale.assets.size(), library.assets.size());
    EXPECT_LT(stale.albums.size(), library.albums.size());
}

INSTANTIATE_TEST_SUITE_P(PhotoLibrary, GenerationTest,
                         testing::Values("ios12", "ios13", "ios14", "ios15", "ios16", "ios17", "ios18", "ios26"),
                         [](const testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

} // namespace
