#include "CliRun.h"
#include "DeviceSimulator.h"
#include "RunProgram.h"
#include "TempDir.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>

#include <gtest/gtest.h>

// Phones plugged in and out while the simulator runs (it reads its folder again at every listing):
// locked or untrusted in each way lockdown reports, listed twice by usbmuxd, without names, on the
// network only, refusing the media service. `devices` lists each USB device once, with its
// problem; `ls` on one of them says what is wrong and exits 3.
TEST(DeviceCommands, DevicesListsEachUsbDeviceOnceWithItsProblem)
{
    TempDir dir;
    const QString devices = dir.filePath("devices");
    QDir().mkpath(devices);
    {
        DeviceSimulator simulator(DeviceSimulator::devicesDir, devices);
        const CliRun none = CliRun::of({"devices"});
        EXPECT_EQ(none.code, 0);
        EXPECT_EQ(none.out, "No iPhone or iPad is connected by USB.\n");
        EXPECT_EQ(none.err, "");
        EXPECT_EQ(CliRun::of({"devices", "--json"}).out.trimmed(), "[\n]");
        EXPECT_EQ(CliRun::of({"ls", "/"}).err, "No iPhone or iPad is connected by USB.\n");

        const struct {
            const char* error;
            QString text;
        } lockdown[] = {
            {"PasswordProtected", "The device is locked. Unlock it and try again."},
            {"UserDeniedPairing",
             QString::fromUtf8(
                 "\u201cDon't Trust\u201d was chosen on the device. Unplug and reconnect to be asked again.")},
            {"PairingDialogResponsePending", QString::fromUtf8("Tap \u201cTrust\u201d on the device, then try again.")},
            {"InvalidHostID",
             QString::fromUtf8(
                 "This computer is not trusted by the device. Unlock it and tap \u201cTrust\u201d when asked.")},
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

        const CliRun listed = CliRun::of({"devices"});
        EXPECT_EQ(listed.code, 0);
        EXPECT_EQ(listed.err, "");
        EXPECT_EQ(listed.out, expected) << simulator.log().toStdString();

        const CliRun json = CliRun::of({"devices", "--json"});
        EXPECT_EQ(json.code, 0);
        const QJsonArray array = QJsonDocument::fromJson(json.out.toUtf8()).array();
        ASSERT_EQ(array.size(), 8) << json.out.toStdString();
        EXPECT_EQ(array[0].toObject(), (QJsonObject{{"udid", simulatedUdid(1)},
                                                    {"name", "Unavailable device"},
                                                    {"productType", ""},
                                                    {"productVersion", ""},
                                                    {"problem", "The device is locked. Unlock it and try again."}}));
        EXPECT_EQ(array[5].toObject(), (QJsonObject{{"udid", ipad.udid},
                                                    {"name", "Kitchen iPad"},
                                                    {"productType", "iPad13,1"},
                                                    {"productVersion", "17.5"},
                                                    {"problem", QJsonValue()}}));

        for (int i = 0; i < 5; ++i) {
            const CliRun opened = CliRun::of({"ls", "/", "--udid", simulatedUdid(i + 1)});
            EXPECT_EQ(opened.code, 3);
            EXPECT_EQ(opened.err, lockdown[i].text + "\n");
        }
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
    EXPECT_EQ(noDaemon.code, 0);
    EXPECT_EQ(noDaemon.out, "No iPhone or iPad is connected by USB.\n");
    EXPECT_EQ(noDaemon.err, "The USB service usbmuxd isn't running. Install the usbmuxd package, then plug the "
                            "device in again.\n");
}

TEST(DeviceCommands, LsAndPullReportErrorsWithExitCode3)
{
    TempDir dir;
    SimulatedPhone faulty = simulatedPhone(1, "Phone");
    faulty.faults = {{"failPaths", QJsonObject{{"/DCIM/100APPLE/IMG_0003.MOV",
                                                QJsonObject{{"read", 4}, {"readAfterBytes", 1 << 20}}}}}};
    const QByteArray photo = "a photo";
    QByteArray video(3000000, Qt::Uninitialized);
    QRandomGenerator(42).fillRange(reinterpret_cast<quint32*>(video.data()), video.size() / 4);
    const QString folder = writeDeviceFolder(dir.filePath("phone"), faulty,
                                             {{"/DCIM/100APPLE/IMG_0001.HEIC", photo},
                                              {"/DCIM/100APPLE/IMG_0002.JPG", "b"},
                                              {"/DCIM/100APPLE/IMG_0003.MOV", QByteArray(3 << 20, 'v')},
                                              {"/DCIM/100APPLE/IMG_0004.MOV", video}});
    writeDeviceFolder(dir.filePath("other"), simulatedPhone(2, "Other"), {{"/DCIM/only-here.txt", "x"}});
    DeviceSimulator simulator({folder, dir.filePath("other")});

    const CliRun ls = CliRun::of({"ls", "/DCIM/100APPLE"});
    EXPECT_EQ(ls.code, 0) << ls.err.toStdString();
    EXPECT_EQ(ls.out, "IMG_0001.HEIC\nIMG_0002.JPG\nIMG_0003.MOV\nIMG_0004.MOV\n");
    EXPECT_EQ(CliRun::of({"ls", "/DCIM", "--udid", simulatedUdid(2)}).out, "only-here.txt\n");

    const CliRun missing = CliRun::of({"ls", "/nope"});
    EXPECT_EQ(missing.code, 3);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "Not found on device: /nope\n");
    EXPECT_EQ(CliRun::of({"ls"}).code, 2);

    const QString local = dir.filePath("photo.heic");
    const CliRun pull = CliRun::of({"pull", "/DCIM/100APPLE/IMG_0001.HEIC", local});
    EXPECT_EQ(pull.code, 0) << pull.err.toStdString();
    // The hash as coreutils' sha256sum gives it for the same 7 bytes.
    EXPECT_EQ(pull.out, "d4e24d749a4fe2f161af2de913c0402b04e3ae287dafd0f9dbfa4a5c56c69285  " + local + "\n7 bytes\n");
    EXPECT_EQ(readFile(local), photo);
    const QString large = dir.filePath("video.mov");
    const CliRun pulledVideo = CliRun::of({"pull", "/DCIM/100APPLE/IMG_0004.MOV", large});
    const QString servedHash =
        QString::fromUtf8(runProgram("sha256sum", {folder + "/media/DCIM/100APPLE/IMG_0004.MOV"}).out.left(64));
    EXPECT_EQ(pulledVideo.out, servedHash + "  " + large + "\n3000000 bytes (3.0 MB)\n");
    EXPECT_EQ(readFile(large), video);

    // An existing local file is never replaced.
    const CliRun again = CliRun::of({"pull", "/DCIM/100APPLE/IMG_0002.JPG", local});
    EXPECT_EQ(again.code, 3);
    EXPECT_EQ(again.err, local + " already exists; pull does not replace files.\n");
    EXPECT_EQ(readFile(local), photo);

    // A pull that fails midway leaves no partial file behind.
    const QString broken = dir.filePath("broken.mov");
    const CliRun failed = CliRun::of({"pull", "/DCIM/100APPLE/IMG_0003.MOV", broken});
    EXPECT_EQ(failed.code, 3);
    EXPECT_EQ(failed.err,
              "Could not read /DCIM/100APPLE/IMG_0003.MOV from device: the device could not read it (AFC error 4)\n");
    EXPECT_FALSE(QFileInfo::exists(broken));
}
