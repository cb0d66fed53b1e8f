// Devices come and go as the user plugs and unplugs them: the model against a simulated USB
// service whose phones are folders moved in and out of its devices folder.
#include "ModelFixture.h"

#include <QRegularExpression>

#include <gtest/gtest.h>

namespace {

QString describe(const LibraryState& state)
{
    static const QStringList kinds{"no device", "loading", "failed", "loaded"};
    return kinds[int(state.kind())] + (state.message().isEmpty() ? QString() : ": " + state.message());
}

} // namespace

// A phone plugged in is found by the next poll and connected, step by step; a second phone does not
// take its place, nor does the same pair listed in another order; unplugging the selected phone
// clears its library, plan and counts, and the next poll connects the other one.
TEST(AppModelDevices, PlugInReorderAndUnplug)
{
    ModelSetup setup;
    const QString anna = setup.make("b-anna", 1, "Anna's iPhone");
    const QString ben = setup.make("c-ben", 2, "Ben's iPhone");
    setup.serve();
    const auto model = setup.model();
    QStringList states, cleared;
    QObject::connect(model.get(), &AppModel::libraryStateChanged, [&] {
        states << describe(model->libraryState());
        if (model->libraryState() == LibraryState::noDevice())
            cleared << QString("plan %1, library %2, assets %3")
                           .arg(model->plan() != nullptr)
                           .arg(model->library().has_value())
                           .arg(model->assetCount(BackupPlan::cameraRollID));
    });
    int deviceLists = 0;
    QObject::connect(model.get(), &AppModel::devicesChanged, [&] { ++deviceLists; });

    setup.plug("b-anna");
    ASSERT_TRUE(waitFor([&] { return model->libraryState() == LibraryState::loaded(); }))
        << states.join("\n").toStdString();
    EXPECT_EQ(states, (QStringList{QString::fromUtf8("loading: Connecting\u2026"),
                                   QString::fromUtf8("loading: Reading the Photos library from Anna's iPhone\u2026"),
                                   "loaded"}));
    EXPECT_EQ(model->selectedUDID(), anna);
    EXPECT_EQ(model->device()->name, "Anna's iPhone");
    EXPECT_GT(model->assetCount(BackupPlan::cameraRollID), 0);
    EXPECT_EQ(model->chosenCount(BackupPlan::cameraRollID), model->assetCount(BackupPlan::cameraRollID));
    EXPECT_EQ(model->compatibility(), Compatibility::status(model->device()->productVersion));
    ASSERT_TRUE(waitFor([&] { return model->completeness().has_value(); }));
    EXPECT_FALSE(model->checkingCompleteness());
    EXPECT_EQ(model->completeness()->unaccountedFiles.size(), 3) << "the three files mkdevice hides";

    setup.plug("c-ben");
    ASSERT_TRUE(waitFor([&] { return model->devices().size() == 2; }));
    EXPECT_EQ(model->selectedUDID(), anna);
    const int listsBefore = deviceLists;
    QDir().rename(setup.devices + "/c-ben", setup.devices + "/a-ben"); // now listed first
    ASSERT_TRUE(
        waitFor([&] { return setup.simulator->log().contains("plugged in from " + setup.devices + "/a-ben"); }));
    for (int poll = 0; poll < 2; ++poll) {
        model->refreshDevices();
        settle(*model);
    }
    EXPECT_EQ(deviceLists, listsBefore);
    EXPECT_EQ(model->selectedUDID(), anna);
    EXPECT_EQ(model->libraryState(), LibraryState::loaded());

    states.clear();
    QDir().rename(setup.devices + "/b-anna", setup.parked + "/b-anna");
    ASSERT_TRUE(waitFor([&] {
        return model->selectedUDID() == ben && model->libraryState() == LibraryState::loaded();
    })) << states.join("\n").toStdString();
    EXPECT_EQ(states.first(), "no device");
    EXPECT_EQ(cleared, QStringList{"plan 0, library 0, assets 0"});
    EXPECT_EQ(model->device()->name, "Ben's iPhone");
}

// A locked phone shows the device's own text and is not opened; once unlocked, reloading loads it.
TEST(AppModelDevices, LockedPhoneLoadsOnceUnlocked)
{
    ModelSetup setup;
    const QString udid = setup.make("phone", 3, "Anna's iPhone");
    setup.setFaults("phone", {{"lockdownError", "PasswordProtected"}});
    setup.plug("phone");
    setup.serve();
    const auto model = setup.model(1h); // one look at start, then only on request
    const LibraryState locked = LibraryState::failed("The device is locked. Unlock it and try again.");
    ASSERT_TRUE(waitFor([&] { return model->libraryState() == locked; }))
        << describe(model->libraryState()).toStdString();
    EXPECT_FALSE(model->device());

    setup.setFaults("phone", {});
    model->reloadLibrary();
    ASSERT_TRUE(waitFor([&] { return model->libraryState() == LibraryState::loaded(); }))
        << describe(model->libraryState()).toStdString();
    EXPECT_EQ(model->selectedUDID(), udid);
    EXPECT_EQ(model->device()->name, "Anna's iPhone");
    EXPECT_EQ(model->devices().first().name, "Anna's iPhone");
}

// A connection still reading when the user picks another phone never overwrites the new one, not
// even when it fails afterwards.
TEST(AppModelDevices, ConnectionLeftBehindChangesNothing)
{
    ModelSetup setup;
    const QString slow = setup.make("a-slow", 4, "Slow iPhone");
    const QString quick = setup.make("b-quick", 5, "Quick iPhone");
    setup.setFaults("a-slow", {{"bytesPerSecond", 20000}});
    setup.plug("a-slow");
    setup.plug("b-quick");
    setup.serve();
    const auto model = setup.model();
    ASSERT_TRUE(waitFor([&] { return model->libraryState().message().startsWith("Reading the Photos library"); }));
    EXPECT_EQ(model->selectedUDID(), slow);

    model->connect(quick);
    ASSERT_TRUE(waitFor([&] { return model->libraryState() == LibraryState::loaded(); }));
    setup.unplug("a-slow"); // the slow reading fails now
    ASSERT_TRUE(waitFor([&] { return model->devices().size() == 1; }));
    settle(*model);
    EXPECT_EQ(model->libraryState(), LibraryState::loaded());
    EXPECT_EQ(model->selectedUDID(), quick);
    EXPECT_EQ(model->device()->name, "Quick iPhone");
}

// A phone unplugged while a run copies from it is not let go in the middle of the run: the run
// ends with its own errors, and only then does the model let the phone go.
TEST(AppModelDevices, PhoneUnpluggedDuringARunIsLetGoAfterIt)
{
    ModelSetup setup;
    ASSERT_TRUE(setup.connected());
    ASSERT_TRUE(setup.slowLink());
    ASSERT_TRUE(setup.startCopying());

    std::optional<LibraryState> whenFinished;
    QObject::connect(setup.app.get(), &AppModel::runChanged, [&] {
        if (!whenFinished && setup.phase() == RunPhase::Kind::finished)
            whenFinished = setup.app->libraryState();
    });
    setup.unplug("phone");
    ASSERT_TRUE(waitFor([&] { return whenFinished.has_value(); }));
    EXPECT_EQ(whenFinished, LibraryState::loaded());
    EXPECT_FALSE(setup.app->run()->log.filter(QRegularExpression("^ERROR ")).isEmpty());
    ASSERT_TRUE(waitFor([&] { return setup.app->libraryState() == LibraryState::noDevice(); }));
}
