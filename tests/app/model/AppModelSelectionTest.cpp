// The selection, its counts and where it is kept, the backup folder's status line, demo mode and
// quitting without a copy under way: a model without any device (demo mode, or no USB service).
#include "ModelFixture.h"

#include <QJsonArray>

#include <gtest/gtest.h>

namespace {

const QString kJapan = QStringLiteral("DEMO-ALBUM-JAPAN-2026"); // 312 photos, the newest 16 not backed up
const QString kCornwall = QStringLiteral("DEMO-ALBUM-CORNWALL");
const QString kHolidays = QStringLiteral("DEMO-FOLDER-HOLIDAYS"); // Japan and Cornwall
const QString kHidden = BackupPlan::hiddenID;

QString status(const AppModel& model) { return model.destinationStatus().text; }

} // namespace

// Clicking photos and boxes: a choice appears, one that takes everything again goes away, the last
// photo clicked away unticks the folder; folder boxes, counts and the status line follow; Hidden is
// off at first and ticked only through includeHidden.
TEST(AppModelSelection, TicksAndPhotoChoicesFollowTheClicks)
{
    ModelSetup setup;
    const ScopedEnv demo("OMB_DEMO", "1");
    const auto model = setup.model();
    const QStringList photos = model->plan()->node(kJapan)->assetUUIDs;
    EXPECT_EQ(status(*model), QString::fromUtf8("Existing backup \u00b7 16 new to back up"));
    int untickedChanges = 0;
    QObject::connect(model.get(), &AppModel::untickedIDsChanged, [&] { ++untickedChanges; });

    model->togglePhoto(photos.first(), kJapan);
    EXPECT_EQ(model->photoChoices().value(kJapan), (PhotoChoice{PhotoChoice::Mode::allExcept, {photos.first()}}));
    EXPECT_EQ(model->tickState(kJapan), TickState::mixed);
    EXPECT_EQ(model->tickState(kHolidays), TickState::mixed);
    EXPECT_EQ(model->chosenCount(kHolidays), 311 + 148);
    model->togglePhoto(photos.first(), kJapan);
    EXPECT_FALSE(model->photoChoices().contains(kJapan)) << "an allExcept choice left empty takes the folder whole";
    EXPECT_EQ(model->tickState(kJapan), TickState::on);

    model->chooseNoPhotos(kJapan);
    EXPECT_EQ(status(*model), QString::fromUtf8("Existing backup \u00b7 up to date"));
    model->togglePhoto(photos.last(), kJapan); // not backed up yet
    EXPECT_EQ(model->photoChoices().value(kJapan), (PhotoChoice{PhotoChoice::Mode::only, {photos.last()}}));
    EXPECT_EQ(model->chosenCount(kJapan), 1);
    EXPECT_EQ(status(*model), QString::fromUtf8("Existing backup \u00b7 1 new to back up"));
    model->togglePhoto(photos.last(), kJapan);
    EXPECT_FALSE(model->isTicked(kJapan)) << "the last chosen photo clicked away unticks the folder";
    EXPECT_FALSE(model->photoChoices().contains(kJapan));

    model->toggle(kHolidays); // mixed: ticks both albums
    EXPECT_EQ(model->tickState(kHolidays), TickState::on);
    model->toggle(kHolidays);
    EXPECT_EQ(model->untickedIDs(), (QSet<QString>{kJapan, kCornwall}));
    EXPECT_EQ(model->chosenCount(kHolidays), 0);
    EXPECT_EQ(model->backedUpCount(kHolidays), model->assetCount(kHolidays) - 16);
    const int changes = untickedChanges;
    model->setTicked(BackupPlan::cameraRollID, true); // ticked already
    EXPECT_EQ(untickedChanges, changes) << "no signal without a change";

    EXPECT_EQ(model->tickState(kHidden), TickState::off);
    EXPECT_FALSE(model->allLeaves().contains(kHidden));
    model->toggle(kHidden);
    EXPECT_TRUE(model->includeHidden());
    EXPECT_TRUE(model->tickedLeaves().contains(kHidden));
    model->setTicked(kHidden, false);
    model->togglePhoto(model->plan()->hidden.assetUUIDs.first(), kHidden);
    EXPECT_TRUE(model->includeHidden());
    EXPECT_EQ(model->chosenCount(kHidden), 1);
    EXPECT_EQ(model->untickedIDs(), (QSet<QString>{kJapan, kCornwall}));
}

// Demo mode: only "1" switches it on; it shows the built-in library with its presets and never
// writes a setting, whatever the user does. Quitting with no copy under way closes the sheet and
// ends without asking; a sheet that will not close holds the end back for at most 20 looks.
TEST(AppModelSelection, DemoModeShowsItsPresetsWritesNothingAndQuitsWithoutAsking)
{
    ModelSetup setup;
    {
        const ScopedEnv demo("OMB_DEMO", "true");
        const ScopedEnv noService("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + setup.dir.filePath("none.sock")).toUtf8());
        EXPECT_FALSE(setup.model(1h)->isDemo());
    }
    setup.settings.setValue("destinationPath", "/elsewhere");
    const ScopedEnv demo("OMB_DEMO", "1");
    const ScopedEnv choice("OMB_DEMO_CHOICE", "1");
    const ScopedEnv run("OMB_DEMO_RUN", "finished");
    const auto model = setup.model();
    EXPECT_TRUE(model->isDemo());
    EXPECT_EQ(model->devices().value(0).name, "My iPhone");
    EXPECT_EQ(model->libraryState(), LibraryState::loaded());
    EXPECT_EQ(model->selectedNodeID(), kJapan);
    EXPECT_EQ(model->destination(), "/Photo Backup");
    EXPECT_EQ(model->chosenCount(kJapan), 312 - 78);
    ASSERT_TRUE(model->run());
    EXPECT_EQ(model->run()->phase.kind, RunPhase::Kind::finished);
    EXPECT_EQ(model->run()->nodeIDs, model->tickedLeaves());
    EXPECT_EQ(model->run()->log.last(),
              "  Already backed up: " + QString::number(model->run()->phase.summary->filesAlreadyBackedUp));

    model->toggle(kHolidays);
    model->togglePhoto(model->plan()->cameraRoll.assetUUIDs.first(), BackupPlan::cameraRollID);
    model->toggle(kHidden);
    model->setFolder(kHolidays, false);
    model->saveTicks();
    setup.platform.folderAnswer = setup.backup;
    model->chooseDestination();
    EXPECT_EQ(model->destination(), setup.backup);
    setup.settings.sync();
    EXPECT_EQ(setup.settings.allKeys(), QStringList{"destinationPath"});
    EXPECT_EQ(setup.settings.value("destinationPath"), "/elsewhere");

    bool idle = false;
    model->whenIdle([&] { idle = true; });
    EXPECT_FALSE(idle) << "a run is open";
    setup.platform.sheetStaysAttached = true;
    model->quit();
    EXPECT_FALSE(model->run());
    EXPECT_TRUE(setup.platform.alerts.isEmpty());
    ASSERT_TRUE(waitFor([&] { return setup.platform.terminations > 0; }, 5000));
    EXPECT_EQ(setup.platform.sheetLooks, 21);
}

// What is ticked, chosen, collapsed and the backup folder survive a restart through the settings,
// in the shapes they are stored in; damaged photo choices are ignored, and the rest still read.
// Without the USB service the model says so.
TEST(AppModelSelection, SelectionIsKeptInTheSettings)
{
    ModelSetup setup;
    const ScopedEnv noService("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + setup.dir.filePath("none.sock")).toUtf8());
    setup.settings.setValue("photoChoices", R"({"camera-roll": {"mode": "only", "uuids": ["A", "B"]}})");
    {
        const auto model = setup.model();
        ASSERT_TRUE(waitFor([&] { return !model->usbServiceProblem().isEmpty(); }));
        EXPECT_EQ(model->usbServiceProblem(), "The USB service usbmuxd isn't running. Install the usbmuxd package, "
                                              "then plug the device in again.");
        EXPECT_EQ(model->libraryState(), LibraryState::noDevice());
        EXPECT_TRUE(model->isChosen("A", BackupPlan::cameraRollID));
        EXPECT_FALSE(model->isChosen("C", BackupPlan::cameraRollID));
        EXPECT_EQ(status(*model), "Choose where your photos go");

        model->setTicked("album-1", false);
        model->setTicked(kHidden, true);
        model->saveTicks();
        model->setFolder("folder-1", false);
        setup.platform.folderAnswer = setup.backup;
        model->chooseDestination();
        model->chooseDestination();
        ASSERT_EQ(setup.platform.folderRequests.size(), 2);
        const Platform::FolderRequest& request = setup.platform.folderRequests.first();
        EXPECT_EQ(request.title, "Choose Backup Folder");
        EXPECT_EQ(request.message,
                  "Photos will be copied into this folder. Nothing in it is ever overwritten or deleted.");
        EXPECT_EQ(request.acceptLabel, "Use This Folder");
        EXPECT_EQ(setup.platform.folderRequests.last().startFolder, setup.backup);
        EXPECT_EQ(status(*model), "New backup");
        model->revealDestination();
        EXPECT_EQ(setup.platform.revealed, QStringList{setup.backup});
    }
    EXPECT_EQ(setup.settings.value("untickedIDs").toStringList(), QStringList{"album-1"});
    EXPECT_EQ(setup.settings.value("includeHidden").toBool(), true);
    EXPECT_EQ(setup.settings.value("collapsedFolderIDs").toStringList(), QStringList{"folder-1"});
    EXPECT_EQ(setup.settings.value("destinationPath").toString(), setup.backup);
    const QJsonObject stored = QJsonDocument::fromJson(setup.settings.value("photoChoices").toByteArray()).object();
    EXPECT_EQ(stored.value("camera-roll").toObject(), (QJsonObject{{"mode", "only"}, {"uuids", QJsonArray{"A", "B"}}}));

    QDir(setup.backup).removeRecursively(); // the drive is gone
    for (const QByteArray& damaged : {QByteArray("{not json"), QByteArray(R"({"x": {"mode": "some", "uuids": []}})")}) {
        setup.settings.setValue("photoChoices", damaged);
        const auto model = setup.model();
        EXPECT_TRUE(model->photoChoices().isEmpty()) << damaged.toStdString();
        EXPECT_EQ(model->untickedIDs(), QSet<QString>{"album-1"});
        EXPECT_TRUE(model->includeHidden());
        EXPECT_EQ(model->collapsedFolderIDs(), QSet<QString>{"folder-1"});
        EXPECT_EQ(model->destinationStatus(),
                  (DestinationStatus{"Not available. Is the drive or share connected?", true}));
    }
}
