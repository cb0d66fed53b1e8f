#include "BackupComparison.h"
#include "EngineFixture.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

// Runs broken off by faults and by being stopped dead, then run again. Real files, real syncs.

using ::testing::Contains;
using ::testing::IsEmpty;

namespace {

const QString kDir = "/DCIM/100APPLE/";

// A live photo in two albums, an edited photo whose name a user's file already holds, two
// different photos of the same name, and the same picture twice in the camera roll.
struct BusyPhone : TestPhone {
    BusyPhone()
    {
        addAsset("P", "IMG_0001.HEIC", "live still", kJan2024 + 1).kindSubtype = 2;
        source.addFile(kDir + "IMG_0001.MOV", "live motion");
        addAsset("Q", "IMG_0002.JPG", "edited original", kJan2024 + 2).hasAdjustments = true;
        const QString edits = "/PhotoData/Mutations/DCIM/100APPLE/IMG_0002/Adjustments/";
        source.addFile(edits + "Adjustments.plist", "adjustments");
        source.addFile(edits + "FullSizeRender.jpg", "edited render");
        addAsset("N1", "IMG_0100.JPG", "first of the name", kJan2024 + 3);
        addAsset("N2", "IMG_0100.JPG", "second of the name", kJan2024 + 4, "DCIM/101APPLE");
        addAsset("D1", "IMG_0200.JPG", "same picture", kJan2024 + 5);
        addAsset("D2", "IMG_0201.JPG", "same picture", kJan2024 + 6);
        const int64_t trips = addAlbum("trips", "Trips");
        const int64_t best = addAlbum("best", "Best");
        putInAlbum(trips, "P");
        putInAlbum(best, "P");
    }
};

const QStringList kEverything{"camera-roll", "trips", "best"};

void prepareFolder(const QString& root)
{
    const QString users = root + "/Camera Roll/IMG_0002.JPG";
    writeFile(users, "the user's own picture");
    QFile file(users);
    file.open(QIODevice::ReadWrite);
    file.setFileTime(QDateTime(QDate(2021, 3, 4), QTime(5, 6), Qt::UTC), QFileDevice::FileModificationTime);
}

} // namespace

// A run stopped dead at any point, then run again, ends exactly like a run never stopped.
// Every event the engine sends is a stopping point (a "Copied" line comes after the file has its
// name and before its row is written, "Already on disk" before an adopted file's row), and so is
// every download.
TEST(BackupEngineRecovery, InterruptedAnywhereThenRunAgainEndsLikeAnUninterruptedRun)
{
    BusyPhone phone;
    const BackupPlan plan(phone.library, {});
    TempDir cleanDir;
    prepareFolder(cleanDir.path());
    int events = 0;
    int downloads = 0;
    {
        Manifest manifest(cleanDir.path());
        const RunResult run = runEngine(phone.source, plan, cleanDir.path(), manifest, options(kEverything));
        events = int(run.log.size() + run.progress.size());
        downloads = phone.source.downloads;
        ASSERT_EQ(run.summary.filesCopied, 10);
        ASSERT_EQ(run.summary.duplicatesDiscarded, 1);
    }
    ASSERT_EQ(readFile(cleanDir.filePath("Camera Roll/IMG_0002.JPG")), "the user's own picture");
    ASSERT_TRUE(QFileInfo::exists(cleanDir.filePath("Camera Roll/IMG_0002 (2).JPG")));
    ASSERT_TRUE(QFileInfo::exists(cleanDir.filePath("Camera Roll/IMG_0100 (2).JPG")));

    struct Stop {
        QString where;
        int event = 0;    // stop at this event of the first run (1-based), or
        int download = 0; // before this download, with a half-written file left in the temporary folder
    };
    QList<Stop> stops;
    for (int e = 1; e <= events; ++e)
        stops.append({"event " + QString::number(e), e, 0});
    for (int d = 1; d <= downloads; ++d)
        stops.append({"download " + QString::number(d), 0, d});

    // One run of the backup, stopped dead at `stop` when it gets that far. Returns whether it was.
    const auto stoppedRun = [&](const QString& root, const Stop& stop) {
        phone.source.downloads = 0;
        phone.source.beforeDownload = [&](const QString&, const QString& destination, int count) {
            if (count == stop.download) {
                // What a killed process leaves: a half-written download nobody removes.
                writeFile(destination + "-left", "half");
                throw Killed();
            }
        };
        Manifest manifest(root);
        int seen = 0;
        bool killed = false;
        try {
            runEngine(phone.source, plan, root, manifest, options(kEverything), {}, [&](const BackupEvent&) {
                if (++seen == stop.event)
                    throw Killed();
            });
        } catch (const Killed&) {
            killed = true;
        }
        phone.source.beforeDownload = nullptr;
        // Whatever the manifest records is on disk, complete.
        EXPECT_THAT(inconsistencies(root), IsEmpty());
        return killed;
    };

    for (const Stop& stop : stops) {
        SCOPED_TRACE(stop.where.toStdString());
        TempDir dir;
        prepareFolder(dir.path());
        ASSERT_TRUE(stoppedRun(dir.path(), stop));
        // The run that carries on is stopped too, at the same count of its own events.
        if (stop.event)
            stoppedRun(dir.path(), stop);
        Manifest reopened(dir.path());
        const RunResult rest = runEngine(phone.source, plan, dir.path(), reopened, options(kEverything));
        EXPECT_THAT(rest.summary.errors, IsEmpty());
        EXPECT_EQ(backupDifferences(cleanDir.path(), dir.path()), QStringList());
    }
}
