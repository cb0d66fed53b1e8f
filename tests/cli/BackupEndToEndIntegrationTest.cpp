// The whole backup through the real programs: ombrelo-mkdevice makes a phone and its answer key,
// ombrelo-devicesim serves it over the usbmuxd protocol, ombrelo-cli backs it up into a real folder.
// Every expectation comes from the answer key or is written out here, never from the product's own
// plan or naming; only the album folders' paths are read from `ombrelo-cli tree --json`.
#include "FolderSnapshot.h"
#include "PhoneBackup.h"
#include "PhotosDatabases.h"
#include "QtPrinters.h"
#include "TempDir.h"
#include "backup/Manifest.h"
#include "device/StreamingHasher.h"
#include "library/SQLiteDB.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <gtest/gtest.h>

#include <memory>

namespace {

using Asset = PhoneAnswerKey::Asset;
using File = PhoneAnswerKey::File;

// What `ombrelo-cli tree --json --dest` shows: the folder of each album, the folders of the leaves
// holding each item, what each leaf counts as backed up, and the items left out by reason.
struct Tree {
    QHash<QString, QString> albumPaths;
    QHash<QString, QSet<QString>> foldersOfAsset;
    QHash<QString, int> backedUp;
    QMap<QString, int> skipped;

    Tree(const PhoneBackup& phone, const QString& dest)
    {
        const ProgramResult shown = phone.cli({"tree", "--json", "--dest", dest});
        if (shown.exitCode != 0)
            throw std::runtime_error(("tree failed: " + shown.describe()).toStdString());
        const QJsonObject root = QJsonDocument::fromJson(shown.out).object();
        for (const QJsonValue& node : root["topLevelNodes"].toArray())
            add(node.toObject());
        const QJsonObject reasons = root["skipped"].toObject();
        for (auto it = reasons.begin(); it != reasons.end(); ++it)
            skipped.insert(it.key(), it.value().toInt());
    }

    void add(const QJsonObject& node)
    {
        for (const QJsonValue& child : node["children"].toArray())
            add(child.toObject());
        if (node["kind"] == "folder")
            return;
        const QString path = node["relativePath"].toString();
        if (node["kind"] == "album")
            albumPaths.insert(node["id"].toString(), path);
        for (const QJsonValue& uuid : node["assetUUIDs"].toArray())
            foldersOfAsset[uuid.toString()].insert(path);
        backedUp.insert(path, node["backedUp"].toInt(-1));
    }
};

bool isEligible(const Asset& asset) { return asset.category == "library" || asset.category == "iCloudOnly"; }

// The folders an eligible item belongs in, from the answer key: Hidden for a hidden item, else
// the folders of its albums (live, non-trashed user albums), else Camera Roll.
QSet<QString> expectedFolders(const PhoneAnswerKey& key, const Asset& asset, const Tree& tree)
{
    if (asset.isHidden)
        return {"Hidden"};
    QSet<QString> folders;
    for (const QString& uuid : asset.albums) {
        const PhoneAnswerKey::Album* album = key.album(uuid);
        if (album && album->kind == 2 && !album->isTrashed)
            folders.insert(tree.albumPaths.value(uuid, "(album " + uuid + " missing from the tree)"));
    }
    return folders.isEmpty() ? QSet<QString>{"Camera Roll"} : folders;
}

// The name of a file of `asset` in a folder: the item's name without its extension (" (2)", " (3)",
// … when the folder already held it), "_edited" for an edit, the extension of the phone's file;
// adjustment data "<name>.AAE.plist". The phone's names are plain (checked), so none is changed.
QRegularExpression expectedName(const Asset& asset, const File& file)
{
    const QString ext = file.path.section('.', -1);
    const QString suffix = file.component == "adjustments"       ? QString(".AAE.plist")
                           : file.component.startsWith("edited") ? "_edited." + ext
                                                                 : "." + ext;
    return QRegularExpression("^" + QRegularExpression::escape(asset.displayName().section('.', 0, -2)) +
                              "( \\(\\d+\\))?" + QRegularExpression::escape(suffix) + "$");
}

// A backup of the whole phone as the answer key says it must be.
struct ExpectedBackup {
    struct Row {
        const Asset* asset;
        const File* file;
    };
    QHash<QString, Row> rows;            // "asset uuid|folder|component" → what that row records
    QHash<QString, QSet<QString>> items; // folder → the items backed up into it
    QSet<QString> folders;               // the folders made, with every level above them
    int filesToCopy = 0;                 // files on the phone, once however many folders
    QStringList notOnDevice;             // display names
    QMap<QString, int> skipped;

    ExpectedBackup(const PhoneAnswerKey& key, const Tree& tree)
    {
        static const QMap<QString, QString> reasons{{"trashed", "Recently Deleted"},
                                                    {"sharedWithYou", "Shared with You (Messages)"},
                                                    {"sharedAlbum", "iCloud Shared Albums"},
                                                    {"otherLibrary", "Other library scope"}};
        for (const QString& reason : reasons)
            skipped.insert(reason, 0);
        for (const Asset& asset : key.assets) {
            if (!isEligible(asset)) {
                skipped[reasons.value(asset.category, "unknown category " + asset.category)] += 1;
                continue;
            }
            if (asset.category == "iCloudOnly") {
                notOnDevice << asset.displayName();
                continue;
            }
            for (const QString& folder : expectedFolders(key, asset, tree)) {
                for (const File& file : asset.files)
                    rows.insert(asset.uuid + "|" + folder + "|" + file.component, {&asset, &file});
                items[folder].insert(asset.uuid);
                for (QString level = folder; !level.isEmpty(); level = level.section('/', 0, -2))
                    folders.insert(level);
            }
            filesToCopy += asset.files.size();
        }
    }
};

// Checks that `dest` holds exactly the expected backup, and returns how many files it holds. The
// manifest has one row per item, folder and file, with the phone's content; each content is stored
// once in a folder (a "duplicate" row names the file that holds it), under the name of the item
// that brought it, dated with that item's capture date. Nothing else is in the folder but the
// manifest: no temporary folder, lock or partial file.
int expectBackupHolds(const QString& dest, const ExpectedBackup& expected)
{
    const ManifestRows rows = readManifestRows(dest);
    EXPECT_EQ(rows.size(), expected.rows.size());
    QHash<QString, QHash<QString, QString>> stored; // folder → content → the file holding it
    for (const ManifestRow& row : rows) {
        SCOPED_TRACE(testing::PrintToString(row));
        const auto found = expected.rows.constFind(row.assetUUID + "|" + row.dest + "|" + row.component);
        if (found == expected.rows.cend()) {
            ADD_FAILURE() << "unexpected row";
            continue;
        }
        const Asset& asset = *found->asset;
        EXPECT_EQ(row.sha256, found->file->sha256);
        EXPECT_EQ(row.size, found->file->size);
        EXPECT_EQ(row.sourcePath, found->file->path);
        EXPECT_EQ(row.captureDate.has_value(), asset.dateCreated.has_value());
        EXPECT_EQ(row.relPath.section('/', 0, -2), row.dest);
        const QString path = dest + "/" + row.relPath;
        EXPECT_EQ(sha256OfFile(path).sha256, row.sha256);
        if (row.status != "copied")
            continue;
        EXPECT_FALSE(stored[row.dest].contains(row.sha256)) << "the same content twice in one folder";
        stored[row.dest].insert(row.sha256, row.relPath);
        EXPECT_TRUE(expectedName(asset, *found->file).match(row.relPath.section('/', -1)).hasMatch())
            << "not named after " << asset.displayName();
        if (const auto date = asset.captureDate()) {
            const QDateTime modified = QFileInfo(path).lastModified();
            EXPECT_LT(std::llabs(modified.msecsTo(*date)), 2000)
                << "dated " << modified.toString(Qt::ISODate) << ", captured " << date->toString(Qt::ISODate);
        }
    }
    QSet<QString> files;
    for (const ManifestRow& row : rows) {
        EXPECT_TRUE(row.status == "copied" ||
                    (row.status == "duplicate" && stored[row.dest].value(row.sha256) == row.relPath))
            << testing::PrintToString(row);
        files.insert(row.relPath);
    }
    FolderSnapshot onDisk = FolderSnapshot::take(dest);
    onDisk.files.remove(Manifest::fileName);
    EXPECT_EQ(QSet<QString>(onDisk.files.keyBegin(), onDisk.files.keyEnd()), files);
    for (auto it = onDisk.others.cbegin(); it != onDisk.others.cend(); ++it)
        EXPECT_TRUE(*it == "folder" && expected.folders.contains(it.key())) << "unexpected " << it.key();
    return int(files.size());
}

class BackupEndToEnd : public testing::TestWithParam<const char*> {};

TEST_P(BackupEndToEnd, EveryItemInEachOfItsFoldersThenNothingTwice)
{
    const PhoneBackup phone({"--generation", GetParam(), "--assets", "60", "--seed", "5", "--files", "real"});
    const TempDir dir;
    const QString dest = dir.path();
    const ProgramResult first = phone.cli({"backup", dest, "--all", "--include-hidden", "--yes"});
    const Tree tree(phone, dest);
    const PhoneAnswerKey& key = phone.answerKey();
    const ExpectedBackup expected(key, tree);
    ASSERT_GT(expected.items.size(), 5) << "a phone with albums";
    ASSERT_GT(expected.notOnDevice.size(), 0) << "a phone with items only in iCloud";

    // The tree places each eligible item where the answer key says, and counts the rest.
    static const QRegularExpression plain("^(?! )[^./\\\\:*?\"<>|\\x00-\\x1f]{1,100}(?<! )\\.[A-Za-z0-9]+$");
    for (const Asset& asset : key.assets) {
        SCOPED_TRACE((asset.displayName() + " " + asset.uuid + " " + asset.category).toStdString());
        ASSERT_TRUE(plain.match(asset.displayName()).hasMatch()) << "a name this test does not expect to be kept";
        if (isEligible(asset))
            EXPECT_EQ(tree.foldersOfAsset.value(asset.uuid), expectedFolders(key, asset, tree));
        else
            EXPECT_FALSE(tree.foldersOfAsset.contains(asset.uuid));
    }
    EXPECT_EQ(tree.skipped, expected.skipped);

    // The run: the dry run's count first, the summary last.
    EXPECT_EQ(first.exitCode, 0) << first;
    EXPECT_EQ(first.lines("ERROR ").join("\n"), "");
    EXPECT_TRUE(first.out.contains("\n  Would copy: " + QByteArray::number(expected.filesToCopy) + " files")) << first;
    const int files = expectBackupHolds(dest, expected);
    QStringList summary{"Already backed up: 0"};
    if (expected.rows.size() > files)
        summary << "Identical to a file already in the folder (not copied again): " +
                       QString::number(expected.rows.size() - files);
    summary << "Not stored on the device (iCloud only?): " + QString::number(expected.notOnDevice.size());
    const QStringList output = first.lines();
    EXPECT_EQ(output.mid(output.size() - summary.size()), summary) << first;
    EXPECT_TRUE(
        output.value(output.size() - summary.size() - 1).startsWith("Files copied: " + QString::number(files) + " ("))
        << first;
    for (const QString& name : expected.notOnDevice)
        EXPECT_EQ(first.lines("Not on device, skipped: " + name + " (").size(), expected.notOnDevice.count(name))
            << name;
    // What the tree counts as backed up now: every item on the phone in each of its folders.
    for (auto folder = expected.items.cbegin(); folder != expected.items.cend(); ++folder)
        EXPECT_EQ(tree.backedUp.value(folder.key()), folder->size()) << folder.key();

    const ProgramResult verified = phone.cli({"verify", dest});
    EXPECT_EQ(verified.exitCode, 0) << verified;
    EXPECT_TRUE(verified.out.contains(" intact, 0 missing, 0 changed")) << verified;

    // The same backup again: nothing copied, nothing changed, everything reported done.
    const FolderSnapshot before = FolderSnapshot::take(dest);
    const ProgramResult again = phone.cli({"backup", dest, "--all", "--include-hidden", "--yes"});
    EXPECT_EQ(again.exitCode, 0) << again;
    EXPECT_TRUE(again.out.contains("\n  Would copy: 0 files")) << again;
    EXPECT_EQ(again.lines("Files copied: "), QStringList{"Files copied: 0 (0 bytes)"});
    EXPECT_EQ(again.lines("Already backed up: ").last(), "Already backed up: " + QString::number(expected.rows.size()));
    EXPECT_EQ(again.lines("Copied ").size(), 0);
    EXPECT_EQ(FolderSnapshot::take(dest), before);
}

INSTANTIATE_TEST_SUITE_P(Generations, BackupEndToEnd, testing::Values("ios26", "ios17", "ios13"),
                         [](const testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

TEST(BackupHostileNames, NothingIsWrittenOutsideTheBackupFolder)
{
    TempDir dir;
    // The backup folder sits two levels down, so that each way out lands somewhere watched.
    const QString dest = dir.filePath("drive/backup");
    const QString outside = dir.filePath("outside");
    writeFile(outside + "/keep.txt", "the user's");
    QDir().mkpath(outside + "/abs");
    QDir().mkpath(dest);

    TempDir phoneDir;
    const QString device = phoneDir.filePath("phone");
    QMap<QString, QByteArray> media;
    const QString longName = QString(300, 'x') + ".JPG";
    const QList<std::pair<QString, std::optional<QString>>> items{
        {"IMG_0001.JPG", "../../../escape.JPG"},
        {"IMG_0002.JPG", "/etc/passwd"},
        {"IMG_0003.JPG", ".."},
        {"IMG_0004.JPG", ".ombrelo-manifest.sqlite"},
        {"IMG_0005.JPG", "a/b\\c:d*e?f\"g<h>i|j\tk.JPG"},
        {"..JPG", std::nullopt},
        {"IMG_0007.JPG", "../Hidden/../../x.JPG"},
        {"IMG_0008.JPG", longName},
        {"IMG_0009.JPG", std::nullopt},
        {"IMG_0010.JPG", std::nullopt},
        {"IMG_0011.JPG", std::nullopt},
    };
    for (int i = 0; i < items.size(); ++i)
        media.insert("/DCIM/100APPLE/" + items[i].first, "picture " + QByteArray::number(i + 1));
    SimulatedPhone simulated;
    simulated.udid = simulatedUdid(7);
    writeDeviceFolder(device, simulated, media);
    QDir().mkpath(device + "/media/PhotoData");
    {
        std::unique_ptr<SQLiteDB> db = createPhotosDatabase(device + "/media/PhotoData/Photos.sqlite");
        for (int i = 0; i < items.size(); ++i) {
            TestAsset asset(i + 1, items[i].first);
            if (items[i].second)
                asset.original(*items[i].second);
            if (i + 1 == 7)
                asset.hidden();
            addAsset(*db, asset);
        }
        addAlbum(*db, 1, 2, "Escape");
        addAlbum(*db, 2, 2, "Absolute");
        addAlbum(*db, 3, 2, "Climbing");
        addAlbum(*db, 4, 2, "../../up");
        addAlbum(*db, 5, 2, ".ombrelo-tmp");
        addAlbum(*db, 8, 4000, "..");
        addAlbum(*db, 6, 2, "/etc", 8);
        addAlbum(*db, 7, 2, "..");
        addAlbum(*db, 9, 2, "Linked");
        addAlbum(*db, 10, 2, "Temporary");
        addAlbum(*db, 11, 2, "Journal");
        addAlbum(*db, 12, 2, "Empty");
        for (auto [album, asset] :
             {std::pair{1, 1}, {4, 1}, {2, 2}, {3, 3}, {5, 4}, {6, 5}, {7, 8}, {9, 9}, {10, 11}, {11, 11}, {12, 11}})
            addMember(*db, album, asset);
    }
    PhoneBackup phone(PhoneBackup::Folder{device});

    // An earlier backup's manifest that records album folders outside the backup folder or among
    // its own files, and a file name that is a path.
    {
        Manifest manifest(dest);
        manifest.recordAlbum("album-uuid-1", "../escape", "Escape");
        manifest.recordAlbum("album-uuid-2", outside + "/abs", "Absolute");
        manifest.recordAlbum("album-uuid-3", "Albums/../../x", "Climbing");
        manifest.recordAlbum("album-uuid-10", ".ombrelo-tmp/x", "Temporary");
        manifest.recordAlbum("album-uuid-11", Manifest::fileName + "-journal", "Journal");
        manifest.recordAlbum("album-uuid-12", "", "Empty");
        manifest.reserveStem("asset-10", "Camera Roll", "../../outside/s");
    }
    // Links inside the backup folder to folders outside: an album's folder and the temporary folder.
    writeFile(outside + "/linked/mine.txt", "the user's");
    writeFile(outside + "/tmp/precious.txt", "the user's");
    QDir().mkpath(dest + "/Albums");
    QFile::link(outside + "/linked", dest + "/Albums/Linked");
    QFile::link(outside + "/tmp", dest + "/.ombrelo-tmp");
    const FolderSnapshot before = FolderSnapshot::take(dir.path(), dest);

    const ProgramResult run = phone.cli({"backup", dest, "--all", "--include-hidden", "--yes"});
    EXPECT_EQ(run.exitCode, 1) << run.describe();
    const QString refused = QString::fromUtf8(": The destination folder \u201c%1\u201d does not lie inside the backup "
                                              "folder, so nothing was written to it.");
    EXPECT_EQ(
        run.lines("ERROR "),
        (QStringList{"ERROR ../../../escape.JPG" + refused.arg("../escape"),
                     "ERROR IMG_0011.JPG" + refused.arg(".ombrelo-tmp/x"),
                     "ERROR IMG_0011.JPG" + refused.arg(Manifest::fileName + "-journal"),
                     "ERROR IMG_0011.JPG" + refused.arg(""), "ERROR /etc/passwd" + refused.arg(outside + "/abs"),
                     "ERROR .." + refused.arg("Albums/../../x"),
                     QString::fromUtf8("ERROR IMG_0009.JPG: The folder \u201c%1/Albums/Linked\u201d could not be "
                                       "created (it is a link to another place, which a backup does not follow).")
                         .arg(dest),
                     QString::fromUtf8("ERROR IMG_0010.JPG: The file name \u201c../../outside/s.JPG\u201d cannot be "
                                       "used inside the backup folder, so the file was not written.")}))
        << run.describe();
    EXPECT_EQ(run.lines().last(), "Errors: 8");
    EXPECT_EQ(FolderSnapshot::take(dir.path(), dest), before) << "nothing outside the backup folder changed";

    EXPECT_TRUE(QFileInfo(dest + "/Albums/Linked").isSymLink());
    EXPECT_FALSE(QFileInfo::exists(dest + "/.ombrelo-tmp")) << "the link was removed, not followed";

    // The rest is backed up, under names that stay inside their folders.
    QStringList files;
    QDirIterator it(dest, QDir::Files | QDir::Hidden | QDir::System, QDirIterator::Subdirectories);
    while (it.hasNext())
        files << QDir(dest).relativeFilePath(it.next());
    files.sort();
    EXPECT_EQ(files,
              (QStringList{Manifest::fileName, "Albums/-..-up/-..-..-escape.JPG",
                           "Albums/Untitled (2)/" + QString(120, 'x') + ".JPG",
                           "Albums/Untitled/-etc/a-b-c-d-e-f-g-h-i-j-k.JPG", "Albums/ombrelo-tmp/ombrelo-manifest.JPG",
                           "Camera Roll/Untitled.JPG", "Hidden/-Hidden-..-..-x.JPG"}));
    const ProgramResult verified = phone.cli({"verify", dest});
    EXPECT_EQ(verified.exitCode, 0) << verified.describe();
    EXPECT_TRUE(verified.out.startsWith("Verified 6 files")) << verified.out.toStdString();
}

} // namespace
