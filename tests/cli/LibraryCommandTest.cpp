#include "CliRun.h"
#include "PhotosDatabases.h"
#include "TempDir.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

TEST(LibraryCommand, CountsAndNotesOfARealDatabase)
{
    TempDir dir;
    const QString database = copyCorpusDatabase("osxphotos-10.15.7", dir.path());
    const qint64 logSize = QFileInfo(database + "-wal").size();

    const CliRun result = CliRun::of({"library", "--db", database});
    EXPECT_EQ(result.code, 0) << result.err.toStdString();
    EXPECT_EQ(result.out.toStdString(), "Assets:      29\n"
                                        "Trashed:     2\n"
                                        "Hidden:      1\n"
                                        "Videos:      2\n"
                                        "Live photos: 0\n"
                                        "Edited:      6\n"
                                        "Albums:      15\n"
                                        "Folders:     5\n"
                                        "Schema notes:\n"
                                        "  Asset columns not present (defaults used): ZBUNDLESCOPE\n"
                                        "  Entities: Asset=35, Album=26, Folder=32\n"
                                        "  Album membership table: Z_26ASSETS (Z_26ALBUMS, Z_34ASSETS)\n");
    // The user's file is read, not changed: its log was not folded into it.
    EXPECT_EQ(QFileInfo(database + "-wal").size(), logSize);
    EXPECT_GT(logSize, 0);
}

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
    QJsonParseError parseError;
    const QJsonObject root = QJsonDocument::fromJson(result.out.toUtf8(), &parseError).object();
    ASSERT_EQ(parseError.error, QJsonParseError::NoError) << result.out.toStdString();

    const QJsonArray assets = root["assets"].toArray();
    ASSERT_EQ(assets.size(), 2);
    EXPECT_EQ(assets[0].toObject(), (QJsonObject{{"pk", 7},
                                                 {"uuid", "asset-7"},
                                                 {"directory", "DCIM/100APPLE"},
                                                 {"filename", "IMG_0007.HEIC"},
                                                 {"originalFilename", "Beach.HEIC"},
                                                 {"dateCreated", 745923456.123456789},
                                                 {"isVideo", false},
                                                 {"kindSubtype", 2},
                                                 {"isHidden", false},
                                                 {"isTrashed", false},
                                                 {"savedAssetType", 3},
                                                 {"bundleScope", 0},
                                                 {"hasAdjustments", false}}));
    // Every bit of the stored number survives the text form.
    EXPECT_EQ(assets[0]["dateCreated"].toDouble(), 745923456.123456789);
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

    EXPECT_EQ(root["albums"].toArray(), (QJsonArray{QJsonObject{{"pk", 40},
                                                                {"uuid", "album-uuid-40"},
                                                                {"title", "Holidays"},
                                                                {"isFolder", true},
                                                                {"parentPK", QJsonValue()},
                                                                {"isTrashed", false}},
                                                    QJsonObject{{"pk", 41},
                                                                {"uuid", "album-uuid-41"},
                                                                {"title", "Beach"},
                                                                {"isFolder", false},
                                                                {"parentPK", 40},
                                                                {"isTrashed", false}}}));
    EXPECT_EQ(root["membership"].toObject(), (QJsonObject{{"41", QJsonArray{9, 7}}}));
    EXPECT_EQ(root["schemaNotes"].toArray(),
              (QJsonArray{"Entities: Asset=3, Album=28, Folder=36",
                          "Album membership table: Z_28ASSETS (Z_28ALBUMS, Z_3ASSETS)"}));
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
    EXPECT_EQ(result.err, "SQLite: file is not a database in: SELECT Z_ENT, Z_NAME FROM Z_PRIMARYKEY\n");

    result = CliRun::of({"library", "--db", dir.filePath("missing.sqlite")});
    EXPECT_EQ(result.code, 3);
    EXPECT_EQ(result.err,
              QString("There is no database file at \u201c%1\u201d.\n").arg(dir.filePath("missing.sqlite")));

    result = CliRun::of({"library", "--db", database, "--udid", "0000"});
    EXPECT_EQ(result.code, 2);
    EXPECT_TRUE(result.err.startsWith("ombrelo-cli library: --db and --udid cannot be used together.\n"));
}

} // namespace
