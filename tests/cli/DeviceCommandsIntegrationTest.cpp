#include "CliProcess.h"
#include "CliRun.h"
#include "DeviceSimulator.h"
#include "PhoneBackup.h"
#include "RunProgram.h"
#include "TempDir.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>

// Phones plugged in and out while the simulator runs (it reads its folder again at every listing):
// locked or untrusted in each way lockdown reports, listed twice by usbmuxd, without names, on the
// network only, refusing the media service. `devices` lists each USB device once, with its
// problem; `ls` on one of them says what is wrong and exits 3.
TEST(DeviceCommands, DevicesListsEachUsbDeviceOnceWithItsProblem)
{
    TempDir dir;
    const QString devices = dir.filePath("devices");
    const QString none = "No iPhone or iPad is connected by USB.\n";
    QDir().mkpath(devices);
    {
        DeviceSimulator simulator(DeviceSimulator::devicesDir, devices);
        EXPECT_EQ(CliRun::of({"devices"}), (CliRun{0, none, ""}));
        EXPECT_EQ(CliRun::of({"devices", "--json"}).out.trimmed(), "[\n]");
        EXPECT_EQ(CliRun::of({"ls", "/"}), (CliRun{3, "", none}));

        const struct {
            const char* error;
            QString text;
        } lockdown[] = {
            {"PasswordProtected", "The device is locked. Unlock it and try again."},
            {"UserDeniedPairing",
             "\u201cDon't Trust\u201d was chosen on the device. Unplug and reconnect to be asked again."},
            {"PairingDialogResponsePending", "Tap \u201cTrust\u201d on the device, then try again."},
            {"InvalidHostID",
             "This computer is not trusted by the device. Unlock it and tap \u201cTrust\u201d when asked."},
            {"SomethingNew", "The device refused the connection (lockdown error -256)."},
        };
        QString expected;
        for (int i = 0; i < 5; ++i) {
            SimulatedPhone failing = simulatedPhone(i + 1);
            failing.faults = {{"lockdownError", lockdown[i].error}};
            writeDeviceFolder(devices + "/" + QString::number(i + 1), failing);
            expected += simulatedUdid(i + 1) + ": " + lockdown[i].text + "\n";
        }
        SimulatedPhone ipad = simulatedPhone(6, "Kitchen iPad");
        ipad.productType = "iPad13,1";
        ipad.listedTwice = true;
        writeDeviceFolder(devices + "/6", ipad);
        SimulatedPhone network = simulatedPhone(7, "Wi-Fi Phone");
        network.connection = "Network";
        writeDeviceFolder(devices + "/7", network);
        SimulatedPhone quiet = simulatedPhone(8);
        quiet.faults = {{"deviceNameMissing", true}, {"productTypeMissing", true}, {"productVersionMissing", true}};
        writeDeviceFolder(devices + "/8", quiet);
        SimulatedPhone noService = simulatedPhone(9, "No Service");
        noService.faults = {{"startServiceError", "InvalidService"}};
        writeDeviceFolder(devices + "/9", noService);
        expected += "Kitchen iPad (iPad13,1, iOS 17.5)\niOS device (?, iOS ?)\nNo Service (iPhone15,3, iOS 17.5)\n";
        EXPECT_EQ(CliRun::of({"devices"}), (CliRun{0, expected, ""})) << simulator.log();

        const QJsonArray json = QJsonDocument::fromJson(CliRun::of({"devices", "--json"}).out.toUtf8()).array();
        ASSERT_EQ(json.size(), 8);
        EXPECT_EQ(json[0].toObject(), (QJsonObject{{"udid", simulatedUdid(1)},
                                                   {"name", "Unavailable device"},
                                                   {"productType", ""},
                                                   {"productVersion", ""},
                                                   {"problem", "The device is locked. Unlock it and try again."}}));
        EXPECT_EQ(json[5]["problem"], QJsonValue());

        for (int i = 0; i < 5; ++i)
            EXPECT_EQ(CliRun::of({"ls", "/", "--udid", simulatedUdid(i + 1)}),
                      (CliRun{3, "", lockdown[i].text + "\n"}));
        EXPECT_EQ(CliRun::of({"ls", "/", "--udid", noService.udid}).err,
                  "The device refused the connection (lockdown error -27).\n");
        EXPECT_EQ(CliRun::of({"ls", "/", "--udid", network.udid}).err,
                  "Could not connect to the device: device " + network.udid + " not found\n");

        // Unplugged: the folder moves out and the iPad is listed no more.
        ASSERT_TRUE(QDir().rename(devices + "/6", dir.filePath("6")));
        EXPECT_FALSE(CliRun::of({"devices"}).out.contains("Kitchen iPad"));
    }
    // With no usbmuxd at all, the user is told why nothing is listed.
    qputenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + dir.filePath("gone.sock")).toUtf8());
    const CliRun noDaemon = CliRun::of({"devices"});
    qunsetenv("USBMUXD_SOCKET_ADDRESS");
    EXPECT_EQ(noDaemon, (CliRun{0, none,
                                "The USB service usbmuxd isn't running. Install the usbmuxd package, then plug the "
                                "device in again.\n"}));
}

TEST(DeviceCommands, LsAndPullReportErrorsWithExitCode3)
{
    TempDir dir;
    SimulatedPhone faulty = simulatedPhone(1, "Phone");
    faulty.faults = {{"failPaths", QJsonObject{{"/DCIM/100APPLE/IMG_0003.MOV",
                                                QJsonObject{{"read", 4}, {"readAfterBytes", 1 << 20}}}}}};
    const QByteArray photo = "a photo";
    const QByteArray video = randomBytes(3000000, 42);
    const QString folder = writeDeviceFolder(dir.filePath("phone"), faulty,
                                             {{"/DCIM/100APPLE/IMG_0001.HEIC", photo},
                                              {"/DCIM/100APPLE/IMG_0002.JPG", "b"},
                                              {"/DCIM/100APPLE/IMG_0003.MOV", QByteArray(3 << 20, 'v')},
                                              {"/DCIM/100APPLE/IMG_0004.MOV", video}});
    writeDeviceFolder(dir.filePath("other"), simulatedPhone(2, "Other"), {{"/DCIM/only-here.txt", "x"}});
    DeviceSimulator simulator({folder, dir.filePath("other")});

    EXPECT_EQ(CliRun::of({"ls", "/DCIM/100APPLE"}),
              (CliRun{0, "IMG_0001.HEIC\nIMG_0002.JPG\nIMG_0003.MOV\nIMG_0004.MOV\n", ""}));
    EXPECT_EQ(CliRun::of({"ls", "/DCIM", "--udid", simulatedUdid(2)}).out, "only-here.txt\n");
    EXPECT_EQ(CliRun::of({"ls", "/nope"}), (CliRun{3, "", "Not found on device: /nope\n"}));
    EXPECT_EQ(CliRun::of({"ls"}).code, 2);

    // The hashes as coreutils' sha256sum gives them.
    const QString local = dir.filePath("photo.heic");
    EXPECT_EQ(
        CliRun::of({"pull", "/DCIM/100APPLE/IMG_0001.HEIC", local}),
        (CliRun{0, "d4e24d749a4fe2f161af2de913c0402b04e3ae287dafd0f9dbfa4a5c56c69285  " + local + "\n7 bytes\n", ""}));
    EXPECT_EQ(readFile(local), photo);
    const QString large = dir.filePath("video.mov");
    const QString servedHash =
        QString::fromUtf8(runProgram("sha256sum", {folder + "/media/DCIM/100APPLE/IMG_0004.MOV"}).out.left(64));
    EXPECT_EQ(CliRun::of({"pull", "/DCIM/100APPLE/IMG_0004.MOV", large}).out,
              servedHash + "  " + large + "\n3000000 bytes (3.0 MB)\n");
    EXPECT_EQ(readFile(large), video);

    // An existing local file is never replaced; a pull that fails midway leaves no partial file.
    EXPECT_EQ(CliRun::of({"pull", "/DCIM/100APPLE/IMG_0002.JPG", local}),
              (CliRun{3, "", local + " already exists; pull does not replace files.\n"}));
    EXPECT_EQ(readFile(local), photo);
    const QString broken = dir.filePath("broken.mov");
    EXPECT_EQ(CliRun::of({"pull", "/DCIM/100APPLE/IMG_0003.MOV", broken}),
              (CliRun{3, "",
                      "Could not read /DCIM/100APPLE/IMG_0003.MOV from device: the device could not read it (AFC "
                      "error 4)\n"}));
    EXPECT_FALSE(QFileInfo::exists(broken));
}

// pull makes its local file itself before it asks the phone for anything. A file another program
// moves to that name while the phone is frozen is neither written over (the pull succeeds) nor
// deleted (the pull fails). A pull into a folder that does not exist says so, not blaming the phone.
TEST(DeviceCommands, PullNeverReplacesOrDeletesAFileItDidNotMake)
{
    TempDir dir;
    SimulatedPhone phone = simulatedPhone(1);
    phone.faults = {{"failPaths", QJsonObject{{"/DCIM/broken.JPG", QJsonObject{{"read", 4}}}}}};
    DeviceSimulator simulator(
        {writeDeviceFolder(dir.filePath("phone"), phone, {{"/DCIM/good.JPG", "good"}, {"/DCIM/broken.JPG", "bad"}})});
    for (const QString devicePath : {"/DCIM/good.JPG", "/DCIM/broken.JPG"}) {
        SCOPED_TRACE(devicePath.toStdString());
        const QString local = dir.filePath(QFileInfo(devicePath).fileName());
        ::kill(simulator.pid(), SIGSTOP);
        CliProcess pull(PhoneBackup::cliPath(), {"pull", devicePath, local}, QProcessEnvironment::systemEnvironment());
        for (int waited = 0; waited < 30 && !QFileInfo::exists(local); ++waited)
            pull.runFor(100);
        writeFile(dir.filePath("mine"), "the user's");
        ASSERT_EQ(::rename(QFile::encodeName(dir.filePath("mine")).constData(), QFile::encodeName(local).constData()),
                  0);
        ::kill(simulator.pid(), SIGCONT);
        const ProgramResult end = pull.finish(60);
        EXPECT_EQ(end.exitCode, 3) << end.describe().toStdString();
        EXPECT_EQ(readFile(local), "the user's");
    }

    const CliRun missing = CliRun::of({"pull", "/DCIM/good.JPG", dir.filePath("gone/good.JPG")});
    EXPECT_EQ(missing.code, 3);
    EXPECT_EQ(missing.err, QString::fromUtf8("The folder \u201c%1\u201d doesn't exist, so the file could not be made "
                                             "there. Create the folder first, or give a path in an existing one.\n")
                               .arg(dir.filePath("gone")));
}
