#include "library/PhotoLibrary.h"
#include "PhotosDatabases.h"
#include "TempDir.h"
#include "library/PhotoLibraryError.h"

#include <gtest/gtest.h>

#include <QSet>

#include <algorithm>

namespace {

const QString kUnsupported = "The Photos database has a layout this app doesn't recognise: ";

// What the corpus README records for each database (counted with the log applied).
struct CorpusCounts {
    const char* name;
    int assets, trashed, hidden, videos, livePhotos, edited;
    int albums, folders, memberships; // albums: kind 2; memberships: rows whose album is kind 2
    const char* entities;
    const char* joinTable;
};

const CorpusCounts kCorpus[] = {
    {"osxphotos-10.15.7", 29, 2, 1, 2, 0, 6, 15, 5, 31, "Asset=35, Album=26, Folder=32",
     "Z_26ASSETS (Z_26ALBUMS, Z_34ASSETS)"},
    {"osxphotos-shared-10.15.1", 3, 0, 0, 0, 0, 0, 1, 0, 1, "Asset=35, Album=26, Folder=32",
     "Z_26ASSETS (Z_26ALBUMS, Z_34ASSETS)"},
    {"osxphotos-10.16.0.1", 16, 2, 1, 0, 0, 4, 10, 5, 14, "Asset=3, Album=26, Folder=32",
     "Z_26ASSETS (Z_26ALBUMS, Z_3ASSETS)"},
    {"osxphotos-cloud-10.16.0", 29, 0, 0, 8, 1, 2, 1, 0, 1, "Asset=3, Album=26, Folder=32",
     "Z_26ASSETS (Z_26ALBUMS, Z_3ASSETS)"},
    {"osxphotos-12.0.1", 16, 2, 1, 0, 0, 4, 10, 5, 14, "Asset=3, Album=27, Folder=34",
     "Z_27ASSETS (Z_27ALBUMS, Z_3ASSETS)"},
    {"osxphotos-13.0.0", 16, 2, 1, 0, 0, 4, 9, 5, 14, "Asset=3, Album=28, Folder=36",
     "Z_28ASSETS (Z_28ALBUMS, Z_3ASSETS)"},
    {"osxphotos-empty-13.5", 0, 0, 0, 0, 0, 0, 0, 0, 0, "Asset=3, Album=28, Folder=36",
     "Z_28ASSETS (Z_28ALBUMS, Z_3ASSETS)"},
    {"osxphotos-14.6.0", 16, 2, 1, 0, 0, 4, 9, 5, 14, "Asset=3, Album=29, Folder=37",
     "Z_29ASSETS (Z_29ALBUMS, Z_3ASSETS)"},
    {"osxphotos-15.4.1", 16, 2, 1, 0, 0, 4, 9, 5, 14, "Asset=3, Album=30, Folder=38",
     "Z_30ASSETS (Z_30ALBUMS, Z_3ASSETS)"},
    {"osxphotos-media-types-15.7.2", 18, 0, 0, 4, 5, 2, 2, 0, 2, "Asset=3, Album=30, Folder=38",
     "Z_30ASSETS (Z_30ALBUMS, Z_3ASSETS)"},
    // Three of its assets and two of its albums are only in the log.
    {"osxphotos-16.0.0-beta", 13, 0, 0, 0, 0, 4, 7, 3, 13, "Asset=3, Album=32, Folder=40",
     "Z_32ASSETS (Z_32ALBUMS, Z_3ASSETS)"},
    {"osxphotos-26.1", 16, 2, 1, 0, 0, 4, 9, 5, 14, "Asset=3, Album=33, Folder=41",
     "Z_33ASSETS (Z_33ALBUMS, Z_3ASSETS)"},
};

void PrintTo(const CorpusCounts& counts, std::ostream* os) { *os << counts.name; }

class CorpusTest : public testing::TestWithParam<CorpusCounts> {};

TEST_P(CorpusTest, CountsAlbumsAndMembership)
{
    SKIP_WITHOUT_CORPUS();
    const CorpusCounts& e = GetParam();
    TempDir dir;
    const PhotoLibrary library = PhotoLibrary::load(copyCorpusDatabase(e.name, dir.path()));

    int trashed = 0, hidden = 0, videos = 0, live = 0, edited = 0, named = 0, folders = 0, members = 0, strangers = 0;
    QSet<int64_t> keys;
    for (const LibraryAsset& a : library.assets) {
        trashed += a.isTrashed, hidden += a.isHidden, videos += a.isVideo, live += a.isLivePhoto();
        edited += a.hasAdjustments, named += a.originalFilename.has_value();
        keys.insert(a.pk);
    }
    for (const LibraryAlbum& album : library.albums)
        folders += album.isFolder;
    for (auto it = library.membership.cbegin(); it != library.membership.cend(); ++it)
        for (int64_t asset : *it)
            members += 1, strangers += !keys.contains(asset);
    // Every asset of these libraries has its original name recorded; every member is an asset.
    EXPECT_EQ((QList<qsizetype>{library.assets.size(), trashed, hidden, videos, live, edited, named,
                                library.albums.size() - folders, folders, members, strangers}),
              (QList<qsizetype>{e.assets, e.trashed, e.hidden, e.videos, e.livePhotos, e.edited, e.assets, e.albums,
                                e.folders, e.memberships, 0}));
    EXPECT_TRUE(std::is_sorted(library.albums.cbegin(), library.albums.cend(),
                               [](const LibraryAlbum& a, const LibraryAlbum& b) { return a.pk < b.pk; }));
    EXPECT_TRUE(library.schemaNotes.contains(QString("Entities: ") + e.entities)) << library.schemaNotes.join(" | ");
    EXPECT_EQ(library.schemaNotes.last(), QString("Album membership table: ") + e.joinTable);
}

INSTANTIATE_TEST_SUITE_P(PhotoLibrary, CorpusTest, testing::ValuesIn(kCorpus),
                         [](const testing::TestParamInfo<CorpusTest::ParamType>& info) {
                             std::string name = info.param.name;
                             std::replace_if(
                                 name.begin(), name.end(), [](char c) { return !isalnum(c); }, '_');
                             return name;
                         });

TEST(PhotoLibrary, EveryCorpusDatabaseIsCovered)
{
    SKIP_WITHOUT_CORPUS();
    QStringList covered;
    for (const CorpusCounts& counts : kCorpus)
        covered << counts.name;
    covered.sort();
    EXPECT_EQ(corpusDatabaseNames(), covered);
}

// Details of real libraries that a database written by this project's own tools could get wrong
// the same way as the reader.
TEST(PhotoLibrary, RealLibraryDetails)
{
    SKIP_WITHOUT_CORPUS();
    TempDir dir;
    const PhotoLibrary old = PhotoLibrary::load(copyCorpusDatabase("osxphotos-10.15.7", dir.filePath("old")));
    const auto asset = [&](const QString& uuidStart) {
        const auto it = std::find_if(old.assets.cbegin(), old.assets.cend(),
                                     [&](const LibraryAsset& a) { return a.uuid.startsWith(uuidStart); });
        return it == old.assets.cend() ? LibraryAsset() : *it;
    };
    EXPECT_TRUE(asset("A1DD1F98").isHidden);
    EXPECT_EQ(asset("A1DD1F98").displayName(), "Pumpkins4.jpg");
    EXPECT_TRUE(asset("71E3E212").isTrashed);
    EXPECT_EQ(asset("8846E3E6").dateCreated, 123456789012345.0);
    QHash<QString, LibraryAlbum> albums;
    for (const LibraryAlbum& album : old.albums)
        albums.insert(album.title, album);
    EXPECT_FALSE(albums.value("2019-10/11 Paris Clermont").isFolder);
    EXPECT_TRUE(albums.value("SubFolder2").isFolder);
    EXPECT_EQ(albums.value("AlbumInFolder").parentPK, albums.value("SubFolder2").pk);
    EXPECT_EQ(albums.value("SubFolder2").parentPK, albums.value("Folder1").pk);
    EXPECT_FALSE(old.membership.contains(albums.value("EmptyAlbum").pk));

    // The first moment of 1970, a date before the library's epoch; from iOS 18 on the flag column
    // is gone and the timestamp alone tells edited assets apart.
    const PhotoLibrary beta = PhotoLibrary::load(copyCorpusDatabase("osxphotos-16.0.0-beta", dir.filePath("beta")));
    EXPECT_TRUE(std::any_of(beta.assets.cbegin(), beta.assets.cend(), [](const LibraryAsset& a) {
        return a.dateCreated == -978307200.0 && a.captureDate()->toMSecsSinceEpoch() == 0;
    }));
    EXPECT_FALSE(beta.schemaNotes.join("\n").contains("not present"));
}

// A database made by createPhotosDatabase, then changed by these statements.
QString changedDatabase(const TempDir& dir, const QStringList& statements)
{
    static int n = 0;
    const QString path = dir.filePath(QString("db%1.sqlite").arg(++n));
    auto db = createPhotosDatabase(path);
    for (const QString& statement : statements)
        db->execute(statement);
    return path;
}

// The text that loading a database fails with; "loaded" when it loads.
QString loadFailure(const QString& path)
{
    try {
        PhotoLibrary::load(path);
    } catch (const PhotoLibraryError& error) {
        EXPECT_EQ(error.kind(), PhotoLibraryError::Kind::unsupportedSchema);
        return error.description();
    } catch (const SQLiteError& error) {
        return error.description();
    }
    return "loaded";
}

TEST(PhotoLibrary, MissingRequiredColumnsAreNamed)
{
    TempDir dir;
    QList<std::pair<QStringList, QString>> cases;
    for (const QString column : {"ZUUID", "ZDIRECTORY", "ZFILENAME", "ZDATECREATED"})
        cases.append({{"ALTER TABLE ZASSET DROP COLUMN " + column}, kUnsupported + "ZASSET." + column + " missing"});
    for (const QString column : {"ZKIND", "ZTITLE", "ZUUID"})
        cases.append({{"ALTER TABLE ZGENERICALBUM DROP COLUMN " + column},
                      kUnsupported + "ZGENERICALBUM." + column + " missing"});
    cases += {
        {{"ALTER TABLE ZASSET RENAME TO OLD", "CREATE TABLE ZASSET (ZUUID, ZDIRECTORY, ZFILENAME, ZDATECREATED)"},
         kUnsupported + "ZASSET.Z_PK missing"},
        // The first missing column in the fixed order is the one reported.
        {{"ALTER TABLE ZASSET DROP COLUMN ZDATECREATED", "ALTER TABLE ZASSET DROP COLUMN ZDIRECTORY"},
         kUnsupported + "ZASSET.ZDIRECTORY missing"},
        {{"ALTER TABLE ZASSET RENAME TO ZGENERICASSET", "ALTER TABLE ZGENERICASSET DROP COLUMN ZFILENAME"},
         kUnsupported + "ZGENERICASSET.ZFILENAME missing"},
        {{"ALTER TABLE ZASSET RENAME TO ZPHOTO"}, kUnsupported + "no ZASSET table"},
        {{"DROP TABLE ZGENERICALBUM"}, kUnsupported + "ZGENERICALBUM.Z_PK missing"},
        {{"DROP TABLE Z_PRIMARYKEY"}, kUnsupported + "no Z_PRIMARYKEY table"},
    };
    for (const auto& [statements, text] : cases)
        EXPECT_EQ(loadFailure(changedDatabase(dir, statements)), text) << statements.join("; ");
}

TEST(PhotoLibrary, MissingOptionalColumnsGetDefaults)
{
    TempDir dir;
    {
        auto db = createPhotosDatabase(dir.filePath("bare.sqlite"));
        for (const QString column : {"ZTRASHEDSTATE", "ZHIDDEN", "ZKIND", "ZKINDSUBTYPE", "ZSAVEDASSETTYPE",
                                     "ZBUNDLESCOPE", "ZADJUSTMENTTIMESTAMP", "ZHASADJUSTMENTS"})
            db->execute("ALTER TABLE ZASSET DROP COLUMN " + column);
        db->execute("ALTER TABLE ZADDITIONALASSETATTRIBUTES DROP COLUMN ZORIGINALFILENAME");
        db->execute("ALTER TABLE ZGENERICALBUM DROP COLUMN ZPARENTFOLDER");
        db->execute("ALTER TABLE ZGENERICALBUM DROP COLUMN ZTRASHEDSTATE");
        db->execute("INSERT INTO ZASSET (Z_PK, ZUUID, ZDIRECTORY, ZFILENAME, ZDATECREATED) "
                    "VALUES (1, 'u1', 'DCIM/100APPLE', 'IMG_0001.MOV', 1.5)");
        db->execute("INSERT INTO ZGENERICALBUM (Z_PK, ZKIND, ZUUID, ZTITLE) VALUES (5, 2, 'a5', 'Trip')");
    }
    const PhotoLibrary bare = PhotoLibrary::load(dir.filePath("bare.sqlite"));
    EXPECT_EQ(bare.schemaNotes,
              (QStringList{"Asset columns not present (defaults used): ZTRASHEDSTATE, ZHIDDEN, ZKIND, "
                           "ZKINDSUBTYPE, ZSAVEDASSETTYPE, ZBUNDLESCOPE",
                           "Original file names unavailable (ZADDITIONALASSETATTRIBUTES.ZORIGINALFILENAME missing)",
                           "Entities: Asset=3, Album=28, Folder=36",
                           "Album membership table: Z_28ASSETS (Z_28ALBUMS, Z_3ASSETS)"}));
    LibraryAsset expected;
    expected.pk = 1;
    expected.uuid = "u1";
    expected.directory = "DCIM/100APPLE";
    expected.filename = "IMG_0001.MOV";
    expected.dateCreated = 1.5;
    ASSERT_EQ(bare.assets.size(), 1);
    EXPECT_EQ(bare.assets.first(), expected); // not a video, nothing flagged, optionals absent
    ASSERT_EQ(bare.albums.size(), 1);
    EXPECT_EQ(bare.albums.first(), (LibraryAlbum{5, "a5", "Trip", false, std::nullopt, false}));
}

// (Rows as a phone of each generation writes them: PhotoLibraryGenerationsIntegrationTest.)
TEST(PhotoLibrary, AssetRowsWithNullsAndEdits)
{
    TempDir dir;
    const QString path = dir.filePath("Photos.sqlite");
    {
        auto db = createPhotosDatabase(path);
        addAsset(*db, TestAsset(7, "IMG_0007.HEIC").date(745923456.123456789).subtype(2).original("Beach.HEIC"));
        addAsset(*db, TestAsset(3, "IMG_0003.MOV").date(std::nullopt).video().original(""));
        addAsset(*db, TestAsset(4, "IMG_0004.JPG"));
        addAsset(*db, TestAsset(5, "IMG_0005.JPG"));
        db->execute("UPDATE ZASSET SET ZKIND = 2, ZKINDSUBTYPE = NULL, ZSAVEDASSETTYPE = NULL WHERE Z_PK = 4");
        db->execute("UPDATE ZASSET SET ZKIND = NULL, ZHIDDEN = NULL, ZTRASHEDSTATE = NULL WHERE Z_PK = 5");
        // The timestamp decides, whatever the flag says.
        db->execute("UPDATE ZASSET SET ZADJUSTMENTTIMESTAMP = 1.0, ZHASADJUSTMENTS = 0 WHERE Z_PK = 7");
        db->execute("UPDATE ZASSET SET ZHASADJUSTMENTS = 1 WHERE Z_PK = 3");
        // Rows without a key column are left out.
        db->execute("INSERT INTO ZASSET (Z_PK, ZUUID, ZDIRECTORY, ZFILENAME, ZDATECREATED) VALUES "
                    "(20, NULL, 'DCIM', 'a.JPG', 0), (21, 'u21', NULL, 'b.JPG', 0), (22, 'u22', 'DCIM', NULL, 0)");
    }
    const PhotoLibrary library = PhotoLibrary::load(path);
    ASSERT_EQ(library.assets.size(), 4);
    const LibraryAsset& video = library.assets[0];
    const LibraryAsset& plain = library.assets[1];
    const LibraryAsset& nulls = library.assets[2];
    const LibraryAsset& live = library.assets[3];
    EXPECT_EQ((QList<int64_t>{video.pk, plain.pk, nulls.pk, live.pk}), (QList<int64_t>{3, 4, 5, 7})); // table order
    EXPECT_EQ(live.displayName(), "Beach.HEIC");
    EXPECT_EQ(live.dateCreated, 745923456.123456789); // the stored double, bit for bit
    EXPECT_TRUE(live.isLivePhoto() && live.hasAdjustments);
    EXPECT_FALSE(video.dateCreated.has_value());
    EXPECT_FALSE(video.originalFilename.has_value()); // empty counts as absent
    EXPECT_EQ(video.displayName(), "IMG_0003.MOV");
    EXPECT_FALSE(video.hasAdjustments); // flag set, but no timestamp
    EXPECT_FALSE(plain.isVideo);        // only kind 1 is a video
    EXPECT_EQ(plain.kindSubtype, 0);
    EXPECT_FALSE(plain.savedAssetType.has_value());
    EXPECT_FALSE(nulls.isVideo || nulls.isHidden || nulls.isTrashed);

    // Without the timestamp column the flag column tells; without either nothing is edited.
    const auto editedAfterDropping = [&](const QString& column) {
        SQLiteDB(path, false, false).execute("ALTER TABLE ZASSET DROP COLUMN " + column);
        QList<bool> flags;
        for (const LibraryAsset& asset : PhotoLibrary::load(path).assets)
            flags << asset.hasAdjustments;
        return flags;
    };
    EXPECT_EQ(editedAfterDropping("ZADJUSTMENTTIMESTAMP"), (QList<bool>{true, false, false, false}));
    EXPECT_EQ(editedAfterDropping("ZHASADJUSTMENTS"), (QList<bool>{false, false, false, false}));
}

TEST(PhotoLibrary, AlbumsFoldersAndMembership)
{
    TempDir dir;
    const QString path = dir.filePath("Photos.sqlite");
    {
        auto db = createPhotosDatabase(path);
        for (int64_t pk = 1; pk <= 4; ++pk)
            addAsset(*db, TestAsset(pk, QString("IMG_%1.JPG").arg(pk)));
        addAlbum(*db, 1, 3999, ""); // the root folder: not read
        addAlbum(*db, 30, 2, "Trip", 12);
        addAlbum(*db, 12, 4000, "Holidays", 1);
        addAlbum(*db, 15, 1505, "Shared with Ann");  // shared album
        addAlbum(*db, 16, 1507, "Favourites smart"); // smart album
        addAlbum(*db, 20, 2, "");                    // an empty title stays empty
        db->execute("INSERT INTO ZGENERICALBUM (Z_PK, ZKIND, ZUUID, ZTITLE, ZPARENTFOLDER, ZTRASHEDSTATE) "
                    "VALUES (40, 4000, NULL, NULL, NULL, 0), (41, 2, 'gone', 'Old', NULL, 1)");
        addMember(*db, 30, 3);
        addMember(*db, 30, 1);
        addMember(*db, 15, 2); // shared and smart albums share the table: dropped
        addMember(*db, 16, 2);
        addMember(*db, 99, 2); // no such album
        addMember(*db, 30, 4);
        addMember(*db, 41, 2);
        db->execute("INSERT INTO Z_28ASSETS (Z_28ALBUMS, Z_3ASSETS) VALUES (30, NULL), (NULL, 1)");
    }
    const PhotoLibrary library = PhotoLibrary::load(path);
    EXPECT_EQ(library.albums, (QList<LibraryAlbum>{{12, "album-uuid-12", "Holidays", true, 1, false},
                                                   {20, "album-uuid-20", "", false, std::nullopt, false},
                                                   {30, "album-uuid-30", "Trip", false, 12, false},
                                                   {40, "album-40", "Untitled", true, std::nullopt, false},
                                                   {41, "gone", "Old", false, std::nullopt, true}}));
    EXPECT_EQ(library.membership, (QHash<int64_t, QList<int64_t>>{{30, {3, 1, 4}}, {41, {2}}}));
}

class JoinTableTest : public testing::Test {
protected:
    // A database whose membership table is described only by the given statements.
    QString database(const QStringList& statements)
    {
        return changedDatabase(dir, QStringList{"DROP TABLE Z_28ASSETS"} + statements);
    }

    TempDir dir;
};

// (Found by the entity numbers, past tables that a search by name would also take, in every real
// layout: the corpus and generation tests.)
TEST_F(JoinTableTest, FoundByScanning)
{
    // The expected Z_28ASSETS is absent; Asset's number does not name the asset column (as in
    // the ZGENERICASSET era); other tables ending in ASSETS are not membership tables.
    const QString path = database({
        "CREATE TABLE Z_3MEMORIESBEINGCURATEDASSETS (Z_3ASSETS INTEGER, Z_45MEMORIESBEINGCURATED INTEGER)",
        "CREATE TABLE Z_29KEYASSETS (Z_29ALBUMS INTEGER, Z_3ASSETS INTEGER)",
        "CREATE TABLE Z_9ASSETS (Z_9ALBUMS INTEGER, Z_10ALBUMS INTEGER, Z_3ASSETS INTEGER)",
        "CREATE TABLE Z_26ASSETS (Z_26ALBUMS INTEGER, Z_34ASSETS INTEGER, Z_FOK_34ASSETS INTEGER)",
        "INSERT INTO Z_26ASSETS VALUES (5, 1, 0)",
    });
    {
        SQLiteDB db(path, false, false);
        addAsset(db, TestAsset(1, "IMG_0001.JPG"));
        addAlbum(db, 5, 2, "Found");
    }
    const PhotoLibrary library = PhotoLibrary::load(path);
    EXPECT_EQ(library.schemaNotes.last(), "Album membership table: Z_26ASSETS (Z_26ALBUMS, Z_34ASSETS)");
    EXPECT_EQ(library.membership, (QHash<int64_t, QList<int64_t>>{{5, {1}}}));

    EXPECT_EQ(PhotoLibrary::load(database({"DELETE FROM Z_PRIMARYKEY WHERE Z_NAME = 'Album'",
                                           "CREATE TABLE Z_7ASSETS (Z_7ALBUMS INTEGER, Z_3ASSETS INTEGER)"}))
                  .schemaNotes,
              (QStringList{"Entities: Asset=3, Album=?, Folder=36",
                           "Album membership table: Z_7ASSETS (Z_7ALBUMS, Z_3ASSETS)"}));
}

TEST_F(JoinTableTest, NoneOrSeveralCandidatesFail)
{
    EXPECT_EQ(loadFailure(database({
                  "DELETE FROM Z_PRIMARYKEY WHERE Z_NAME = 'Album'",
                  "CREATE TABLE Z_28ASSETS (Z_28ALBUMS INTEGER, Z_3ASSETS INTEGER)",
                  "CREATE TABLE Z_31ASSETS (Z_31ALBUMS INTEGER, Z_3ASSETS INTEGER, Z_FOK_3ASSETS INTEGER)",
              })),
              kUnsupported +
                  R"(could not identify the album membership table (candidates: ["Z_28ASSETS", "Z_31ASSETS"]))");
    EXPECT_EQ(loadFailure(database({"CREATE TABLE Z_3KEYASSETS (Z_28ALBUMS INTEGER, Z_3ASSETS INTEGER)"})),
              kUnsupported + "could not identify the album membership table (candidates: [])");
}

} // namespace
