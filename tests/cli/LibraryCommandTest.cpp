#include "CliRun.h"
#include "PhotosDatabases.h"
#include "TempDir.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

// (The counts of real databases: PhotoLibrary's corpus tests; the text form: LibraryCommandIntegration.)
TEST(LibraryCommand, WholeLibraryAsJson)
{
    TempDir dir;
    const QString database = dir.filePath("Photos.sqlite");
    {
        auto db = createPhotosDatabase(database);
        addAsset(*db, TestAsset(7, "IMG_0007.HEIC").date(745923456.123456789).subtype(2).original("Beach.HEIC"));
        addAsset(*db, TestAsset(9, "IMG_0009.MOV").date(std::nullopt).video().hidden());
        db->execute("UPDATE ZASSET SET ZSAVEDASSETTYPE = NULL, ZBUNDLESCOPE = NULL WHERE Z_PK = 9");
        addAlbum(*db, 40, 4000, "Holidays");
        addAlbum(*db, 41, 2, "Beach", 40);
        addMember(*db, 41, 9);
        addMember(*db, 41, 7);
    }
    const CliRun result = CliRun::of({"library", "--json", "--db", database});
    ASSERT_EQ(result.code, 0) << result.err.toStdString();
    const QJsonObject root = QJsonDocument::fromJson(result.out.toUtf8()).object();
    const QJsonArray assets = root["assets"].toArray();
    ASSERT_EQ(assets.size(), 2) << result.out.toStdString();
    // Every bit of the stored date survives the text form.
    EXPECT_EQ(assets[0]["dateCreated"].toDouble(), 745923456.123456789);
    EXPECT_EQ(assets[0]["originalFilename"], "Beach.HEIC");
    EXPECT_EQ(assets[0]["kindSubtype"], 2);
    EXPECT_EQ(assets[1].toObject(), (QJsonObject{{"pk", 9},
                                                 {"uuid", "asset-9"},
                                                 {"directory", "DCIM/100APPLE"},
                                                 {"filename", "IMG_0009.MOV"},
                                                 {"originalFilename", QJsonValue()},
                                                 {"dateCreated", QJsonValue()},
                                                 {"isVideo", true},
                                                 {"kindSubtype", 0},
                                                 {"isHidden", true},
                                                 {"isTrashed", false},
                                                 {"savedAssetType", QJsonValue()},
                                                 {"bundleScope", QJsonValue()},
                                                 {"hasAdjustments", false}}));
    EXPECT_EQ(root["albums"][1].toObject(), (QJsonObject{{"pk", 41},
                                                         {"uuid", "album-uuid-41"},
                                                         {"title", "Beach"},
                                                         {"isFolder", false},
                                                         {"parentPK", 40},
                                                         {"isTrashed", false}}));
    EXPECT_EQ(root["albums"][0]["isFolder"], true);
    EXPECT_EQ(root["membership"].toObject(), (QJsonObject{{"41", QJsonArray{9, 7}}}));
    EXPECT_EQ(root["schemaNotes"].toArray().last(), "Album membership table: Z_28ASSETS (Z_28ALBUMS, Z_3ASSETS)");
}

TEST(LibraryCommand, UnreadableDatabases)
{
    TempDir dir;
    const QString database = dir.filePath("Photos.sqlite");
    createPhotosDatabase(database)->execute("ALTER TABLE ZASSET DROP COLUMN ZDATECREATED");
    CliRun result = CliRun::of({"library", "--db", database});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err.toStdString(),
              "The Photos database has a layout this app doesn't recognise: ZASSET.ZDATECREATED missing\n");

    writeFile(dir.filePath("notes.txt"), "not a database");
    result = CliRun::of({"library", "--db", dir.filePath("notes.txt"), "--json"});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err,
              "SQLite: file is not a database in: SELECT 1 FROM sqlite_master WHERE type='table' AND name=?\n");

    result = CliRun::of({"library", "--db", dir.filePath("missing.sqlite")});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.err,
              QString("There is no database file at \u201c%1\u201d.\n").arg(dir.filePath("missing.sqlite")));

    result = CliRun::of({"library", "--db", database, "--udid", "0000"});
    EXPECT_EQ(result.code, 2);
    EXPECT_TRUE(result.err.startsWith("ombrelo-cli library: --db and --udid cannot be used together.\n"));
}

} // namespace
