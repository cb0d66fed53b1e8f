// The whole backup through the real programs: ombrelo-mkdevice makes a phone and its answer key,
// ombrelo-devicesim serves it over the usbmuxd protocol, ombrelo-cli backs it up into a real folder.
// Every expectation comes from the answer key, never from the product's own plan.
#include "FolderSnapshot.h"
#include "PhoneBackup.h"
#include "PhotosDatabases.h"
#include "QtPrinters.h"
#include "TempDir.h"
#include "backup/Manifest.h"
#include "device/StreamingHasher.h"
#include "library/SQLiteDB.h"
#include "plan/FileNaming.h"

#include <QDir>
#include <QDirIterator>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>

#include <gtest/gtest.h>

#include <memory>

// QStrings and ProgramResults straight into failure messages.
std::ostream& operator<<(std::ostream& os, const QString& text) { return os << text.toStdString(); }
std::ostream& operator<<(std::ostream& os, const ProgramResult& result) { return os << result.describe(); }

namespace {

using Asset = PhoneAnswerKey::Asset;
using File = PhoneAnswerKey::File;

// What `ombrelo-cli tree --json --dest` shows of the backup tree.
struct Tree {
    QHash<QString, QString> albumPaths;           // album uuid → destination folder
    QHash<QString, QSet<QString>> foldersOfAsset; // asset uuid → the folders of the leaves holding it
    QHash<QString, int> backedUp;                 // destination folder of a leaf → its "backedUp" count
    QMap<QString, int> skipped;                   // reason → count
};

void collectLeaves(const QJsonObject& node, Tree& tree)
{
    if (node["kind"] == "folder") {
        for (const QJsonValue& child : node["children"].toArray())
            collectLeaves(child.toObject(), tree);
        return;
    }
    const QString path = node["relativePath"].toString();
    if (node["kind"] == "album")
        tree.albumPaths.insert(node["id"].toString(), path);
    for (const QJsonValue& uuid : node["assetUUIDs"].toArray())
        tree.foldersOfAsset[uuid.toString()].insert(path);
    tree.backedUp.insert(path, node["backedUp"].toInt(-1));
}

Tree readTree(const PhoneBackup& phone, const QString& dest)
{
    const ProgramResult shown = phone.cli({"tree", "--json", "--dest", dest});
    if (shown.exitCode != 0)
        throw std::runtime_error(("tree failed: " + shown.describe()).toStdString());
    const QJsonObject root = QJsonDocument::fromJson(shown.out).object();
    Tree tree;
    for (const QJsonValue& node : root["topLevelNodes"].toArray())
        collectLeaves(node.toObject(), tree);
    const QJsonObject skipped = root["skipped"].toObject();
    for (auto it = skipped.begin(); it != skipped.end(); ++it)
        tree.skipped.insert(it.key(), it.value().toInt());
    return tree;
}

// A fresh folder for backups. The engine syncs every file, folder and manifest row to the disk,
// which on a busy shared disk takes most of these tests' time; /dev/shm, in memory, makes the
// same calls cheap. Elsewhere the usual temporary folder serves.
class BackupDir {
public:
    BackupDir()
        : m_dir(QFileInfo("/dev/shm").isWritable() ? "/dev/shm/ombrelo-e2e-XXXXXX"
                                                   : QDir::tempPath() + "/ombrelo-e2e-XXXXXX")
    {
        if (!m_dir.isValid())
            throw std::runtime_error("cannot create a folder for a backup");
    }
    QString path() const { return m_dir.path(); }
    QString filePath(const QString& name) const { return m_dir.filePath(name); }

private:
    QTemporaryDir m_dir;
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

// The file name of one component: the item's stem (numbered " (n)" when the folder already has
// it), "_edited" for renders, the source's extension; adjustment data is always ".AAE.plist".
QRegularExpression namePattern(const Asset& asset, const File& file)
{
    const QString stem = FileNaming::safeName(FileNaming::split(asset.displayName()).stem, 120);
    const QString ext = FileNaming::split(QFileInfo(file.path).fileName()).ext;
    QString suffix;
    if (file.component == "adjustments")
        suffix = ".AAE.plist";
    else if (file.component.startsWith("edited"))
        suffix = FileNaming::join("_edited", ext);
    else
        suffix = ext.isEmpty() ? QString() : "." + ext;
    return QRegularExpression("^" + QRegularExpression::escape(stem) + "( \\(\\d+\\))?" +
                              QRegularExpression::escape(suffix) + "$");
}

// A backup of the whole phone as the answer key says it must be.
struct ExpectedBackup {
    struct Entry {
        const Asset* asset;
        const File* file;
    };
    QMap<QString, QList<Entry>> byFolder; // destination folder → the files that go there
    int filesToCopy = 0;                  // components, once however many folders
    QStringList notOnDevice;              // display names
    QMap<QString, int> skipped;

    int rows() const
    {
        int n = 0;
        for (const auto& entries : byFolder)
            n += entries.size();
        return n;
    }
    // Files written: each content once per folder.
    int distinctFiles() const
    {
        int n = 0;
        for (const auto& entries : byFolder) {
            QSet<QString> contents;
            for (const Entry& entry : entries)
                contents.insert(entry.file->sha256);
            n += contents.size();
        }
        return n;
    }
};

ExpectedBackup expectedBackup(const PhoneAnswerKey& key, const Tree& tree)
{
    static const QMap<QString, QString> reasons{{"trashed", "Recently Deleted"},
                                                {"sharedWithYou", "Shared with You (Messages)"},
                                                {"sharedAlbum", "iCloud Shared Albums"},
                                                {"otherLibrary", "Other library scope"}};
    ExpectedBackup expected;
    for (const QString& reason : reasons)
        expected.skipped.insert(reason, 0);
    for (const Asset& asset : key.assets) {
        if (!isEligible(asset)) {
            expected.skipped[reasons.value(asset.category, "unknown category " + asset.category)] += 1;
            continue;
        }
        if (asset.category == "iCloudOnly") {
            expected.notOnDevice << asset.displayName();
            continue;
        }
        for (const QString& folder : expectedFolders(key, asset, tree))
            for (const File& file : asset.files)
                expected.byFolder[folder].append({&asset, &file});
        expected.filesToCopy += asset.files.size();
    }
    return expected;
}

struct OnDisk {
    QString sha256;
    qint64 size = 0;
    QDateTime modified;
};

// Checks that `dest` holds exactly the expected backup: in each folder every expected content
// once, under a name made from one of its items' stems, dated with that item's capture date;
// nothing else but the manifest.
void expectFolderHoldsBackup(const QString& dest, const ExpectedBackup& expected)
{
    QSet<QString> expectedDirs;
    for (auto it = expected.byFolder.begin(); it != expected.byFolder.end(); ++it) {
        QString path = it.key();
        for (; !path.isEmpty(); path = path.section('/', 0, -2))
            expectedDirs.insert(path);
    }

    QMap<QString, QMap<QString, OnDisk>> found; // folder → name → file
    QDirIterator it(dest, QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot,
                    QDirIterator::Subdirectories);
    const QDir root(dest);
    while (it.hasNext()) {
        const QString path = it.next();
        const QString relative = root.relativeFilePath(path);
        const QFileInfo info(path);
        if (relative == Manifest::fileName)
            continue;
        if (info.isDir() && !info.isSymLink()) {
            EXPECT_TRUE(expectedDirs.contains(relative)) << "unexpected folder " << relative;
            continue;
        }
        const QString folder = relative.section('/', 0, -2);
        if (!info.isFile() || info.isSymLink() || !expected.byFolder.contains(folder)) {
            ADD_FAILURE() << "unexpected entry " << relative.toStdString();
            continue;
        }
        const DownloadResult hash = sha256OfFile(path);
        found[folder].insert(info.fileName(), {hash.sha256, qint64(hash.size), info.lastModified()});
    }

    for (auto folder = expected.byFolder.begin(); folder != expected.byFolder.end(); ++folder) {
        SCOPED_TRACE(("in " + folder.key()).toStdString());
        QMap<QString, QList<ExpectedBackup::Entry>> bySha;
        for (const ExpectedBackup::Entry& entry : folder.value())
            bySha[entry.file->sha256].append(entry);
        QMap<QString, OnDisk> files = found.value(folder.key());
        for (auto group = bySha.begin(); group != bySha.end(); ++group) {
            QStringList names;
            for (auto file = files.begin(); file != files.end(); ++file)
                if (file->sha256 == group.key())
                    names << file.key();
            const ExpectedBackup::Entry& first = group.value().first();
            const QString what =
                first.file->component + " of " + first.asset->displayName() + " (" + first.file->path + ")";
            if (names.size() != 1) {
                ADD_FAILURE() << what << " should be there once, is in: " << names.join(", ");
                continue;
            }
            const OnDisk& file = files.take(names.first());
            EXPECT_EQ(file.size, first.file->size) << what.toStdString();
            // Items with the same content share the file of whichever came first.
            const ExpectedBackup::Entry* owner = nullptr;
            for (const ExpectedBackup::Entry& entry : group.value())
                if (namePattern(*entry.asset, *entry.file).match(names.first()).hasMatch())
                    owner = &entry;
            if (!owner) {
                ADD_FAILURE() << names.first().toStdString() << " is not named after " << what.toStdString();
                continue;
            }
            if (const auto date = owner->asset->captureDate()) {
                EXPECT_LT(std::llabs(file.modified.msecsTo(*date)), 2000)
                    << names.first() << " dated " << file.modified.toString(Qt::ISODate) << ", captured "
                    << date->toString(Qt::ISODate);
            }
        }
        for (auto extra = files.begin(); extra != files.end(); ++extra)
            ADD_FAILURE() << "unexpected file " << (folder.key() + "/" + extra.key()).toStdString();
    }
}

// The manifest holds one row per (item, folder, component) that the answer key expects, with
// the content the phone has, and each row's file is in the folder with that content.
void expectManifestMatches(const QString& dest, const ExpectedBackup& expected)
{
    const ManifestRows rows = readManifestRows(dest);
    QHash<QString, ExpectedBackup::Entry> byKey;
    for (auto folder = expected.byFolder.begin(); folder != expected.byFolder.end(); ++folder)
        for (const ExpectedBackup::Entry& entry : folder.value())
            byKey.insert(entry.asset->uuid + "|" + folder.key() + "|" + entry.file->component, entry);
    EXPECT_EQ(rows.size(), byKey.size());
    for (const ManifestRow& row : rows) {
        const auto entry = byKey.constFind(row.assetUUID + "|" + row.dest + "|" + row.component);
        if (entry == byKey.cend()) {
            ADD_FAILURE() << "unexpected row " << testing::PrintToString(row);
            continue;
        }
        EXPECT_EQ(row.sha256, entry->file->sha256) << testing::PrintToString(row);
        EXPECT_EQ(row.size, entry->file->size) << testing::PrintToString(row);
        EXPECT_EQ(row.sourcePath, entry->file->path);
        EXPECT_EQ(row.captureDate.has_value(), entry->asset->dateCreated.has_value()) << testing::PrintToString(row);
        EXPECT_TRUE(row.status == "copied" || row.status == "duplicate") << testing::PrintToString(row);
        EXPECT_TRUE(row.relPath.startsWith(row.dest + "/")) << testing::PrintToString(row);
        EXPECT_EQ(sha256OfFile(dest + "/" + row.relPath).sha256, row.sha256) << testing::PrintToString(row);
    }
}

// A phone of one generation and its first backup (all of it, Hidden included) into a new folder.
struct BackedUpPhone {
    explicit BackedUpPhone(const QStringList& options) : phone(options), dest(dir.filePath("backup"))
    {
        QDir().mkpath(dest);
        first = phone.cli({"backup", dest, "--all", "--include-hidden", "--yes"});
        tree = readTree(phone, dest);
        expected = expectedBackup(phone.answerKey(), tree);
    }

    PhoneBackup phone;
    BackupDir dir;
    QString dest;
    ProgramResult first;
    Tree tree;
    ExpectedBackup expected;
};

class BackupEndToEnd : public testing::TestWithParam<const char*> {};

TEST_P(BackupEndToEnd, EveryItemInEachOfItsFoldersThenNothingTwice)
{
    const BackedUpPhone backed({"--generation", GetParam(), "--assets", "60", "--seed", "5", "--files", "real"});
    const PhoneAnswerKey& key = backed.phone.answerKey();
    const ExpectedBackup& expected = backed.expected;
    const ProgramResult& first = backed.first;
    ASSERT_GT(expected.byFolder.size(), 5) << "a phone with albums";
    ASSERT_GT(expected.notOnDevice.size(), 0) << "a phone with items only in iCloud";

    // The tree places each eligible item where the answer key says, and counts the rest.
    for (const Asset& asset : key.assets) {
        SCOPED_TRACE((asset.displayName() + " " + asset.uuid + " " + asset.category).toStdString());
        if (isEligible(asset))
            EXPECT_EQ(backed.tree.foldersOfAsset.value(asset.uuid), expectedFolders(key, asset, backed.tree));
        else
            EXPECT_FALSE(backed.tree.foldersOfAsset.contains(asset.uuid));
    }
    EXPECT_EQ(backed.tree.skipped, expected.skipped);

    // The run: the dry run's count first, the summary last.
    EXPECT_EQ(first.exitCode, 0) << first.describe();
    EXPECT_EQ(first.lines("ERROR ").join("\n"), "");
    EXPECT_TRUE(first.out.contains("\n  Would copy: " + QByteArray::number(expected.filesToCopy) + " files"))
        << first.out.toStdString();
    QStringList summary{"Files copied: " + QString::number(expected.distinctFiles()) + " (", "Already backed up: 0"};
    if (expected.rows() > expected.distinctFiles())
        summary << "Identical to a file already in the folder (not copied again): " +
                       QString::number(expected.rows() - expected.distinctFiles());
    summary << "Not stored on the device (iCloud only?): " + QString::number(expected.notOnDevice.size());
    const QStringList output = first.lines();
    ASSERT_GE(output.size(), summary.size());
    const QStringList last = output.mid(output.size() - summary.size());
    EXPECT_TRUE(last[0].startsWith(summary[0]) && last[0].endsWith("B)")) << last[0];
    EXPECT_EQ(last.mid(1), summary.mid(1)) << first.out.toStdString();
    for (const QString& name : expected.notOnDevice)
        EXPECT_EQ(first.lines("Not on device, skipped: " + name + " (").size(), expected.notOnDevice.count(name))
            << name;

    expectFolderHoldsBackup(backed.dest, expected);
    expectManifestMatches(backed.dest, expected);
    // What the tree counts as backed up now: every item on the phone in each of its folders.
    for (auto folder = expected.byFolder.begin(); folder != expected.byFolder.end(); ++folder) {
        QSet<QString> items;
        for (const ExpectedBackup::Entry& entry : folder.value())
            items.insert(entry.asset->uuid);
        EXPECT_EQ(backed.tree.backedUp.value(folder.key()), items.size()) << folder.key();
    }

    const ProgramResult verified = backed.phone.cli({"verify", backed.dest});
    EXPECT_EQ(verified.exitCode, 0) << verified.describe();
    EXPECT_TRUE(verified.out.contains(" intact, 0 missing, 0 changed")) << verified.out.toStdString();

    // The same backup again: nothing copied, nothing changed, everything reported done.
    const FolderSnapshot before = FolderSnapshot::take(backed.dest);
    const ManifestRows rows = readManifestRows(backed.dest);
    const ProgramResult again = backed.phone.cli({"backup", backed.dest, "--all", "--include-hidden", "--yes"});
    EXPECT_EQ(again.exitCode, 0) << again.describe();
    EXPECT_TRUE(again.out.contains("\n  Would copy: 0 files")) << again.out.toStdString();
    EXPECT_EQ(again.lines("Files copied: "), QStringList{"Files copied: 0 (0 bytes)"});
    EXPECT_EQ(again.lines("Already backed up: ").last(), "Already backed up: " + QString::number(rows.size()));
    EXPECT_EQ(again.lines("Copied ").size(), 0);
    EXPECT_EQ(FolderSnapshot::take(backed.dest), before);
    EXPECT_EQ(readManifestRows(backed.dest), rows);
}

INSTANTIATE_TEST_SUITE_P(Generations, BackupEndToEnd, testing::Values("ios26", "ios17", "ios13"),
                         [](const testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

TEST(BackupHostileNames, NothingIsWrittenOutsideTheBackupFolder)
{
    BackupDir dir;
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
