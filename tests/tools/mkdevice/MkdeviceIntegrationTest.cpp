#include "QtPrinters.h"
#include "RunProgram.h"
#include "TempDir.h"
#include "device/StreamingHasher.h"
#include "library/SQLiteDB.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace {

const QString kTool = QStringLiteral(OMBRELO_BIN_DIR "/ombrelo-mkdevice");

ProgramResult mkdevice(const QStringList& arguments, int timeoutSeconds = 120)
{
    return runProgram(kTool, arguments, timeoutSeconds);
}

// Copies the phone's database (with its log and shared-memory file) into `folder`, so that
// opening it cannot touch what the tool wrote.
QString copyDatabase(const QString& deviceFolder, const QString& folder)
{
    QDir().mkpath(folder);
    for (const QString name : {"Photos.sqlite", "Photos.sqlite-wal", "Photos.sqlite-shm"}) {
        const QString source = deviceFolder + "/media/PhotoData/" + name;
        if (!QFile::copy(source, folder + "/" + name))
            throw std::runtime_error(("cannot copy " + source).toStdString());
    }
    return folder + "/Photos.sqlite";
}

int64_t scalar(SQLiteDB& db, const QString& sql, const std::vector<SQLValue>& params = {})
{
    int64_t value = -1;
    db.query(sql, params, [&](const SQLRow& row) { value = row.integer(0).value_or(-1); });
    return value;
}

QStringList texts(SQLiteDB& db, const QString& sql)
{
    QStringList values;
    db.query(sql, {}, [&](const SQLRow& row) { values << row.text(0).value_or("<null>"); });
    return values;
}

QJsonObject readKey(const QString& path) { return QJsonDocument::fromJson(readFile(path)).object(); }

// Every file under `root`, as device paths ("/DCIM/100APPLE/IMG_0001.HEIC").
QSet<QString> filesUnder(const QString& media, const QString& root)
{
    QSet<QString> files;
    QDirIterator it(media + root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.insert(it.next().mid(media.size()));
    return files;
}

// Walks the top-level boxes of an ISO base media file; true when they cover it exactly.
bool boxesCoverFile(const QByteArray& bytes, int64_t fileSize, QStringList* types)
{
    int64_t at = 0;
    while (at + 8 <= bytes.size()) {
        const auto* p = reinterpret_cast<const uchar*>(bytes.constData() + at);
        const int64_t size = (int64_t(p[0]) << 24) | (p[1] << 16) | (p[2] << 8) | p[3];
        *types << QString::fromLatin1(bytes.mid(at + 4, 4));
        if (size < 8)
            return false;
        at += size;
    }
    return at == fileSize;
}

} // namespace

TEST(Mkdevice, SameSeedGivesTheSameBytes)
{
    TempDir dir;
    const QStringList common = {"--assets", "90", "--generation", "ios18"};
    ASSERT_EQ(mkdevice(QStringList{dir.filePath("a")} + common).exitCode, 0);
    ASSERT_EQ(mkdevice(QStringList{dir.filePath("b")} + common).exitCode, 0);
    ASSERT_EQ(mkdevice(QStringList{dir.filePath("c"), "--seed", "7"} + common).exitCode, 0);

    const QSet<QString> a = filesUnder(dir.filePath("a"), "");
    EXPECT_EQ(a, filesUnder(dir.filePath("b"), ""));
    EXPECT_GT(a.size(), 200);
    for (const QString& path : a)
        EXPECT_EQ(readFile(dir.filePath("a") + path), readFile(dir.filePath("b") + path)) << path.toStdString();
    // The log's random salts included: the database is reproducible to the byte.
    EXPECT_TRUE(a.contains("/media/PhotoData/Photos.sqlite-wal"));

    EXPECT_NE(readFile(dir.filePath("a/media/PhotoData/Photos.sqlite")),
              readFile(dir.filePath("c/media/PhotoData/Photos.sqlite")));
    const QJsonObject deviceA = QJsonDocument::fromJson(readFile(dir.filePath("a/device.json"))).object();
    const QJsonObject deviceC = QJsonDocument::fromJson(readFile(dir.filePath("c/device.json"))).object();
    EXPECT_TRUE(QRegularExpression("^[0-9a-f]{40}$").match(deviceA["udid"].toString()).hasMatch());
    EXPECT_NE(deviceA["udid"], deviceC["udid"]);
}

struct Layout {
    const char* generation;
    const char* assetTable;
    int64_t album;
    int64_t assetColumnEntity; // GenericAsset while it exists, else Asset
    int64_t folder;
    bool bundleScope;
    bool adjustmentsFlag;
    bool adjustmentsState;
    const char* corpus; // a real database of the same year, or empty
};

TEST(Mkdevice, EachGenerationHasItsDatabaseLayout)
{
    const Layout layouts[] = {
        {"ios12", "ZGENERICASSET", 23, 30, 28, false, true, false, ""},
        {"ios13", "ZGENERICASSET", 26, 34, 32, false, true, false, "osxphotos-10.15.7"},
        {"ios14", "ZASSET", 26, 3, 32, false, true, false, "osxphotos-10.16.0.1"},
        {"ios15", "ZASSET", 27, 3, 34, true, true, false, "osxphotos-12.0.1"},
        {"ios16", "ZASSET", 28, 3, 36, true, true, false, "osxphotos-13.0.0"},
        {"ios17", "ZASSET", 29, 3, 37, true, true, false, "osxphotos-14.6.0"},
        {"ios18", "ZASSET", 30, 3, 38, true, false, true, "osxphotos-15.4.1"},
        {"ios26", "ZASSET", 33, 3, 41, true, false, true, "osxphotos-26.1"},
    };
    TempDir dir;
    for (const Layout& layout : layouts) {
        SCOPED_TRACE(layout.generation);
        const QString device = dir.filePath(layout.generation);
        const ProgramResult run =
            mkdevice({device, "--generation", layout.generation, "--assets", "50", "--files", "none"});
        ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
        SQLiteDB db(copyDatabase(device, dir.filePath(QString(layout.generation) + "-copy")), false, false);

        const QString assetTable = layout.assetTable;
        const QString otherTable = assetTable == "ZASSET" ? "ZGENERICASSET" : "ZASSET";
        EXPECT_EQ(scalar(db, "SELECT count(*) FROM " + assetTable), 50);
        EXPECT_TRUE(db.columns(otherTable).isEmpty());
        EXPECT_EQ(scalar(db, "SELECT Z_ENT FROM Z_PRIMARYKEY WHERE Z_NAME = 'Album'"), layout.album);
        EXPECT_EQ(scalar(db, "SELECT Z_ENT FROM Z_PRIMARYKEY WHERE Z_NAME = 'Folder'"), layout.folder);
        EXPECT_EQ(scalar(db, "SELECT count(*) FROM Z_PRIMARYKEY WHERE Z_NAME = 'GenericAsset'"),
                  assetTable == "ZGENERICASSET" ? 1 : 0);

        const QString join = QString("Z_%1ASSETS").arg(layout.album);
        const QString assetColumn = QString("Z_%1ASSETS").arg(layout.assetColumnEntity);
        EXPECT_EQ(db.columns(join),
                  (QSet<QString>{QString("Z_%1ALBUMS").arg(layout.album), assetColumn, "Z_FOK_" + assetColumn.mid(2)}));
        EXPECT_GT(scalar(db, "SELECT count(*) FROM " + join), 20);
        // Other tables whose names end in ASSETS are there to mislead a careless search.
        EXPECT_GE(scalar(db, "SELECT count(*) FROM sqlite_master WHERE type='table' AND name GLOB 'Z_[0-9]*ASSETS'"),
                  3);

        const QSet<QString> columns = db.columns(assetTable);
        for (const char* required : {"Z_PK", "ZUUID", "ZDIRECTORY", "ZFILENAME", "ZDATECREATED", "ZTRASHEDSTATE",
                                     "ZHIDDEN", "ZKIND", "ZKINDSUBTYPE", "ZSAVEDASSETTYPE", "ZADJUSTMENTTIMESTAMP"})
            EXPECT_TRUE(columns.contains(required)) << required;
        EXPECT_EQ(columns.contains("ZBUNDLESCOPE"), layout.bundleScope);
        EXPECT_EQ(columns.contains("ZHASADJUSTMENTS"), layout.adjustmentsFlag);
        EXPECT_EQ(columns.contains("ZADJUSTMENTSSTATE"), layout.adjustmentsState);
        EXPECT_EQ(scalar(db, "SELECT count(*) FROM ZADDITIONALASSETATTRIBUTES x JOIN " + assetTable +
                                 " a ON x.ZASSET = a.Z_PK"),
                  50);
        EXPECT_GT(scalar(db, "SELECT count(*) FROM ZADDITIONALASSETATTRIBUTES WHERE ZORIGINALFILENAME IS NOT NULL"),
                  40);

        // Built-in albums beside the user's: the root folder that top-level albums point to,
        // shared albums and import sessions outside it, smart albums without members.
        const int64_t root = scalar(db, "SELECT Z_PK FROM ZGENERICALBUM WHERE ZKIND = 3999 AND ZPARENTFOLDER IS NULL");
        EXPECT_GT(root, 0);
        EXPECT_EQ(scalar(db, "SELECT count(*) FROM ZGENERICALBUM WHERE ZKIND IN (2, 4000) AND ZPARENTFOLDER IS NULL"),
                  0);
        EXPECT_GT(scalar(db, "SELECT count(*) FROM ZGENERICALBUM WHERE ZKIND IN (2, 4000) AND ZPARENTFOLDER = ?",
                         {SQLValue(root)}),
                  10);
        EXPECT_EQ(
            scalar(
                db,
                "SELECT count(*) FROM ZGENERICALBUM a JOIN ZGENERICALBUM f ON a.ZPARENTFOLDER = f.Z_PK "
                "JOIN ZGENERICALBUM g ON f.ZPARENTFOLDER = g.Z_PK WHERE a.ZKIND = 2 AND f.ZKIND = 4000 AND g.ZKIND = 4000"),
            2); // Travel/Europe/Paris and Rome
        EXPECT_EQ(scalar(db, "SELECT count(*) FROM ZGENERICALBUM WHERE ZKIND = 1505 AND ZPARENTFOLDER IS NULL"), 2);
        EXPECT_GT(scalar(db, "SELECT count(*) FROM ZGENERICALBUM WHERE ZKIND = 1506"), 0);
        EXPECT_GT(scalar(db, "SELECT count(*) FROM ZGENERICALBUM WHERE ZKIND = 1507 OR ZKIND BETWEEN 1600 AND 1699"),
                  0);
        EXPECT_EQ(scalar(db, "SELECT count(*) FROM " + join + " j JOIN ZGENERICALBUM g ON g.Z_PK = j.Z_" +
                                 QString::number(layout.album) + "ALBUMS WHERE g.ZKIND <> 2 AND g.ZKIND <> 1505"),
                  0);
        EXPECT_EQ(texts(db, "SELECT Z_ENT FROM ZGENERICALBUM WHERE ZKIND = 4000 LIMIT 1"),
                  QStringList{QString::number(layout.folder)});

        // The entity table matches a real database of the same year, entity for entity.
        if (*layout.corpus) {
            const QString corpus = QStringLiteral(OMBRELO_SHARED_DIR "/corpus/photos-db/") + layout.corpus;
            const QString copy = dir.filePath(QString(layout.corpus));
            QDir().mkpath(copy);
            for (const QString& name : QDir(corpus).entryList(QDir::Files))
                QFile::copy(corpus + "/" + name, copy + "/" + name);
            SQLiteDB real(copy + "/Photos.sqlite", false, false);
            const QString entities = "SELECT Z_ENT || ' ' || Z_NAME || ' ' || Z_SUPER FROM Z_PRIMARYKEY ORDER BY Z_ENT";
            EXPECT_EQ(texts(db, entities), texts(real, entities));
        }
    }

    // Before 17.6 iOS 17 numbered Album one lower.
    const QString early = dir.filePath("ios17.5");
    ASSERT_EQ(
        mkdevice({early, "--generation", "ios17", "--version", "17.5.1", "--assets", "5", "--files", "none"}).exitCode,
        0);
    SQLiteDB db(copyDatabase(early, dir.filePath("ios17.5-copy")), false, false);
    EXPECT_EQ(scalar(db, "SELECT Z_ENT FROM Z_PRIMARYKEY WHERE Z_NAME = 'Album'"), 28);
    EXPECT_FALSE(db.columns("Z_28ASSETS").isEmpty());
}

namespace {

QString stemOf(const QString& name)
{
    const qsizetype dot = name.lastIndexOf('.');
    return dot > 0 ? name.left(dot) : name;
}

QString extensionOf(const QString& name)
{
    const qsizetype dot = name.lastIndexOf('.');
    return dot > 0 ? name.mid(dot + 1) : QString();
}

// True when the bytes are a well-formed file of the kind the name says.
bool looksValid(const QString& name, const QByteArray& bytes)
{
    const QString ext = extensionOf(name).toLower();
    QStringList boxes;
    if (ext == "jpg" || ext == "jpeg")
        return bytes.startsWith("\xFF\xD8\xFF") && bytes.endsWith("\xFF\xD9");
    if (ext == "png")
        return bytes.startsWith("\x89PNG\r\n\x1A\n") && bytes.contains("IEND");
    if (ext == "heic")
        return bytes.mid(4, 8) == "ftypheic" && boxesCoverFile(bytes, bytes.size(), &boxes) && boxes.endsWith("mdat") &&
               boxes.contains("meta");
    if (ext == "mov")
        return bytes.mid(4, 8) == "ftypqt  " && boxesCoverFile(bytes, bytes.size(), &boxes) && boxes.contains("moov") &&
               boxes.endsWith("mdat");
    if (ext == "aae")
        return bytes.startsWith("<?xml") && bytes.contains("<plist") && bytes.contains("adjustmentFormatIdentifier");
    if (ext == "plist")
        return bytes.startsWith("bplist00");
    return false;
}

} // namespace

TEST(Mkdevice, AnswerKeyDescribesWhatThePhoneHolds)
{
    TempDir dir;
    const QString device = dir.filePath("phone");
    const QString media = device + "/media";
    const ProgramResult run = mkdevice({device, "--assets", "200", "--answer-key", dir.filePath("key.json")});
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    EXPECT_TRUE(run.out.contains("200 items")) << run.out.toStdString();
    const QJsonObject key = readKey(dir.filePath("key.json"));
    EXPECT_EQ(key["generation"].toString(), "ios26");
    const QJsonArray assets = key["assets"].toArray();
    const QJsonArray albums = key["albums"].toArray();
    ASSERT_EQ(assets.size(), 200);

    // (That the database says what the key says, PhotoLibraryGenerationsIntegrationTest checks.)
    // The files: exactly the key's components and unknown files, each with its hash, each valid
    // for its kind. (That they are the files the backup takes for each item: BackupEndToEnd.)
    QSet<QString> known;
    for (const QJsonValue& value : assets)
        known.insert(value["directory"].toString() + "/" + value["filename"].toString());
    QSet<QString> listed;
    QMap<QString, QSet<QString>> originalsByHash;
    QSet<QString> categories;
    QSet<QString> components;
    for (const QJsonValue& value : assets) {
        const QJsonObject asset = value.toObject();
        categories.insert(asset["category"].toString());
        QStringList parts;
        for (const QJsonValue& file : asset["files"].toArray()) {
            const QString path = file["path"].toString();
            const DownloadResult actual = sha256OfFile(media + path);
            EXPECT_EQ(actual.sha256, file["sha256"].toString()) << path.toStdString();
            EXPECT_EQ(qint64(actual.size), file["size"].toInteger()) << path.toStdString();
            EXPECT_TRUE(looksValid(path, readFile(media + path))) << path.toStdString();
            parts << file["component"].toString() + " " + path;
            listed.insert(path);
            components.insert(file["component"].toString());
            if (file["component"] == "original")
                originalsByHash[file["sha256"].toString()].insert(path);
        }
        const bool onDevice = asset["category"] != "iCloudOnly";
        EXPECT_EQ(QFileInfo::exists(media + "/" + asset["directory"].toString() + "/" + asset["filename"].toString()),
                  onDevice);
        EXPECT_EQ(parts.isEmpty(), !onDevice);
        const QString thumbnail = media + "/PhotoData/Thumbnails/V2/" + asset["directory"].toString() + "/" +
                                  asset["filename"].toString() + "/5005.JPG";
        EXPECT_TRUE(looksValid(thumbnail, readFile(thumbnail))) << thumbnail.toStdString();
    }
    QSet<QString> unknown;
    for (const QJsonValue& value : key["unknownFiles"].toArray())
        unknown.insert(value.toString());
    EXPECT_EQ(unknown.size(), 3);
    EXPECT_TRUE((listed & unknown).isEmpty());
    QSet<QString> onDisk = filesUnder(media, "/DCIM");
    for (const QString root : {"/PhotoData/CPLAssets", "/PhotoData/PhotoCloudSharingData", "/PhotoData/Mutations"})
        onDisk += filesUnder(media, root);
    EXPECT_EQ(onDisk, listed + unknown);
    for (const QString& path : unknown) {
        EXPECT_FALSE(known.contains(QFileInfo(path.mid(1)).path() + "/" + QFileInfo(path).fileName()));
        for (const QString& file : known)
            EXPECT_FALSE(QFileInfo(file).path() == QFileInfo(path.mid(1)).path() &&
                         stemOf(QFileInfo(file).fileName()) == stemOf(QFileInfo(path).fileName()));
    }

    // Every situation the backup has to handle is there.
    EXPECT_EQ(categories,
              (QSet<QString>{"library", "trashed", "sharedWithYou", "sharedAlbum", "otherLibrary", "iCloudOnly"}));
    EXPECT_EQ(components, (QSet<QString>{"original", "live-video", "aae", "edited", "edited-live-video", "edited-still",
                                         "adjustments"}));
    EXPECT_TRUE(std::any_of(originalsByHash.begin(), originalsByHash.end(), [](const QSet<QString>& paths) {
        return paths.size() == 2;
    })) << "the same picture imported twice";
    QHash<QString, QSet<QString>> directoriesByName;
    QHash<QString, int> stemsInDirectory;
    int hiddenInLibrary = 0;
    int inSeveralAlbums = 0;
    for (const QJsonValue& value : assets) {
        directoriesByName[value["filename"].toString()].insert(value["directory"].toString());
        ++stemsInDirectory[value["directory"].toString() + "/" + stemOf(value["filename"].toString())];
        hiddenInLibrary += value["isHidden"].toBool() && value["category"] == "library";
        inSeveralAlbums += value["albums"].toArray().size() >= 2;
    }
    EXPECT_TRUE(std::any_of(directoriesByName.begin(), directoriesByName.end(), [](const auto& dirs) {
        return dirs.size() == 2;
    })) << "the same file name in two camera folders";
    EXPECT_TRUE(std::any_of(stemsInDirectory.begin(), stemsInDirectory.end(), [](int n) { return n == 2; }));
    EXPECT_GE(hiddenInLibrary, 2);
    EXPECT_GE(inSeveralAlbums, 3);

    QStringList titles;
    QSet<QString> parents;
    QSet<QString> withMembers;
    for (const QJsonValue& value : assets) {
        for (const QJsonValue& album : value["albums"].toArray())
            withMembers.insert(album.toString());
    }
    int emptyAlbums = 0;
    for (const QJsonValue& value : albums) {
        if (value["kind"] == 2 || value["kind"] == 4000)
            titles << value["title"].toString();
        parents.insert(value["parentUUID"].toString());
        emptyAlbums += value["kind"] == 2 && !withMembers.contains(value["uuid"].toString());
    }
    EXPECT_TRUE(titles.contains("Family") && titles.contains("family"));
    EXPECT_TRUE(std::any_of(titles.begin(), titles.end(),
                            [](const QString& t) { return t.contains('/') && t.contains(':') && t.contains('|'); }));
    EXPECT_TRUE(std::any_of(titles.begin(), titles.end(),
                            [](const QString& t) { return t.contains('\n') && t.contains('\t'); }));
    EXPECT_TRUE(std::any_of(titles.begin(), titles.end(), [](const QString& t) { return t.startsWith('.'); }));
    EXPECT_GE(emptyAlbums, 1);
    EXPECT_TRUE(std::any_of(albums.begin(), albums.end(), [&](const QJsonValue& v) {
        return v["kind"] == 4000 && !v["isTrashed"].toBool() && !parents.contains(v["uuid"].toString());
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
    const ProgramResult run = mkdevice(
        {dir.filePath("phone"), "--assets", "120", "--thumbnails", "mixed", "--answer-key", dir.filePath("key.json")});
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();

    int keptAs5003 = 0;
    QSet<QByteArray> pictures;
    QSet<QString> shapes;
    for (const QJsonValue& value : readKey(dir.filePath("key.json"))["assets"].toArray()) {
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
    const ProgramResult sparse = mkdevice({dir.filePath("sparse"), "--assets", "4", "--files", "sparse", "--thumbnails",
                                           "5003", "--answer-key", dir.filePath("sparse.json")});
    ASSERT_EQ(sparse.exitCode, 0) << sparse.describe().toStdString();
    for (const QJsonValue& value : readKey(dir.filePath("sparse.json"))["assets"].toArray()) {
        const QString path = dir.filePath("sparse/media") + value["thumbnail"].toString();
        EXPECT_TRUE(path.endsWith("/5003.JPG") && readFile(path).endsWith("\xFF\xD9")) << path.toStdString();
    }
}

TEST(Mkdevice, SparseFilesHaveRealisticSizesOnLittleDisk)
{
    TempDir dir;
    const QString device = dir.filePath("phone");
    const QString media = device + "/media";
    const ProgramResult run =
        mkdevice({device, "--assets", "300", "--files", "sparse", "--answer-key", dir.filePath("key.json")});
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    const QJsonArray assets = readKey(dir.filePath("key.json"))["assets"].toArray();

    int64_t apparent = 0;
    int64_t allocated = 0;
    int64_t largestVideo = 0;
    int checked = 0;
    for (const QJsonValue& value : assets) {
        for (const QJsonValue& file : value["files"].toArray()) {
            const QString path = file["path"].toString();
            const QString component = file["component"].toString();
            struct stat info {};
            ASSERT_EQ(::stat(QFile::encodeName(media + path).constData(), &info), 0) << path.toStdString();
            EXPECT_EQ(int64_t(info.st_size), file["size"].toInteger()) << path.toStdString();
            apparent += info.st_size;
            allocated += int64_t(info.st_blocks) * 512;
            const QString ext = extensionOf(path).toLower();
            if (value["isVideo"].toBool() && (component == "original" || component == "edited")) {
                EXPECT_GE(info.st_size, 3'000'000) << path.toStdString();
                largestVideo = std::max<int64_t>(largestVideo, info.st_size);
            } else if (component == "original" || component == "edited" || component == "live-video") {
                EXPECT_GE(info.st_size, 400'000) << path.toStdString();
                EXPECT_LE(info.st_size, 5'000'000) << path.toStdString();
            }
            // The head is a real file of its kind; the data box runs to the end of the file.
            QFile f(media + path);
            ASSERT_TRUE(f.open(QIODevice::ReadOnly));
            const QByteArray head = f.read(8192);
            QStringList boxes;
            if (ext == "heic" || ext == "mov") {
                EXPECT_TRUE(boxesCoverFile(head, info.st_size, &boxes) && boxes.last() == "mdat") << path.toStdString();
            } else if (ext == "jpg") {
                EXPECT_TRUE(head.startsWith("\xFF\xD8\xFF")) << path.toStdString();
            }
            if (++checked % 40 == 0) { // hashing every byte of every file would be slow
                EXPECT_EQ(sha256OfFile(media + path).sha256, file["sha256"].toString()) << path.toStdString();
            }
        }
    }
    EXPECT_GT(largestVideo, 20'000'000);
    EXPECT_GT(apparent, int64_t(300) * 2'000'000);
    EXPECT_LT(allocated, apparent / 50) << "sparse files must take little disk";
    EXPECT_FALSE(QFileInfo::exists(media + "/PhotoData/Thumbnails/V2"));
}

TEST(Mkdevice, AHundredThousandItemsInSeconds)
{
    TempDir dir;
    const QString device = dir.filePath("big");
    QElapsedTimer timer;
    timer.start();
    const ProgramResult run = mkdevice({device, "--assets", "100000", "--files", "none"});
    const qint64 elapsed = timer.elapsed();
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    // A sanity bound for a loaded two-core machine; it takes a few seconds.
    EXPECT_LT(elapsed, 60'000);
    RecordProperty("milliseconds", int(elapsed));

    SQLiteDB db(copyDatabase(device, dir.filePath("copy")), false, false);
    EXPECT_EQ(scalar(db, "SELECT count(*) FROM ZASSET"), 100000);
    EXPECT_LE(scalar(db, "SELECT max(n) FROM (SELECT count(*) AS n FROM ZASSET GROUP BY ZDIRECTORY)"), 1000);
    EXPECT_GE(
        scalar(db, "SELECT count(DISTINCT ZDIRECTORY) FROM ZASSET WHERE ZDIRECTORY GLOB 'DCIM/[1-9][0-9][0-9]APPLE'"),
        80);
    // Camera numbers wrap after IMG_9999, so names repeat in later folders.
    EXPECT_GT(
        scalar(
            db,
            "SELECT count(*) FROM (SELECT ZFILENAME FROM ZASSET GROUP BY ZFILENAME HAVING count(DISTINCT ZDIRECTORY) > 1)"),
        1000);
    EXPECT_GT(scalar(db, "SELECT count(*) FROM Z_33ASSETS"), 20000);
    EXPECT_EQ(scalar(db, "SELECT count(*) FROM ZGENERICALBUM WHERE ZKIND = 2"), 220);
}

TEST(Mkdevice, RefusesWhatItCannotDoInFullSentences)
{
    TempDir dir;
    writeFile(dir.filePath("used/mine.txt"), "keep me");
    ProgramResult run = mkdevice({dir.filePath("used")});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_TRUE(run.err.contains("is not empty; give a new or empty folder")) << run.err.toStdString();
    EXPECT_EQ(readFile(dir.filePath("used/mine.txt")), "keep me");
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("used/media")));

    run = mkdevice({dir.filePath("a"), "--generation", "ios11"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains(
        "“ios11” is not a generation this tool knows; use one of ios12, ios13, ios14, ios15, ios16, ios17, ios18, ios26."))
        << run.err.toStdString();
    run = mkdevice({dir.filePath("b"), "--generation", "ios17", "--version", "16.1"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains("The version “16.1” does not belong to ios17")) << run.err.toStdString();
    run = mkdevice({dir.filePath("c"), "--files", "fast"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains("--files takes none, sparse or real, not “fast”.")) << run.err.toStdString();
    run = mkdevice({dir.filePath("d"), "--udid", "xyz"});
    EXPECT_EQ(run.exitCode, 2);
    run = mkdevice({dir.filePath("e"), "--files", "none", "--thumbnails", "5003"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains("--thumbnails needs media files; --files none writes the database only."))
        << run.err.toStdString();
    run = mkdevice({"--assets", "10"});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_TRUE(run.err.contains("Give the folder to write the device into.")) << run.err.toStdString();
    for (const char* name : {"a", "b", "c", "d", "e"})
        EXPECT_FALSE(QFileInfo::exists(dir.filePath(name))) << name;

    run = mkdevice({"--help"});
    EXPECT_EQ(run.exitCode, 0);
    EXPECT_TRUE(run.out.startsWith("Usage: ombrelo-mkdevice OUT [options]"));
    EXPECT_TRUE(run.out.contains("Album is entity 33")) << "the help names the choices it made";

    // Given identity values reach device.json as they are.
    run = mkdevice({dir.filePath("named"), "--assets", "3", "--files", "none", "--name", "Anna’s iPad", "--udid",
                    "00008103-001A2B3C4D5E6F70", "--product-type", "iPad13,4", "--generation", "ios15"});
    ASSERT_EQ(run.exitCode, 0) << run.describe().toStdString();
    const QJsonObject device = QJsonDocument::fromJson(readFile(dir.filePath("named/device.json"))).object();
    EXPECT_EQ(device["name"].toString(), "Anna’s iPad");
    EXPECT_EQ(device["udid"].toString(), "00008103-001A2B3C4D5E6F70");
    EXPECT_EQ(device["productType"].toString(), "iPad13,4");
    EXPECT_EQ(device["productVersion"].toString(), "15.8.3");
}
