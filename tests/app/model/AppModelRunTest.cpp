// Backups through the model, as the sheet drives them: the dry run, the real run with its progress
// on the GUI thread, stopping, quitting while files are copied, and the counts afterwards.
#include "ModelFixture.h"
#include "backup/BackupFolderLock.h"

#include <QThread>

#include <gtest/gtest.h>

// The whole run: the dry run says what will be copied, the real run reports progress on the GUI
// thread and keeps the window open until it ends, the summary closes the log, and closing the run
// refreshes what the folder holds.
TEST(AppModelRun, DryRunThenRunThenCountsRefresh)
{
    ModelSetup setup;
    ASSERT_TRUE(setup.connected());
    AppModel& model = *setup.app;
    EXPECT_EQ(model.destinationStatus().text, "New backup");
    ASSERT_TRUE(model.canBackUp());

    model.startBackup(true);
    ASSERT_TRUE(model.run());
    EXPECT_EQ(model.run()->title, "Back Up All");
    EXPECT_EQ(model.run()->nodeIDs, model.allLeaves());
    EXPECT_EQ(setup.phase(), RunPhase::Kind::preparing);
    ASSERT_TRUE(setup.reaches(RunPhase::Kind::ready));
    const BackupSummary dryRun = *model.run()->phase.summary;
    EXPECT_TRUE(dryRun.isDryRun);
    EXPECT_GT(dryRun.filesToCopy, 0);

    bool progressOffGuiThread = false;
    int64_t mostDone = 0;
    QObject::connect(&model, &AppModel::runChanged, [&] {
        progressOffGuiThread = progressOffGuiThread || QThread::currentThread() != qApp->thread();
        if (setup.phase() == RunPhase::Kind::running)
            mostDone = std::max(mostDone, model.run()->phase.progress.progress.assetsDone);
    });
    model.perform(false);
    EXPECT_EQ(setup.phase(), RunPhase::Kind::running);
    EXPECT_EQ(model.run()->log.first(), "Backing up to " + setup.backup);
    EXPECT_EQ(setup.platform.closable, QList<bool>{false});
    ASSERT_TRUE(setup.reaches(RunPhase::Kind::finished));
    EXPECT_FALSE(progressOffGuiThread);
    EXPECT_GT(mostDone, 0);
    const BackupSummary summary = *model.run()->phase.summary;
    EXPECT_TRUE(summary.errors.isEmpty()) << summary.errors.join("\n").toStdString();
    EXPECT_GT(summary.filesCopied, 0);
    QStringList closing;
    for (const QString& line : summary.lines())
        closing << "  " + line;
    EXPECT_EQ(model.run()->log.mid(model.run()->log.size() - closing.size()), closing);
    EXPECT_EQ(setup.platform.closable, (QList<bool>{false, true}));

    EXPECT_EQ(model.backedUpCount(BackupPlan::cameraRollID), 0) << "counts refresh when the run is closed";
    bool idle = false;
    model.whenIdle([&] { idle = true; });
    model.closeRun();
    EXPECT_TRUE(idle);
    EXPECT_FALSE(model.run());
    EXPECT_EQ(model.backedUpCount(BackupPlan::cameraRollID), model.assetCount(BackupPlan::cameraRollID));
    EXPECT_GT(model.manifestFileCount(), 0);
    EXPECT_EQ(model.destinationStatus().text, QString::fromUtf8("Existing backup \u00b7 up to date"));
    EXPECT_EQ(setup.verify(), 0);
}

// Stop during the real run ends it as cancelled with what was copied recorded, and the next run
// copies the rest.
TEST(AppModelRun, StopKeepsWhatWasCopiedAndTheNextRunCompletes)
{
    ModelSetup setup;
    ASSERT_TRUE(setup.connected());
    ASSERT_TRUE(setup.slowLink());
    AppModel& model = *setup.app;
    ASSERT_TRUE(setup.startCopying());
    model.cancelBackup();
    EXPECT_TRUE(model.cancelFlag()->isCancelled());
    ASSERT_TRUE(setup.reaches(RunPhase::Kind::finished));
    EXPECT_TRUE(model.run()->phase.summary->cancelled);
    EXPECT_EQ(model.run()->log.last(), "  Cancelled before finishing.");
    model.closeRun();
    const int copied = model.backedUpCount(BackupPlan::cameraRollID);
    EXPECT_GT(model.manifestFileCount(), 0);
    EXPECT_LT(copied, model.assetCount(BackupPlan::cameraRollID));

    setup.setFaults("phone", {});
    ASSERT_TRUE(setup.backUp());
    EXPECT_FALSE(model.run()->phase.summary->cancelled);
    EXPECT_TRUE(model.run()->phase.summary->errors.isEmpty());
    model.closeRun();
    EXPECT_EQ(model.destinationStatus().text, QString::fromUtf8("Existing backup \u00b7 up to date"));
    EXPECT_EQ(setup.verify(), 0);
}

// Quitting while only the dry run counts ends at once; while files are copied it asks, "Keep Backing
// Up" changes nothing, and "Stop and Quit" ends the application only once the engine has returned.
TEST(AppModelRun, QuittingDuringARunWaitsForTheEngine)
{
    ModelSetup setup;
    ASSERT_TRUE(setup.connected());
    ASSERT_TRUE(setup.slowLink());
    AppModel& model = *setup.app;
    FakePlatform& platform = setup.platform;
    model.startBackup(true);
    model.quit();
    EXPECT_EQ(platform.terminations, 1);
    EXPECT_TRUE(platform.alerts.isEmpty());
    EXPECT_FALSE(model.run());

    ASSERT_TRUE(setup.startCopying());
    model.quit();
    ASSERT_EQ(platform.alerts.size(), 1);
    EXPECT_EQ(platform.alerts[0].message, "A backup is in progress");
    EXPECT_EQ(platform.alerts[0].informativeText, "Stop the backup and quit? Everything copied so far is kept, and "
                                                  "your next backup carries on from where this one stopped.");
    EXPECT_EQ(platform.alerts[0].firstButton, "Keep Backing Up");
    EXPECT_EQ(platform.alerts[0].secondButton, "Stop and Quit");
    EXPECT_EQ(setup.phase(), RunPhase::Kind::running);
    EXPECT_FALSE(model.cancelFlag()->isCancelled());

    platform.alertAnswer = Platform::AlertButton::second;
    model.quit();
    EXPECT_TRUE(model.cancelFlag()->isCancelled());
    EXPECT_EQ(platform.terminations, 1) << "not before the engine has returned";
    ASSERT_TRUE(waitFor([&] { return platform.terminations == 2; }));
    EXPECT_EQ(platform.closable.last(), true);
    EXPECT_FALSE(model.run());
    EXPECT_EQ(setup.verify(), 0);
}

// A backup folder another run copies into, or whose manifest is a link, is refused at the dry run
// with the reason in the log; until then the model counts it as a folder without a backup.
TEST(AppModelRun, FolderThatCannotBeUsedIsRefusedAtTheDryRun)
{
    ModelSetup setup;
    ASSERT_TRUE(setup.connected());
    AppModel& model = *setup.app;
    {
        const BackupFolderLock busy(setup.backup);
        model.startBackup(true);
        ASSERT_TRUE(setup.reaches(RunPhase::Kind::finished));
        EXPECT_EQ(model.run()->log, QStringList{BackupFolderBusy(QCoreApplication::applicationPid()).description()});
    }
    model.closeRun();
    ASSERT_TRUE(QFile::link(setup.dir.filePath("settings.ini"), setup.backup + "/.ombrelo-manifest.sqlite"));
    model.rebuildPlan();
    EXPECT_EQ(model.destinationStatus().text, "New backup");
    model.startBackup(true);
    ASSERT_TRUE(setup.reaches(RunPhase::Kind::finished));
    EXPECT_TRUE(model.run()->log.last().contains("where the backup keeps a file of its own"))
        << model.run()->log.join("\n").toStdString();
}
