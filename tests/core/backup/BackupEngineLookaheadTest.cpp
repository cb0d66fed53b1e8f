#include "EngineFixture.h"

#include <QElapsedTimer>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>

// The engine downloads the next assets' files while it is still writing the current one. What a
// run reports and records must be exactly what a run taking one file at a time would.

using ::testing::ElementsAre;
using ::testing::IsEmpty;

namespace {

const QString kDir = "/DCIM/100APPLE/";

// Waits up to ten seconds for `flag`; a machine under load is slow, never that slow.
bool waitFor(const std::atomic<bool>& flag)
{
    for (int i = 0; i < 1000 && !flag; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return flag;
}

// Each event as one text, progress events as "progress N name".
QStringList eventTexts(const QList<BackupEvent>& events)
{
    QStringList texts;
    for (const BackupEvent& event : events)
        texts << (event.kind == BackupEvent::Kind::log
                      ? event.line
                      : "progress " + QString::number(event.progress.assetsDone) + " " + event.progress.currentName);
    return texts;
}

} // namespace

TEST(BackupEngineLookahead, NextFilesDownloadWhileOneIsWrittenAndTheRunReadsAsBefore)
{
    TestPhone phone;
    phone.addAsset("A", "IMG_0001.JPG", "first", kJan2024 + 1);
    phone.addAsset("B", "IMG_0002.JPG", "second", kJan2024 + 2);
    phone.addAsset("C", "IMG_0003.JPG", "unreadable", kJan2024 + 3);
    phone.source.failPath(kDir + "IMG_0003.JPG", "read failed, afc error 4");
    phone.addAsset("D", "IMG_0004.HEIC", "live still", kJan2024 + 4).kindSubtype = 2;
    phone.source.addFile(kDir + "IMG_0004.MOV", "live motion");
    phone.addAsset("E", "IMG_0005.JPG", "first", kJan2024 + 5); // the same picture as A
    const BackupPlan plan(phone.library, {});
    TempDir dir;
    Manifest manifest(dir.path());

    // The first file must not be reported written before the second one's download has begun:
    // with downloads one at a time, it never would be, and the wait below runs out.
    std::atomic<bool> secondBegun = false;
    phone.source.beforeDownload = [&](const QString& path, const QString&, int) {
        if (path == kDir + "IMG_0002.JPG")
            secondBegun = true;
    };
    bool aheadWhileWriting = false;
    QList<BackupEvent> events;
    const RunResult run = runEngine(
        phone.source, plan, dir.path(), manifest, options({"camera-roll"}), {}, [&](const BackupEvent& event) {
            events << event;
            if (event.kind == BackupEvent::Kind::log && event.line == "Copied Camera Roll/IMG_0001.JPG")
                aheadWhileWriting = waitFor(secondBegun);
        });
    EXPECT_TRUE(aheadWhileWriting);

    // Every line in its asset's place, the failed download reported for its own asset.
    const QString error =
        "IMG_0003.JPG: Could not read /DCIM/100APPLE/IMG_0003.JPG from device: read failed, afc error 4";
    EXPECT_THAT(eventTexts(events),
                ElementsAre("progress 0 IMG_0001.JPG", "Copied Camera Roll/IMG_0001.JPG", "progress 1 IMG_0002.JPG",
                            "Copied Camera Roll/IMG_0002.JPG", "progress 2 IMG_0003.JPG", "ERROR " + error,
                            "progress 3 IMG_0004.HEIC", "Copied Camera Roll/IMG_0004.HEIC",
                            "Copied Camera Roll/IMG_0004.MOV", "progress 4 IMG_0005.JPG",
                            "Already in Camera Roll as Camera Roll/IMG_0001.JPG: IMG_0005.JPG", "progress 5 "));
    EXPECT_EQ(run.summary.errors, QStringList{error});
    EXPECT_EQ(run.summary.filesCopied, 4);
    EXPECT_EQ(run.summary.duplicatesDiscarded, 1);

    // Rows in the order of the work list, each written after its file.
    QStringList rows;
    manifest.db().query("SELECT rel_path, status FROM files ORDER BY rowid", {},
                        [&](const SQLRow& row) { rows << *row.text(0) + " " + *row.text(1); });
    EXPECT_THAT(rows, ElementsAre("Camera Roll/IMG_0001.JPG copied", "Camera Roll/IMG_0002.JPG copied",
                                  "Camera Roll/IMG_0004.HEIC copied", "Camera Roll/IMG_0004.MOV copied",
                                  "Camera Roll/IMG_0001.JPG duplicate"));
    EXPECT_THAT(inconsistencies(dir.path()), IsEmpty());
    EXPECT_FALSE(QFileInfo::exists(dir.filePath(".ombrelo-tmp")));
}

TEST(BackupEngineLookahead, AFileThatCannotBeWrittenFailsItsOwnAssetAndItsOtherFilesAreThrownAway)
{
    TestPhone phone;
    phone.addAsset("A", "IMG_0001.HEIC", "live still", kJan2024 + 1).kindSubtype = 2;
    phone.source.addFile(kDir + "IMG_0001.MOV", "live motion");
    phone.addAsset("B", "IMG_0002.JPG", "second", kJan2024 + 2);
    phone.putInAlbum(phone.addAlbum("beach", "Beach"), "A");
    phone.putInAlbum(phone.addAlbum("trips", "Trips"), "B");
    const BackupPlan plan(phone.library, {});
    TempDir dir;
    writeFile(dir.filePath("Albums/Beach"), "a file where the album's folder would go");
    const FolderSnapshot before = FolderSnapshot::take(dir.path());
    Manifest manifest(dir.path());

    // The video's download starts before the still fails to be written, and is then not used.
    const RunResult run = runEngine(phone.source, plan, dir.path(), manifest, options({"beach", "trips"}));
    ASSERT_EQ(run.summary.errors.size(), 1);
    EXPECT_TRUE(run.summary.errors[0].startsWith("IMG_0001.HEIC: ")) << run.summary.errors[0].toStdString();
    EXPECT_TRUE(run.summary.errors[0].contains("Albums/Beach")) << run.summary.errors[0].toStdString();
    EXPECT_THAT(run.log, ElementsAre("ERROR " + run.summary.errors[0], "Copied Albums/Trips/IMG_0002.JPG"));
    EXPECT_EQ(fileRows(manifest, false).size(), 1);

    // Nothing of the failed asset anywhere: the folder holds what it held, plus B.
    FolderSnapshot after = backupFolder(dir.path());
    EXPECT_EQ(after.files.take("Albums/Trips/IMG_0002.JPG").sha256, sha256Of("second"));
    after.others.remove("Albums/Trips");
    EXPECT_EQ(after, before);
    EXPECT_THAT(inconsistencies(dir.path()), IsEmpty());
}

// Cancelled while the next item's file is coming in ahead of its turn: the run ends after the
// current item without waiting for that download, which is stopped and leaves nothing behind.
TEST(BackupEngineLookahead, CancellingStopsTheDownloadRunningAhead)
{
    TestPhone phone;
    phone.addAsset("A", "IMG_0001.JPG", "first", kJan2024 + 1);
    phone.addAsset("B", "IMG_0002.MOV", "a long video", kJan2024 + 2);
    const BackupPlan plan(phone.library, {});
    TempDir dir;
    Manifest manifest(dir.path());

    // The video takes ten seconds unless it is stopped.
    std::atomic<bool> videoBegun = false;
    std::atomic<bool> videoStopped = false;
    phone.source.whileDownloading = [&](const QString& path, const DownloadControl& control) {
        const std::stop_token& stop = control.stop;
        if (path != kDir + "IMG_0002.MOV")
            return;
        videoBegun = true;
        for (int i = 0; i < 1000 && !stop.stop_requested(); ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        videoStopped = stop.stop_requested();
        if (videoStopped)
            throw MediaSourceError::readFailed(path, "the download was stopped");
    };
    std::atomic<bool> cancelled = false;
    QElapsedTimer clock;
    clock.start();
    const RunResult run = runEngine(
        phone.source, plan, dir.path(), manifest, options({"camera-roll"}), [&] { return bool(cancelled); },
        [&](const BackupEvent& event) {
            if (event.kind == BackupEvent::Kind::log && event.line == "Copied Camera Roll/IMG_0001.JPG")
                cancelled = waitFor(videoBegun);
        });
    EXPECT_LT(clock.elapsed(), 5000) << "the run waited for the video's download";
    EXPECT_TRUE(cancelled) << "the video's download never began ahead of its turn";
    EXPECT_TRUE(videoStopped);
    EXPECT_TRUE(run.summary.cancelled);
    // A cancelled run reports nothing done, whatever it finished.
    ASSERT_FALSE(run.progress.isEmpty());
    EXPECT_EQ(run.progress.last().assetsDone, 0);
    EXPECT_EQ(run.progress.last().assetsTotal, 2);
    EXPECT_THAT(run.log, ElementsAre("Copied Camera Roll/IMG_0001.JPG"));
    EXPECT_EQ(backupFolder(dir.path()).files.keys(), QStringList{"Camera Roll/IMG_0001.JPG"});
    EXPECT_EQ(fileRows(manifest, false).size(), 1);
}
