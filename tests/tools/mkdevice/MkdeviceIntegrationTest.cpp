// ombrelo-mkdevice writes the phones the other tests back up. What those tests cannot see for
// themselves is checked here: a seed gives the same phone every time; each generation's database
// has the layout of a real database of its year, traps for a careless reader included; the answer
// key tells the truth about the files; the phone holds every case a backup has to handle.
#include "FolderSnapshot.h"
#include "PhoneBackup.h"
#include "PhotosDatabases.h"
#include "device/StreamingHasher.h"
#include "library/SQLiteDB.h"

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

const QStringList kGenerations{"ios12", "ios13", "ios14", "ios15", "ios16", "ios17", "ios18", "ios26"};

// The first column of every row of a query, as text.
QStringList column(SQLiteDB& db, const QString& sql)
{
    QStringList values;
    db.query(sql, {}, [&](const SQLRow& row) { values << row.text(0).value_or("<null>"); });
    return values;
}

// A phone without media files, written into `folder`, and its database (a private copy).
std::unique_ptr<SQLiteDB> phoneDatabase(const QString& folder, const QStringList& options)
{
    const ProgramResult run = makePhone(folder, options + QStringList{"--files", "none"});
    if (run.exitCode != 0)
        throw std::runtime_error(run.describe().toStdString());
    return std::make_unique<SQLiteDB>(copyPhotosDatabase(folder + "/media/PhotoData", folder + "-copy"), false, false);
}

// Each file's path and SHA-256.
QMap<QString, QString> contents(const QString& folder)
{
    QMap<QString, QString> hashes;
    const FolderSnapshot snapshot = FolderSnapshot::take(folder);
    for (auto it = snapshot.files.cbegin(); it != snapshot.files.cend(); ++it)
        hashes.insert(it.key(), it->sha256);
    return hashes;
}

// True when the bytes begin as a file of the kind its extension names.
bool looksLikeItsKind(const QString& path, const QByteArray& head)
{
    const QString ext = path.section('.', -1).toLower();
    if (ext == "jpg" || ext == "jpeg")
        return head.startsWith("\xFF\xD8\xFF");
    if (ext == "png")
        return head.startsWith("\x89PNG");
    if (ext == "heic" || ext == "mov")
        return head.mid(4, 8) == (ext == "heic" ? "ftypheic" : "ftypqt  ");
    return head.startsWith(ext == "aae" ? "<?xml" : "bplist00");
}

} // namespace

TEST(Mkdevice, SameSeedGivesTheSameBytes)
{
    TempDir dir;
    for (const char* name : {"a", "b"})
        ASSERT_EQ(makePhone(dir.filePath(name), {"--assets", "90"}).exitCode, 0);
    ASSERT_EQ(makePhone(dir.filePath("c"), {"--assets", "90", "--seed", "7"}).exitCode, 0);
    const QMap<QString, QString> a = contents(dir.filePath("a"));
    EXPECT_EQ(a, contents(dir.filePath("b")));
    EXPECT_GT(a.size(), 200);
    EXPECT_TRUE(a.contains("media/PhotoData/Photos.sqlite-wal")) << "the log too, random salts and all";
    EXPECT_NE(a.value("media/PhotoData/Photos.sqlite"),
              contents(dir.filePath("c")).value("media/PhotoData/Photos.sqlite"));
}

// The asset table and the columns of each generation; the membership table named after the
// entity numbers; tables that a search by name alone would take for it; the phone's own albums
// beside the user's.
TEST(Mkdevice, EachGenerationHasItsDatabaseLayout)
{
    TempDir dir;
    QHash<QString, QString> albumEntity;
    for (const QString& generation : kGenerations) {
        SCOPED_TRACE(generation.toStdString());
        const auto db = phoneDatabase(dir.filePath(generation), {"--generation", generation, "--assets", "50"});
        const bool generic = generation == "ios12" || generation == "ios13";
        const QString assets = generic ? "ZGENERICASSET" : "ZASSET";
        EXPECT_EQ(column(*db, "SELECT count(*) FROM " + assets), QStringList{"50"});
        EXPECT_TRUE(db->columns(generic ? "ZASSET" : "ZGENERICASSET").isEmpty());
        const QSet<QString> columns = db->columns(assets);
        EXPECT_EQ(columns.contains("ZBUNDLESCOPE"), generation >= "ios15");
        EXPECT_EQ(columns.contains("ZHASADJUSTMENTS"), generation < "ios18");
        EXPECT_EQ(columns.contains("ZADJUSTMENTSSTATE"), generation >= "ios18");

        const auto entity = [&](const QString& name) {
            return column(*db, "SELECT Z_ENT FROM Z_PRIMARYKEY WHERE Z_NAME = '" + name + "'").value(0);
        };
        albumEntity.insert(generation, entity("Album"));
        const QString assetColumn = "Z_" + (generic ? entity("GenericAsset") : entity("Asset")) + "ASSETS";
        const QString join = "Z_" + entity("Album") + "ASSETS";
        EXPECT_EQ(db->columns(join),
                  (QSet<QString>{"Z_" + entity("Album") + "ALBUMS", assetColumn, "Z_FOK_" + assetColumn.mid(2)}));
        EXPECT_GT(column(*db, "SELECT count(*) FROM " + join).value(0).toInt(), 20);
        EXPECT_GE(column(*db, "SELECT count(*) FROM sqlite_master WHERE name GLOB 'Z_[0-9]*ASSETS'").value(0).toInt(),
                  3);

        // Top-level albums hang from the root folder; shared albums and import sessions outside it;
        // smart albums have no members; only user and shared albums have members.
        const auto count = [&](const QString& where) {
            return column(*db, "SELECT count(*) FROM ZGENERICALBUM WHERE " + where).value(0).toInt();
        };
        const QString root = column(*db, "SELECT Z_PK FROM ZGENERICALBUM WHERE ZKIND = 3999").value(0);
        EXPECT_EQ(count("ZKIND IN (2, 4000) AND ZPARENTFOLDER IS NULL"), 0);
        EXPECT_GT(count("ZKIND IN (2, 4000) AND ZPARENTFOLDER = " + root), 10);
        EXPECT_EQ(count("ZKIND = 1505 AND ZPARENTFOLDER IS NULL"), 2);
        EXPECT_GT(count("ZKIND = 1506"), 0);
        EXPECT_GT(count("ZKIND = 1507 OR ZKIND BETWEEN 1600 AND 1699"), 0);
        EXPECT_EQ(count("ZKIND = 2 AND ZPARENTFOLDER IN (SELECT Z_PK FROM ZGENERICALBUM WHERE ZKIND = 4000 AND "
                        "ZPARENTFOLDER IN (SELECT Z_PK FROM ZGENERICALBUM WHERE ZKIND = 4000))"),
                  2); // Travel/Europe/Paris and Rome
        EXPECT_EQ(column(*db, "SELECT count(*) FROM " + join + " JOIN ZGENERICALBUM ON Z_PK = Z_" + entity("Album") +
                                  "ALBUMS WHERE ZKIND NOT IN (2, 1505)"),
                  QStringList{"0"});
        EXPECT_EQ(column(*db, "SELECT DISTINCT Z_ENT FROM ZGENERICALBUM WHERE ZKIND = 4000"),
                  QStringList{entity("Folder")});
    }
    // Before 17.6, iOS 17 numbered Album one lower.
    const auto early = phoneDatabase(dir.filePath("ios17.5"), {"--generation", "ios17", "--version", "17.5.1"});
    const QString album = column(*early, "SELECT Z_ENT FROM Z_PRIMARYKEY WHERE Z_NAME = 'Album'").value(0);
    EXPECT_EQ(album.toInt(), albumEntity.value("ios17").toInt() - 1);
    EXPECT_FALSE(early->columns("Z_" + album + "ASSETS").isEmpty());
}

TEST(Mkdevice, EntityTablesAreThoseOfARealDatabaseOfTheSameYear)
{
    SKIP_WITHOUT_CORPUS();
    TempDir dir;
    const QString entities = "SELECT Z_ENT || ' ' || Z_NAME || ' ' || Z_SUPER FROM Z_PRIMARYKEY ORDER BY Z_ENT";
    for (const auto& [generation, real] : {std::pair{"ios13", "osxphotos-10.15.7"},
                                           {"ios14", "osxphotos-10.16.0.1"},
                                           {"ios15", "osxphotos-12.0.1"},
                                           {"ios16", "osxphotos-13.0.0"},
                                           {"ios17", "osxphotos-14.6.0"},
                                           {"ios18", "osxphotos-15.4.1"},
                                           {"ios26", "osxphotos-26.1"}}) {
        SCOPED_TRACE(generation);
        const auto db = phoneDatabase(dir.filePath(generation), {"--generation", generation, "--assets", "1"});
        SQLiteDB corpus(copyCorpusDatabase(real, dir.filePath(real)), false, false);
        EXPECT_EQ(column(*db, entities), column(corpus, entities));
    }
}

TEST(Mkdevice, AnswerKeyDescribesWhatThePhoneHolds)
{
    TempDir dir;
    const QString media = dir.filePath("phone/media");
    const ProgramResult run =
        makePhone(dir.filePath("phone"), {"--assets", "200", "--answer-key", dir.filePath("key.json")});
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    const PhoneAnswerKey key = PhoneAnswerKey::read(dir.filePath("key.json"));
    ASSERT_EQ(key.assets.size(), 200);

    // Every media file is in the key, with its hash, and is a file of its kind.
    QSet<QString> listed(key.unknownFiles.cbegin(), key.unknownFiles.cend());
    EXPECT_EQ(listed.size(), 3);
    QSet<QString> categories, components, stems;
    QHash<QString, int> originals;               // content → items that have it as their original
    QHash<QString, QSet<QString>> foldersOfName; // file name → camera folders
    int hidden = 0, inSeveralAlbums = 0, stemsTwice = 0;
    QSet<QString> withMembers;
    for (const PhoneAnswerKey::Asset& asset : key.assets) {
        categories.insert(asset.category);
        EXPECT_EQ(asset.files.isEmpty(), asset.category == "iCloudOnly") << asset.uuid.toStdString();
        for (const PhoneAnswerKey::File& file : asset.files) {
            SCOPED_TRACE(file.path.toStdString());
            const DownloadResult actual = sha256OfFile(media + file.path);
            EXPECT_EQ(actual.sha256, file.sha256);
            EXPECT_EQ(qint64(actual.size), file.size);
            EXPECT_TRUE(looksLikeItsKind(file.path, readFile(media + file.path).left(16)));
            EXPECT_FALSE(listed.contains(file.path));
            listed.insert(file.path);
            components.insert(file.component);
            originals[file.sha256] += file.component == "original";
        }
        foldersOfName[asset.filename].insert(asset.directory);
        const QString stem = asset.directory + "/" + asset.filename.section('.', 0, -2);
        stemsTwice += stems.contains(stem);
        stems.insert(stem);
        hidden += asset.isHidden && asset.category == "library";
        inSeveralAlbums += asset.albums.size() >= 2;
        withMembers += QSet<QString>(asset.albums.cbegin(), asset.albums.cend());
    }
    QSet<QString> onDisk;
    for (const QString root :
         {"/DCIM", "/PhotoData/CPLAssets", "/PhotoData/PhotoCloudSharingData", "/PhotoData/Mutations"})
        for (const QString& path : contents(media + root).keys())
            onDisk.insert(root + "/" + path);
    EXPECT_EQ(onDisk, listed);

    // Every case the backup has to handle is there.
    EXPECT_EQ(categories,
              (QSet<QString>{"library", "trashed", "sharedWithYou", "sharedAlbum", "otherLibrary", "iCloudOnly"}));
    EXPECT_EQ(components, (QSet<QString>{"original", "live-video", "aae", "edited", "edited-live-video", "edited-still",
                                         "adjustments"}));
    EXPECT_TRUE(std::find(originals.cbegin(), originals.cend(), 2) != originals.cend())
        << "the same picture imported twice";
    EXPECT_TRUE(std::any_of(foldersOfName.cbegin(), foldersOfName.cend(), [](const auto& f) { return f.size() == 2; }))
        << "one file name in two camera folders";
    EXPECT_GT(stemsTwice, 0) << "two items of one stem in a folder";
    EXPECT_GE(hidden, 2);
    EXPECT_GE(inSeveralAlbums, 3);
    QStringList titles;
    QSet<QString> parents;
    for (const PhoneAnswerKey::Album& album : key.albums) {
        if (album.kind == 2 || album.kind == 4000)
            titles << album.title.value_or("");
        parents.insert(album.parentUUID);
    }
    EXPECT_GE(titles.filter(QRegularExpression("^family$", QRegularExpression::CaseInsensitiveOption)).size(), 2)
        << "two titles that differ only in case";
    for (const QString pattern : {"[/:|]", "\n", "\t", "^\\."})
        EXPECT_FALSE(titles.filter(QRegularExpression(pattern)).isEmpty())
            << "a title matching " << pattern.toStdString();
    EXPECT_TRUE(std::any_of(key.albums.cbegin(), key.albums.cend(), [&](const PhoneAnswerKey::Album& a) {
        return a.kind == 2 && !withMembers.contains(a.uuid);
    })) << "an empty album";
    EXPECT_TRUE(std::any_of(key.albums.cbegin(), key.albums.cend(), [&](const PhoneAnswerKey::Album& a) {
        return a.kind == 4000 && !a.isTrashed && !parents.contains(a.uuid);
    })) << "an empty folder";
}

namespace {

// The mean difference in grey level between neighbouring pixels: a few levels for a picture of
// shapes and gradients, tens for noise.
double roughness(const QImage& image)
{
    double sum = 0;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 1; x < image.width(); ++x)
            sum += std::abs(qGray(image.pixel(x, y)) - qGray(image.pixel(x - 1, y)));
    return sum / (double(image.height()) * (image.width() - 1));
}

// True when both side edges are dark strips with light perforations, as on a film.
bool hasFilmEdges(const QImage& image)
{
    for (const int x : {8, image.width() - 9}) {
        int dark = 0;
        int holes = 0;
        bool inHole = false;
        for (int y = 0; y < image.height(); ++y) {
            const int grey = qGray(image.pixel(x, y));
            dark += grey < 40;
            if (grey > 180 && !inHole)
                ++holes;
            inHole = grey > 180;
        }
        if (holes < 5 || dark < image.height() / 3)
            return false;
    }
    return true;
}

} // namespace

TEST(Mkdevice, ThumbnailsLookLikeALibraryInAWindow)
{
    TempDir dir;
    const QString media = dir.filePath("phone/media");
    const ProgramResult run = makePhone(
        dir.filePath("phone"), {"--assets", "120", "--thumbnails", "mixed", "--answer-key", dir.filePath("key.json")});
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();

    int keptAs5003 = 0;
    QSet<QByteArray> pictures;
    QSet<QString> shapes;
    for (const QJsonValue& value : QJsonDocument::fromJson(readFile(dir.filePath("key.json")))["assets"].toArray()) {
        // One ready-made thumbnail per item, under the name the key gives.
        const QString path = value["thumbnail"].toString();
        ASSERT_TRUE(path.endsWith("/5005.JPG") || path.endsWith("/5003.JPG")) << path.toStdString();
        EXPECT_EQ(QDir(media + QFileInfo(path).path()).entryList(QDir::Files), QStringList{QFileInfo(path).fileName()});
        keptAs5003 += path.endsWith("/5003.JPG");

        QImage image;
        ASSERT_TRUE(image.load(media + path)) << path.toStdString();
        image = image.convertToFormat(QImage::Format_RGB32);
        EXPECT_EQ(std::max(image.width(), image.height()), 480) << path.toStdString();
        shapes.insert(image.width() > image.height() ? "landscape" : "portrait");
        EXPECT_LT(roughness(image), 12) << path.toStdString() << " looks like noise";
        EXPECT_EQ(hasFilmEdges(image), value["isVideo"].toBool()) << path.toStdString();
        pictures.insert(QByteArray(reinterpret_cast<const char*>(image.constBits()), image.sizeInBytes()));
    }
    EXPECT_GE(keptAs5003, 15);
    EXPECT_LE(keptAs5003, 45);
    EXPECT_EQ(shapes, (QSet<QString>{"landscape", "portrait"}));
    EXPECT_GE(pictures.size(), 40) << "the pictures should vary";

    // Sparse phones have none unless asked for; then they are whole pictures all the same.
    const ProgramResult sparse =
        makePhone(dir.filePath("sparse"), {"--assets", "4", "--files", "sparse", "--thumbnails", "5003", "--answer-key",
                                           dir.filePath("sparse.json")});
    ASSERT_EQ(sparse.exitCode, 0) << sparse.describe().toStdString();
    for (const QJsonValue& value : QJsonDocument::fromJson(readFile(dir.filePath("sparse.json")))["assets"].toArray()) {
        const QString path = dir.filePath("sparse/media") + value["thumbnail"].toString();
        EXPECT_TRUE(path.endsWith("/5003.JPG") && readFile(path).endsWith("\xFF\xD9")) << path.toStdString();
    }
    const ProgramResult refused = makePhone(dir.filePath("none"), {"--files", "none", "--thumbnails", "5003"});
    EXPECT_EQ(refused.exitCode, 2);
    EXPECT_TRUE(refused.err.contains("--thumbnails needs media files; --files none writes the database only."))
        << refused.err.toStdString();
}

TEST(Mkdevice, RefusesAFolderThatIsNotEmptyAndLeavesItAlone)
{
    TempDir dir;
    writeFile(dir.filePath("used/mine.txt"), "keep me");
    const ProgramResult run = makePhone(dir.filePath("used"), {"--assets", "5"});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("is not empty; give a new or empty folder")) << run.err.toStdString();
    EXPECT_EQ(QDir(dir.filePath("used")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot), QStringList{"mine.txt"});
    EXPECT_EQ(readFile(dir.filePath("used/mine.txt")), "keep me");
}
