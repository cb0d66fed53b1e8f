#include "EngineFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QRegularExpression>

#include <sys/stat.h>

using ::testing::Contains;
using ::testing::IsEmpty;

namespace {

const QString kDir = "/DCIM/100APPLE/";

QDateTime jan2024() { return dateFromReferenceSeconds(kJan2024); }

qint64 mtimeOf(const QString& path) { return QFileInfo(path).lastModified().toMSecsSinceEpoch(); }

} // namespace

TEST(BackupEngineComponents, FilesThatMakeUpAnAsset)
{
    TestPhone phone;
    phone.addAsset("live", "IMG_0001.HEIC", "still").kindSubtype = 2;
    phone.source.addFile(kDir + "IMG_0001.MOV", "motion");
    phone.source.addFile(kDir + "img_0001.mov", "a second motion"); // a second live video: reported, not used
    phone.source.addFile(kDir + "IMG_0001.AAE", "sidecar");
    phone.source.addFile(kDir + "IMG_0001.TXT", "passed over");
    // A video's same-stem MOV is no live video of it, nor an extra file.
    phone.addAsset("video", "IMG_0002.MP4", "video");
    phone.source.addFile(kDir + "IMG_0002.MOV", "something else");
    // A same-stem MOV that the library knows as an asset of its own belongs to that asset.
    phone.addAsset("still", "IMG_0003.JPG", "still 3");
    phone.addAsset("movie", "IMG_0003.MOV", "movie 3");
    // An edited still with its edit files, one too many and one nobody knows.
    phone.addAsset("edited", "IMG_0004.HEIC", "still 4").hasAdjustments = true;
    const QString edits4 = "/PhotoData/Mutations/DCIM/100APPLE/IMG_0004/Adjustments/";
    for (const QString name :
         {"Adjustments.plist", "FullSizeRender.heic", "FullSizeRender.jpg", "FullSizeRender.mov", "Preview.jpg"})
        phone.source.addFile(edits4 + name, name.toUtf8());
    // An edited video: the MOV render is its edit, a still render an edited still.
    phone.addAsset("editedVideo", "IMG_0005.MOV", "video 5").hasAdjustments = true;
    const QString edits5 = "/PhotoData/Mutations/DCIM/100APPLE/IMG_0005/Adjustments/";
    phone.source.addFile(edits5 + "FullSizeRender.MOV", "render");
    phone.source.addFile(edits5 + "FullSizeRender.jpg", "still render");
    // Edited, but the edits are not on the device: the original alone.
    phone.addAsset("noEdits", "IMG_0006.JPG", "still 6").hasAdjustments = true;
    // Not on the device: a missing file, a missing folder.
    phone.addAsset("cloud", "IMG_0007.JPG", "");
    phone.source.removeFile(kDir + "IMG_0007.JPG");
    phone.addAsset("nowhere", "IMG_0008.JPG", "", kJan2024, "DCIM/999APPLE");
    phone.source.removeFile("/DCIM/999APPLE/IMG_0008.JPG");

    const BackupPlan plan(phone.library, {});
    TempDir dir;
    Manifest manifest(dir.path());
    BackupEngine engine(phone.source, plan, dir.path(), manifest);
    using C = Component;
    using Parts = QList<SourceComponent>;

    // What each asset's backup takes, and the files beside them that it leaves out.
    const auto found = [&](const QString& uuid) {
        const auto components = engine.components(phone.asset(uuid));
        EXPECT_TRUE(components) << uuid.toStdString();
        return components ? std::pair(components->parts, components->unhandled) : std::pair(Parts{}, QStringList{});
    };
    EXPECT_EQ(found("live"), std::pair(Parts{{C::original, kDir + "IMG_0001.HEIC", "HEIC"},
                                             {C::aae, kDir + "IMG_0001.AAE", "AAE"},
                                             {C::liveVideo, kDir + "IMG_0001.MOV", "MOV"}},
                                       QStringList{"img_0001.mov"}));
    EXPECT_EQ(found("video"), std::pair(Parts{{C::original, kDir + "IMG_0002.MP4", "MP4"}}, QStringList{}));
    EXPECT_EQ(found("still"), std::pair(Parts{{C::original, kDir + "IMG_0003.JPG", "JPG"}}, QStringList{}));
    EXPECT_EQ(found("edited"), std::pair(Parts{{C::original, kDir + "IMG_0004.HEIC", "HEIC"},
                                               {C::adjustments, edits4 + "Adjustments.plist", "plist"},
                                               {C::edited, edits4 + "FullSizeRender.heic", "heic"},
                                               {C::editedLiveVideo, edits4 + "FullSizeRender.mov", "mov"}},
                                         QStringList{"FullSizeRender.jpg", "Preview.jpg"}));
    EXPECT_EQ(found("editedVideo").first, (Parts{{C::original, kDir + "IMG_0005.MOV", "MOV"},
                                                 {C::edited, edits5 + "FullSizeRender.MOV", "MOV"},
                                                 {C::editedStill, edits5 + "FullSizeRender.jpg", "jpg"}}));
    EXPECT_EQ(found("noEdits").first.size(), 1);
    EXPECT_FALSE(engine.components(phone.asset("cloud")));
    EXPECT_FALSE(engine.components(phone.asset("nowhere")));

    // The camera folder was listed once for all of its assets.
    EXPECT_EQ(phone.source.listings.value("/DCIM/100APPLE"), 1);

    // A folder that cannot be read (as opposed to one that is not there) fails the asset.
    phone.source.failPath("/DCIM/102APPLE", "afc error 7");
    phone.addAsset("unreadable", "IMG_0009.JPG", "x", kJan2024, "DCIM/102APPLE");
    const BackupPlan plan2(phone.library, {});
    BackupEngine engine2(phone.source, plan2, dir.path(), manifest);
    EXPECT_THROW(engine2.components(phone.asset("unreadable")), MediaSourceError);
}

TEST(BackupEngineStems, NumberedPerFolderAndKeptOnceChosen)
{
    TestPhone phone;
    phone.addAsset("a1", "IMG_0001.HEIC", "1");
    phone.addAsset("a2", "IMG_0001.HEIC", "2", kJan2024, "DCIM/101APPLE");
    phone.addAsset("a3", "img_0001.JPG", "3", kJan2024, "DCIM/102APPLE");
    phone.addAsset("edited", "IMG_0002.JPG", "4");
    phone.addAsset("plist", "IMG_0003.JPG", "5");
    phone.addAsset("named", "IMG_0004.JPG", "6").originalFilename = "Beach: day 1.jpg";
    phone.addAsset("renamed", "IMG_0005.JPG", "7");
    phone.addAsset("recordedElsewhere", "IMG_0006.JPG", "8");

    TempDir dir;
    writeFile(dir.filePath("Camera Roll/img_0002_edited.jpg"), "another tool's file");
    writeFile(dir.filePath("Camera Roll/IMG_0003.AAE.plist"), "an earlier adjustments file");
    Manifest manifest(dir.path());
    manifest.reserveStem("renamed", "Camera Roll", "Holiday");
    manifest.reserveStem("someone", "Camera Roll", "IMG_0006");
    const BackupPlan plan(phone.library, {});

    {
        BackupEngine engine(phone.source, plan, dir.path(), manifest);
        EXPECT_EQ(engine.stem(phone.asset("a1"), "Camera Roll"), "IMG_0001");
        EXPECT_EQ(engine.stem(phone.asset("a2"), "Camera Roll"), "IMG_0001 (2)");
        EXPECT_EQ(engine.stem(phone.asset("a3"), "Camera Roll"), "img_0001 (3)");
        EXPECT_EQ(engine.stem(phone.asset("a1"), "Camera Roll"), "IMG_0001");
        EXPECT_EQ(engine.stem(phone.asset("a2"), "Albums/Trips"), "IMG_0001"); // each folder on its own
        EXPECT_EQ(engine.stem(phone.asset("edited"), "Camera Roll"), "IMG_0002 (2)");
        EXPECT_EQ(engine.stem(phone.asset("plist"), "Camera Roll"), "IMG_0003 (2)");
        EXPECT_EQ(engine.stem(phone.asset("named"), "Camera Roll"), "Beach- day 1");
        EXPECT_EQ(engine.stem(phone.asset("renamed"), "Camera Roll"), "Holiday");
        EXPECT_EQ(engine.stem(phone.asset("recordedElsewhere"), "Camera Roll"), "IMG_0006 (2)");
    }
    // A later run keeps every name chosen, and numbers a newcomer after them.
    phone.addAsset("newcomer", "IMG_0001.HEIC", "9", kJan2024, "DCIM/103APPLE");
    const BackupPlan later(phone.library, {});
    BackupEngine engine(phone.source, later, dir.path(), manifest);
    EXPECT_EQ(engine.stem(phone.asset("a3"), "Camera Roll"), "img_0001 (3)");
    EXPECT_EQ(engine.stem(phone.asset("a2"), "Camera Roll"), "IMG_0001 (2)");
    EXPECT_EQ(engine.stem(phone.asset("newcomer"), "Camera Roll"), "IMG_0001 (4)");
}

namespace {

// A live photo in three albums (two top-level, one inside a folder), an edited photo and an
// undated video in the camera roll, a hidden photo.
struct FamilyPhone : TestPhone {
    int64_t family, kids, trips, best;
    FamilyPhone()
    {
        LibraryAsset& live = addAsset("P", "IMG_0001.HEIC", "live still");
        live.kindSubtype = 2;
        source.addFile(kDir + "IMG_0001.MOV", "live motion");
        addAsset("Q", "IMG_0002.JPG", "edited original").hasAdjustments = true;
        const QString edits = "/PhotoData/Mutations/DCIM/100APPLE/IMG_0002/Adjustments/";
        source.addFile(edits + "Adjustments.plist", "adjustments");
        source.addFile(edits + "FullSizeRender.jpg", "edited render");
        addAsset("R", "IMG_0003.MP4", "undated video", std::nullopt);
        addAsset("H", "IMG_0004.JPG", "hidden").isHidden = true;
        family = addAlbum("family", "Family", std::nullopt, true);
        kids = addAlbum("kids", "Kids", family);
        trips = addAlbum("trips", "Trips");
        best = addAlbum("best", "Best");
        putInAlbum(kids, "P");
        putInAlbum(trips, "P");
        putInAlbum(best, "P");
    }
};

} // namespace

TEST(BackupEngineRun, CopiesEachFileOnceIntoEveryFolderItBelongsTo)
{
    FamilyPhone phone;
    const BackupPlan plan(phone.library, {});
    TempDir dir;
    const QString root = dir.path();
    Manifest manifest(root);
    const BackupOptions all = options({"camera-roll", "hidden", "family", "trips", "best"});

    // A dry run first: it counts each file once however many folders it goes to, and touches nothing.
    const FolderSnapshot untouched = FolderSnapshot::take(root);
    const RunResult dry = runEngine(phone.source, plan, root, manifest, options(all.nodeIDs.values(), true));
    EXPECT_EQ(FolderSnapshot::take(root), untouched);
    EXPECT_EQ(phone.source.downloads, 0);
    EXPECT_EQ(dry.summary.filesToCopy, 7);

    const RunResult first = runEngine(phone.source, plan, root, manifest, all);
    for (const QString name : {"IMG_0001.HEIC", "IMG_0001.MOV"})
        EXPECT_EQ(phone.source.downloadCount(kDir + name), 1) << name.toStdString();
    EXPECT_EQ(phone.source.downloads, 7);

    QMap<QString, QByteArray> expected{{"Albums/Best/IMG_0001.HEIC", "live still"},
                                       {"Albums/Best/IMG_0001.MOV", "live motion"},
                                       {"Albums/Family/Kids/IMG_0001.HEIC", "live still"},
                                       {"Albums/Family/Kids/IMG_0001.MOV", "live motion"},
                                       {"Albums/Trips/IMG_0001.HEIC", "live still"},
                                       {"Albums/Trips/IMG_0001.MOV", "live motion"},
                                       {"Camera Roll/IMG_0002.JPG", "edited original"},
                                       {"Camera Roll/IMG_0002.AAE.plist", "adjustments"},
                                       {"Camera Roll/IMG_0002_edited.jpg", "edited render"},
                                       {"Camera Roll/IMG_0003.MP4", "undated video"},
                                       {"Hidden/IMG_0004.JPG", "hidden"}};
    EXPECT_EQ(backupFolder(root).files.keys(), expected.keys());
    EXPECT_FALSE(QFileInfo::exists(root + "/.ombrelo-tmp"));
    for (auto [path, content] : expected.asKeyValueRange()) {
        EXPECT_EQ(readFile(root + "/" + path), content) << path.toStdString();
        // Every dated file carries its capture date; the video has none to carry.
        if (!path.contains("IMG_0003")) {
            EXPECT_EQ(mtimeOf(root + "/" + path), jan2024().toMSecsSinceEpoch()) << path.toStdString();
        }
    }

    // One row per file and folder, all "copied" (their content: BackupEndToEnd); the album folders
    // are recorded for later runs.
    const QStringList rows = fileRows(manifest);
    EXPECT_EQ(rows.size(), 11);
    EXPECT_EQ(rows.filter(QRegularExpression(" \\| copied$")).size(), 11);
    EXPECT_EQ(
        manifest.albumPaths(),
        (QHash<QString, QString>{{"kids", "Albums/Family/Kids"}, {"trips", "Albums/Trips"}, {"best", "Albums/Best"}}));
    EXPECT_THAT(inconsistencies(root), IsEmpty());

    EXPECT_EQ(first.summary.filesCopied, 11);
    EXPECT_EQ(first.summary.bytesCopied, 3u * 21 + 11 + 13 + 15 + 13 + 6);
    // Sorted ids give the order: best (P), camera roll (R undated first, then Q), family (P again),
    // hidden (H).
    QStringList progress;
    for (const BackupProgress& p : first.progress)
        progress << QString("%1/%2 %3").arg(p.assetsDone).arg(p.assetsTotal).arg(p.currentName);
    EXPECT_EQ(progress,
              (QStringList{"0/4 IMG_0001.HEIC", "1/4 IMG_0003.MP4", "2/4 IMG_0002.JPG", "3/4 IMG_0004.JPG", "4/4 "}));
    EXPECT_EQ(first.progress.value(1).bytesCopied, 3u * 21);

    // Again: nothing to fetch, nothing to write, every file reported as backed up.
    const FolderSnapshot backedUp = backupFolder(root);
    const RunResult again = runEngine(phone.source, plan, root, manifest, all);
    EXPECT_EQ(phone.source.downloads, 7);
    EXPECT_EQ(backupFolder(root), backedUp);
    EXPECT_EQ(again.summary.filesCopied, 0);
    EXPECT_EQ(again.summary.filesAlreadyBackedUp, 11);
    EXPECT_THAT(again.log,
                Contains("Already backed up: Albums/Trips original of IMG_0001.HEIC (/DCIM/100APPLE/IMG_0001.HEIC)"));
}

TEST(BackupEngineRun, WorkListFollowsTheSelection)
{
    FamilyPhone phone;
    const BackupPlan plan(phone.library, {});
    TempDir dir;
    Manifest manifest(dir.path());

    // Unknown ids are ignored; a restricted leaf takes only the listed assets; Hidden is not ticked.
    BackupOptions some = options({"no-such-node", "camera-roll", "trips"});
    some.onlyAssets.insert("camera-roll", {"R"});
    const RunResult run = runEngine(phone.source, plan, dir.path(), manifest, some);
    EXPECT_EQ(run.summary.filesCopied, 3);
    EXPECT_EQ(fileRows(manifest).size(), 3);
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("Camera Roll/IMG_0003.MP4")));
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("Albums/Trips/IMG_0001.MOV")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("Camera Roll/IMG_0002.JPG")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("Hidden")));
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("Albums/Best")));
    ASSERT_FALSE(run.progress.isEmpty());
    EXPECT_EQ(run.progress.last().assetsTotal, 2);
}

TEST(BackupEngineRun, NeverReplacesWhatIsAlreadyInTheFolder)
{
    TestPhone phone;
    phone.addAsset("A", "IMG_0001.HEIC", "phone still").kindSubtype = 2;
    phone.source.addFile(kDir + "IMG_0001.MOV", "phone motion");
    phone.addAsset("B", "IMG_0002.JPG", "phone b");
    phone.addAsset("C", "IMG_0003.JPG", "phone c");
    phone.addAsset("D", "IMG_0004.JPG", "phone d");
    phone.addAsset("E", "IMG_0005.JPG", "phone e");
    const BackupPlan plan(phone.library, {});

    TempDir dir;
    const QString root = dir.path() + "/backup";
    const QString outside = dir.path() + "/outside";
    QDir().mkpath(root);
    writeFile(outside + "/same as c.jpg", "phone c");
    Manifest manifest(root);
    // An earlier, interrupted run chose these names; since then other files took two of them.
    manifest.reserveStem("A", "Camera Roll", "IMG_0001");
    manifest.reserveStem("B", "Camera Roll", "IMG_0002");
    manifest.reserveStem("C", "Camera Roll", "IMG_0003");
    const QString roll = root + "/Camera Roll/";
    writeFile(roll + "IMG_0001.HEIC", "someone else's picture");
    writeFile(roll + "IMG_0001 (2).HEIC", "and another one");
    writeFile(roll + "IMG_0001.MOV", "phone motion"); // the very file, left by that run
    {
        QFile left(roll + "IMG_0001.MOV");
        left.open(QIODevice::ReadWrite);
        left.setFileTime(QDateTime(QDate(2020, 5, 1), QTime(12, 0), Qt::UTC), QFileDevice::FileModificationTime);
    }
    ASSERT_EQ(::mkfifo(QFile::encodeName(roll + "IMG_0002.JPG").constData(), 0644), 0); // never to be read
    ASSERT_TRUE(QFile::link(outside + "/same as c.jpg", roll + "IMG_0003.JPG"));        // never to be followed
    writeFile(roll + "img_0004_edited.jpg", "another tool's edit");
    writeFile(roll + "IMG_0005.JPG", "phone e"); // the phone's own picture, put there by hand: no name was reserved
    const FolderSnapshot before = backupFolder(root);
    const FolderSnapshot outsideBefore = FolderSnapshot::take(outside);

    const RunResult run = runEngine(phone.source, plan, root, manifest, options({"camera-roll"}));

    // Everything that was there is as it was; the phone's files take the next free names.
    FolderSnapshot after = backupFolder(root);
    for (const auto& [name, content] : {std::pair{"IMG_0001 (3).HEIC", "phone still"},
                                        {"IMG_0002 (2).JPG", "phone b"},
                                        {"IMG_0003 (2).JPG", "phone c"},
                                        {"IMG_0004 (2).JPG", "phone d"},
                                        {"IMG_0005 (2).JPG", "phone e"}})
        EXPECT_EQ(after.files.take(QString("Camera Roll/") + name).sha256, sha256Of(content)) << name;
    EXPECT_EQ(after, before);
    EXPECT_EQ(FolderSnapshot::take(outside), outsideBefore);

    EXPECT_EQ(run.summary.filesCopied, 5);
    EXPECT_EQ(run.summary.filesAdopted, 1);
    EXPECT_THAT(run.log, Contains("Already on disk, recorded: Camera Roll/IMG_0001.MOV"));
    EXPECT_THAT(fileRows(manifest),
                Contains("A | Camera Roll | live-video | Camera Roll/IMG_0001.MOV | " + sha256Of("phone motion") +
                         " | 12 | " + manifest.formatDate(jan2024()) + " | " + kDir + "IMG_0001.MOV | adopted"));
    EXPECT_THAT(fileRows(manifest),
                Contains("A | Camera Roll | original | Camera Roll/IMG_0001 (3).HEIC | " + sha256Of("phone still") +
                         " | 11 | " + manifest.formatDate(jan2024()) + " | " + kDir + "IMG_0001.HEIC | copied"));
    EXPECT_EQ(run.summary.lines().last(), "Found on disk from an earlier interrupted run: 1");
    EXPECT_THAT(inconsistencies(root), IsEmpty());
}

TEST(BackupEngineRun, FilesMissingFromThePhone)
{
    TestPhone phone;
    phone.addAsset("live", "IMG_0001.HEIC", "still").kindSubtype = 2;
    phone.source.addFile(kDir + "IMG_0001.MOV", "motion");
    phone.source.vanished.insert(kDir + "IMG_0001.MOV"); // listed, but gone when fetched
    phone.addAsset("gone", "IMG_0002.JPG", "original");
    phone.source.vanished.insert(kDir + "IMG_0002.JPG");
    phone.addAsset("cloud", "IMG_0003.JPG", "");
    phone.source.removeFile(kDir + "IMG_0003.JPG");
    phone.addAsset("extra", "IMG_0004.JPG", "four");
    phone.source.addFile(kDir + "IMG_0004.AAE", "sidecar");
    phone.source.addFile(kDir + "img_0004.aae", "second sidecar");
    const BackupPlan plan(phone.library, {});
    TempDir dir;
    Manifest manifest(dir.path());

    const RunResult run = runEngine(phone.source, plan, dir.path(), manifest, options({"camera-roll"}));

    EXPECT_THAT(run.log, Contains("Missing on device, skipped: /DCIM/100APPLE/IMG_0001.MOV"));
    EXPECT_EQ(readFile(dir.filePath("Camera Roll/IMG_0001.HEIC")), "still");
    EXPECT_THAT(run.log, Contains("ERROR IMG_0002.JPG: Not found on device: /DCIM/100APPLE/IMG_0002.JPG"));
    EXPECT_THAT(run.log, Contains("Not on device, skipped: IMG_0003.JPG (DCIM/100APPLE/IMG_0003.JPG)"));
    EXPECT_THAT(run.log, Contains("ERROR IMG_0004.JPG: unexpected extra file not backed up: img_0004.aae"));
    EXPECT_EQ(readFile(dir.filePath("Camera Roll/IMG_0004.AAE")), "sidecar");
    EXPECT_FALSE(QFileInfo::exists(dir.filePath("Camera Roll/img_0004.aae")));
    EXPECT_EQ(run.summary.assetsNotOnDevice, QStringList{"IMG_0003.JPG"});
    EXPECT_EQ(run.summary.errors, (QStringList{"IMG_0004.JPG: unexpected extra file not backed up: img_0004.aae",
                                               "IMG_0002.JPG: Not found on device: /DCIM/100APPLE/IMG_0002.JPG"}));
    EXPECT_EQ(run.summary.filesCopied, 3);
    EXPECT_THAT(fileRows(manifest).join("\n").toStdString(), ::testing::Not(::testing::HasSubstr("gone")));
}
