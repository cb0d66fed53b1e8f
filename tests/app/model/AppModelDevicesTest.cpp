// Devices come and go as the user plugs and unplugs them: the model against a simulated USB
// service whose phones are folders moved in and out of its devices folder.
#include "DeviceSimulator.h"
#include "ModelFixture.h"

#include <QDir>

#include <gtest/gtest.h>

namespace {

// Phones made once per test, unplugged until moved into the simulator's devices folder.
struct Phones : ModelSetup {
    QString devices = dir.filePath("devices");
    QString parked = dir.filePath("parked");

    Phones()
    {
        QDir().mkpath(devices);
        QDir().mkpath(parked);
    }
    QString make(const QString& folder, int seed, const QString& name)
    {
        return makePhone(parked + "/" + folder, seed, name);
    }
    QString at(const QString& folder) const
    {
        return QDir(devices).exists(folder) ? devices + "/" + folder : parked + "/" + folder;
    }
    void plug(const QString& folder) { QDir().rename(parked + "/" + folder, devices + "/" + folder); }
    void unplug(const QString& folder) { QDir().rename(devices + "/" + folder, parked + "/" + folder); }
};

QString describe(const LibraryState& state)
{
    switch (state.kind()) {
    case LibraryState::Kind::noDevice:
        return "no device";
    case LibraryState::Kind::loaded:
        return "loaded";
    case LibraryState::Kind::loading:
        return "loading: " + state.message();
    case LibraryState::Kind::failed:
        return "failed: " + state.message();
    }
    return {};
}

} // namespace

// A phone plugged in is found by the next poll and connected, step by step; a second phone does not
// take its place, nor does the same pair listed in another order; unplugging the selected phone
// clears its library, plan and counts, and the next poll connects the other one.
TEST(AppModelDevices, PlugInReorderAndUnplug)
{
    Phones phones;
    const QString anna = phones.make("b-anna", 1, "Anna's iPhone");
    const QString ben = phones.make("c-ben", 2, "Ben's iPhone");
    DeviceSimulator simulator(DeviceSimulator::devicesDir, phones.devices);
    const auto model = phones.model();
    QStringList states;
    QStringList cleared;
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

    phones.plug("b-anna");
    ASSERT_TRUE(waitFor([&] { return model->libraryState() == LibraryState::loaded(); }))
        << describe(model->libraryState()).toStdString();
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

    phones.plug("c-ben");
    ASSERT_TRUE(waitFor([&] { return model->devices().size() == 2; }));
    EXPECT_EQ(model->selectedUDID(), anna);
    const int listsBefore = deviceLists;
    QDir().rename(phones.devices + "/c-ben", phones.devices + "/a-ben"); // now listed first
    ASSERT_TRUE(waitFor([&] { return simulator.log().contains("plugged in from " + phones.devices + "/a-ben"); }));
    model->refreshDevices();
    settle(*model);
    model->refreshDevices();
    settle(*model);
    EXPECT_EQ(deviceLists, listsBefore);
    EXPECT_EQ(model->selectedUDID(), anna);
    EXPECT_EQ(model->libraryState(), LibraryState::loaded());

    states.clear();
    phones.unplug("b-anna");
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
    Phones phones;
    const QString udid = phones.make("phone", 3, "Anna's iPhone");
    setFaults(phones.at("phone"), {{"lockdownError", "PasswordProtected"}});
    phones.plug("phone");
    DeviceSimulator simulator(DeviceSimulator::devicesDir, phones.devices);
    const auto model = phones.model(std::chrono::hours(1)); // one look at start, then only on request
    const LibraryState locked = LibraryState::failed("The device is locked. Unlock it and try again.");
    ASSERT_TRUE(waitFor([&] { return model->libraryState() == locked; }))
        << describe(model->libraryState()).toStdString();
    EXPECT_FALSE(model->device());

    setFaults(phones.at("phone"), {});
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
    Phones phones;
    const QString slow = phones.make("a-slow", 4, "Slow iPhone");
    const QString quick = phones.make("b-quick", 5, "Quick iPhone");
    setFaults(phones.at("a-slow"), {{"bytesPerSecond", 20000}});
    phones.plug("a-slow");
    phones.plug("b-quick");
    DeviceSimulator simulator(DeviceSimulator::devicesDir, phones.devices);
    const auto model = phones.model();
    ASSERT_TRUE(waitFor([&] { return model->libraryState().message().startsWith("Reading the Photos library"); }));
    EXPECT_EQ(model->selectedUDID(), slow);

    model->connect(quick);
    ASSERT_TRUE(waitFor([&] { return model->libraryState() == LibraryState::loaded(); }))
        << describe(model->libraryState()).toStdString();
    phones.unplug("a-slow"); // the slow reading fails now
    ASSERT_TRUE(waitFor([&] { return model->devices().size() == 1; }));
    settle(*model);
    EXPECT_EQ(model->libraryState(), LibraryState::loaded());
    EXPECT_EQ(model->selectedUDID(), quick);
    EXPECT_EQ(model->device()->name, "Quick iPhone");
}
