// The selection, its counts and where it is kept, the backup folder's status line, demo mode and
// quitting without a run: a model without any device (demo mode, or no USB service at all).
#include "ModelFixture.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

namespace {

const QString kJapan = QStringLiteral("DEMO-ALBUM-JAPAN-2026");
const QString kCornwall = QStringLiteral("DEMO-ALBUM-CORNWALL");
const QString kHolidays = QStringLiteral("DEMO-FOLDER-HOLIDAYS");

} // namespace

// Clicking photos: a choice appears, a choice that takes everything again goes away, the last
// photo clicked away unticks the folder, and folder boxes and the status line follow.
TEST(AppModelSelection, PhotoChoicesFollowTheClicks)
{
    ModelSetup setup;
    const ScopedEnv demo("OMB_DEMO", "1");
    const auto model = setup.model();
    const QStringList photos = model->plan()->node(kJapan)->assetUUIDs;
    ASSERT_EQ(photos.size(), 312);
    EXPECT_EQ(model->destinationStatus().text, QString::fromUtf8("Existing backup \u00b7 16 new to back up"));
    int untickedChanges = 0;
    QObject::connect(model.get(), &AppModel::untickedIDsChanged, [&] { ++untickedChanges; });

    model->togglePhoto(photos.first(), kJapan);
    EXPECT_EQ(model->photoChoices().value(kJapan), (PhotoChoice{PhotoChoice::Mode::allExcept, {photos.first()}}));
    EXPECT_EQ(model->chosenCount(kJapan), 311);
    EXPECT_EQ(model->tickState(kJapan), TickState::mixed);
    EXPECT_EQ(model->tickState(kHolidays), TickState::mixed);
    EXPECT_EQ(model->chosenCount(kHolidays), 311 + 148);
    model->togglePhoto(photos.first(), kJapan);
    EXPECT_FALSE(model->photoChoices().contains(kJapan)) << "an allExcept choice left empty takes the folder whole";
    EXPECT_EQ(model->tickState(kJapan), TickState::on);

    model->chooseNoPhotos(kJapan);
    EXPECT_EQ(model->tickState(kJapan), TickState::off);
    EXPECT_EQ(model->destinationStatus().text, QString::fromUtf8("Existing backup \u00b7 up to date"));
    model->togglePhoto(photos.last(), kJapan); // not backed up yet
    EXPECT_EQ(model->photoChoices().value(kJapan), (PhotoChoice{PhotoChoice::Mode::only, {photos.last()}}));
    EXPECT_TRUE(model->isTicked(kJapan));
    EXPECT_EQ(model->chosenCount(kJapan), 1);
    EXPECT_EQ(model->destinationStatus().text, QString::fromUtf8("Existing backup \u00b7 1 new to back up"));
    model->togglePhoto(photos.last(), kJapan);
    EXPECT_FALSE(model->isTicked(kJapan)) << "the last chosen photo clicked away unticks the folder";
    EXPECT_FALSE(model->photoChoices().contains(kJapan));

    model->toggle(kHolidays); // mixed: ticks both albums
    EXPECT_EQ(model->tickState(kHolidays), TickState::on);
    model->toggle(kHolidays);
    EXPECT_FALSE(model->isTicked(kJapan));
    EXPECT_FALSE(model->isTicked(kCornwall));
    EXPECT_EQ(model->chosenCount(kHolidays), 0);
    EXPECT_EQ(model->assetCount(kHolidays), 460);
    EXPECT_EQ(model->backedUpCount(kHolidays), 460 - 16);

    const int changes = untickedChanges;
    model->setTicked(BackupPlan::cameraRollID, true); // ticked already
    EXPECT_EQ(untickedChanges, changes) << "no signal without a change";
}

// The Hidden folder is off at first and is ticked only through includeHidden, whatever else is
// ticked or unticked; the lists of folders to back up follow it.
TEST(AppModelSelection, HiddenIsTickedOnlyThroughIncludeHidden)
{
    ModelSetup setup;
    const ScopedEnv demo("OMB_DEMO", "1");
    const auto model = setup.model();
    EXPECT_EQ(model->tickState(BackupPlan::hiddenID), TickState::off);
    EXPECT_FALSE(model->allLeaves().contains(BackupPlan::hiddenID));
    EXPECT_FALSE(model->tickedLeaves().contains(BackupPlan::hiddenID));

    model->toggle(BackupPlan::hiddenID);
    EXPECT_TRUE(model->includeHidden());
    EXPECT_TRUE(model->untickedIDs().isEmpty());
    EXPECT_TRUE(model->allLeaves().contains(BackupPlan::hiddenID));
    model->toggle(kHolidays);
    model->setTicked(BackupPlan::hiddenID, false);
    EXPECT_FALSE(model->includeHidden());
    EXPECT_EQ(model->untickedIDs(), (QSet<QString>{kJapan, kCornwall}));

    const QString hiddenPhoto = model->plan()->hidden.assetUUIDs.first();
    model->togglePhoto(hiddenPhoto, BackupPlan::hiddenID);
    EXPECT_TRUE(model->includeHidden());
    EXPECT_EQ(model->chosenCount(BackupPlan::hiddenID), 1);
    EXPECT_FALSE(model->untickedIDs().contains(BackupPlan::hiddenID));
}

// Demo mode: only "1" switches it on; it shows the built-in library with its presets and never
// writes a setting, whatever the user does.
TEST(AppModelSelection, DemoModeShowsItsPresetsAndWritesNothing)
{
    ModelSetup setup;
    {
        const ScopedEnv demo("OMB_DEMO", "true");
        const ScopedEnv noService("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + setup.dir.filePath("none.sock")).toUtf8());
        EXPECT_FALSE(setup.model(std::chrono::hours(1))->isDemo());
    }
    setup.settings.setValue("destinationPath", "/elsewhere");
    const QStringList keys = setup.settings.allKeys();
    const ScopedEnv demo("OMB_DEMO", "1");
    const ScopedEnv choice("OMB_DEMO_CHOICE", "1");
    const ScopedEnv run("OMB_DEMO_RUN", "finished");
    const auto model = setup.model();
    EXPECT_TRUE(model->isDemo());
    ASSERT_EQ(model->devices().size(), 1);
    EXPECT_EQ(model->devices().first().name, "My iPhone");
    EXPECT_EQ(model->libraryState(), LibraryState::loaded());
    EXPECT_EQ(model->selectedNodeID(), kJapan);
    EXPECT_EQ(model->destination(), "/Photo Backup");
    EXPECT_EQ(model->tickState(kJapan), TickState::mixed);
    EXPECT_EQ(model->chosenCount(kJapan), 312 - 78);
    ASSERT_TRUE(model->run());
    EXPECT_EQ(model->run()->phase.kind, RunPhase::Kind::finished);
    EXPECT_EQ(model->run()->nodeIDs, model->tickedLeaves());
    EXPECT_EQ(model->run()->log.last(),
              "  Already backed up: " + QString::number(model->run()->phase.summary->filesAlreadyBackedUp));

    model->toggle(kHolidays);
    model->togglePhoto(model->plan()->cameraRoll.assetUUIDs.first(), BackupPlan::cameraRollID);
    model->toggle(BackupPlan::hiddenID);
    model->setFolder(kHolidays, false);
    model->saveTicks();
    setup.platform.folderAnswer = setup.dir.path();
    model->chooseDestination();
    EXPECT_EQ(model->destination(), setup.dir.path());
    setup.settings.sync();
    EXPECT_EQ(setup.settings.allKeys(), keys);
    EXPECT_EQ(setup.settings.value("destinationPath"), "/elsewhere");
}

// What is ticked, chosen, collapsed and the backup folder survive a restart through the settings,
// in the shapes they are stored in; damaged photo choices are ignored, and the rest still read.
// Without the USB service the model says so.
TEST(AppModelSelection, SelectionIsKeptInTheSettings)
{
    ModelSetup setup;
    const ScopedEnv noService("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + setup.dir.filePath("none.sock")).toUtf8());
    setup.settings.setValue("photoChoices", R"({"camera-roll": {"mode": "only", "uuids": ["A", "B"]}})");
    const QString folder = setup.dir.filePath("backup");
    QDir().mkpath(folder);
    {
        const auto model = setup.model();
        ASSERT_TRUE(waitFor([&] { return !model->usbServiceProblem().isEmpty(); }));
        EXPECT_EQ(model->usbServiceProblem(), "The USB service usbmuxd isn't running. Install the usbmuxd package, "
                                              "then plug the device in again.");
        EXPECT_EQ(model->libraryState(), LibraryState::noDevice());
        EXPECT_TRUE(model->isChosen("A", BackupPlan::cameraRollID));
        EXPECT_FALSE(model->isChosen("C", BackupPlan::cameraRollID));
        EXPECT_EQ(model->destinationStatus().text, "Choose where your photos go");

        model->setTicked("album-1", false);
        model->setTicked(BackupPlan::hiddenID, true);
        model->saveTicks();
        model->setFolder("folder-1", false);
        setup.platform.folderAnswer = folder;
        model->chooseDestination();
        model->chooseDestination();
        ASSERT_EQ(setup.platform.folderRequests.size(), 2);
        const Platform::FolderRequest& request = setup.platform.folderRequests.first();
        EXPECT_EQ(request.title, "Choose Backup Folder");
        EXPECT_EQ(request.message,
                  "Photos will be copied into this folder. Nothing in it is ever overwritten or deleted.");
        EXPECT_EQ(request.acceptLabel, "Use This Folder");
        EXPECT_EQ(setup.platform.folderRequests.last().startFolder, folder);
        EXPECT_EQ(model->destinationStatus(), (DestinationStatus{"New backup", false}));
        model->revealDestination();
        EXPECT_EQ(setup.platform.revealed, QStringList{folder});
        EXPECT_FALSE(model->canBackUp()) << "no library";
    }
    EXPECT_EQ(setup.settings.value("untickedIDs").toStringList(), QStringList{"album-1"});
    EXPECT_EQ(setup.settings.value("includeHidden").toBool(), true);
    EXPECT_EQ(setup.settings.value("collapsedFolderIDs").toStringList(), QStringList{"folder-1"});
    EXPECT_EQ(setup.settings.value("destinationPath").toString(), folder);
    const QJsonObject stored = QJsonDocument::fromJson(setup.settings.value("photoChoices").toByteArray()).object();
    EXPECT_EQ(stored.value("camera-roll").toObject(), (QJsonObject{{"mode", "only"}, {"uuids", QJsonArray{"A", "B"}}}));

    for (const QByteArray& damaged : {QByteArray("{not json"), QByteArray(R"({"x": {"mode": "some", "uuids": []}})")}) {
        setup.settings.setValue("photoChoices", damaged);
        QDir(folder).removeRecursively(); // the drive is gone
        const auto model = setup.model();
        EXPECT_TRUE(model->photoChoices().isEmpty()) << damaged.toStdString();
        EXPECT_EQ(model->untickedIDs(), QSet<QString>{"album-1"});
        EXPECT_TRUE(model->includeHidden());
        EXPECT_EQ(model->collapsedFolderIDs(), QSet<QString>{"folder-1"});
        EXPECT_EQ(model->destinationStatus(),
                  (DestinationStatus{"Not available. Is the drive or share connected?", true}));
    }
}

// Quitting with no copy under way closes the sheets and ends at once, without asking; a sheet that
// will not close holds the end back for at most 20 looks, 0.1 s apart.
TEST(AppModelSelection, QuittingWithoutARunWaitsOnlyForSheets)
{
    ModelSetup setup;
    const ScopedEnv demo("OMB_DEMO", "1");
    const ScopedEnv run("OMB_DEMO_RUN", "ready");
    const auto model = setup.model();
    ASSERT_TRUE(model->run());
    bool idle = false;
    model->whenIdle([&] { idle = true; });
    EXPECT_FALSE(idle) << "a run is open";
    setup.platform.sheetStaysAttached = true;
    model->quit();
    EXPECT_FALSE(model->run());
    EXPECT_TRUE(setup.platform.alerts.isEmpty());
    EXPECT_EQ(setup.platform.terminations, 0);
    ASSERT_TRUE(waitFor([&] { return setup.platform.terminations > 0; }, 5000));
    EXPECT_EQ(setup.platform.sheetLooks, 21);
    EXPECT_EQ(setup.platform.terminations, 1);
}
