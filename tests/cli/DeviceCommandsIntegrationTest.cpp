#include "CommandLine.h"
#include "DeviceSimulator.h"
#include "QtPrinters.h"
#include "RunProgram.h"
#include "TempDir.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTextStream>

#include <gtest/gtest.h>

namespace {

struct CliRun {
    int code = -1;
    QString out;
    QString err;
};

CliRun runCli(const QStringList& arguments)
{
    CliRun run;
    QTextStream out(&run.out);
    QTextStream err(&run.err);
    CommandContext context{out, err};
    CommandLine commandLine;
    run.code = commandLine.run(arguments, context);
    out.flush();
    err.flush();
    return run;
}

SimulatedPhone phone(int n, const QString& name)
{
    SimulatedPhone phone;
    phone.udid = simulatedUdid(n);
    phone.name = name;
    return phone;
}

} // namespace

TEST(DeviceCommands, DevicesListsOneLinePerDeviceOrJson)
{
    TempDir dir;
    const QString devices = dir.filePath("devices");
    QDir().mkpath(devices);
    {
        DeviceSimulator simulator(DeviceSimulator::devicesDir, devices);
        const CliRun none = runCli({"devices"});
        EXPECT_EQ(none.code, 0);
        EXPECT_EQ(none.out, "No iPhone or iPad is connected by USB.\n");
        EXPECT_EQ(none.err, "");
        EXPECT_EQ(runCli({"devices", "--json"}).out.trimmed(), "[\n]");

        SimulatedPhone locked = phone(1, "Locked");
        locked.faults = {{"lockdownError", "PasswordProtected"}};
        writeDeviceFolder(devices + "/1", locked);
        SimulatedPhone ipad = phone(2, "Kitchen iPad");
        ipad.productType = "iPad13,1";
        writeDeviceFolder(devices + "/2", ipad);

        const CliRun listed = runCli({"devices"});
        EXPECT_EQ(listed.code, 0);
        EXPECT_EQ(listed.err, "");
        EXPECT_EQ(listed.out, simulatedUdid(1) + ": The device is locked. Unlock it and try again.\n"
                                                "Kitchen iPad (iPad13,1, iOS 17.5)\n");

        const CliRun json = runCli({"devices", "--json"});
        EXPECT_EQ(json.code, 0);
        const QJsonArray array = QJsonDocument::fromJson(json.out.toUtf8()).array();
        ASSERT_EQ(array.size(), 2) << json.out.toStdString();
        EXPECT_EQ(array[0].toObject(), (QJsonObject{{"udid", simulatedUdid(1)},
                                                    {"name", "Unavailable device"},
                                                    {"productType", ""},
                                                    {"productVersion", ""},
                                                    {"problem", "The device is locked. Unlock it and try again."}}));
        EXPECT_EQ(array[1].toObject(), (QJsonObject{{"udid", simulatedUdid(2)},
                                                    {"name", "Kitchen iPad"},
                                                    {"productType", "iPad13,1"},
                                                    {"productVersion", "17.5"},
                                                    {"problem", QJsonValue()}}));
    }
    // With no usbmuxd at all, the user is told why nothing is listed.
    qputenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + dir.filePath("gone.sock")).toUtf8());
    const CliRun noDaemon = runCli({"devices"});
    qunsetenv("USBMUXD_SOCKET_ADDRESS");
    EXPECT_EQ(noDaemon.code, 0);
    EXPECT_EQ(noDaemon.out, "No iPhone or iPad is connected by USB.\n");
    EXPECT_EQ(noDaemon.err, "The USB service usbmuxd isn't running. Install the usbmuxd package, then plug the "
                            "device in again.\n");
}

TEST(DeviceCommands, LsAndPullReportErrorsWithExitCode3)
{
    TempDir dir;
    SimulatedPhone faulty = phone(1, "Phone");
    faulty.faults = {{"failPaths", QJsonObject{{"/DCIM/100APPLE/IMG_0003.MOV", QJsonObject{{"read", 4}, {"readAfterBytes", 1 << 20}}}}}};
    const QByteArray photo = "a photo";
    const QString folder = writeDeviceFolder(dir.filePath("phone"), faulty,
                                             {{"/DCIM/100APPLE/IMG_0001.HEIC", photo},
                                              {"/DCIM/100APPLE/IMG_0002.JPG", "b"},
                                              {"/DCIM/100APPLE/IMG_0003.MOV", QByteArray(3 << 20, 'v')}});
    writeDeviceFolder(dir.filePath("other"), phone(2, "Other"), {{"/DCIM/only-here.txt", "x"}});
    DeviceSimulator simulator({folder, dir.filePath("other")});

    const CliRun ls = runCli({"ls", "/DCIM/100APPLE"});
    EXPECT_EQ(ls.code, 0) << ls.err.toStdString();
    EXPECT_EQ(ls.out, "IMG_0001.HEIC\nIMG_0002.JPG\nIMG_0003.MOV\n");
    EXPECT_EQ(runCli({"ls", "/DCIM", "--udid", simulatedUdid(2)}).out, "only-here.txt\n");

    const CliRun missing = runCli({"ls", "/nope"});
    EXPECT_EQ(missing.code, 3);
    EXPECT_EQ(missing.out, "");
    EXPECT_EQ(missing.err, "Not found on device: /nope\n");
    const CliRun unknown = runCli({"ls", "/", "--udid", simulatedUdid(9)});
    EXPECT_EQ(unknown.code, 3);
    EXPECT_EQ(unknown.err, "Could not connect to the device: device " + simulatedUdid(9) + " not found\n");
    EXPECT_EQ(runCli({"ls"}).code, 2);

    const QString local = dir.filePath("photo.heic");
    const CliRun pull = runCli({"pull", "/DCIM/100APPLE/IMG_0001.HEIC", local});
    EXPECT_EQ(pull.code, 0) << pull.err.toStdString();
    // The hash as coreutils' sha256sum gives it for the same 7 bytes.
    EXPECT_EQ(pull.out, "d4e24d749a4fe2f161af2de913c0402b04e3ae287dafd0f9dbfa4a5c56c69285  " + local + "\n7 bytes\n");
    EXPECT_EQ(readFile(local), photo);

    // An existing local file is never replaced.
    const CliRun again = runCli({"pull", "/DCIM/100APPLE/IMG_0002.JPG", local});
    EXPECT_EQ(again.code, 3);
    EXPECT_EQ(again.err, local + " already exists; pull does not replace files.\n");
    EXPECT_EQ(readFile(local), photo);

    // A pull that fails midway leaves no partial file behind.
    const QString video = dir.filePath("video.mov");
    const CliRun broken = runCli({"pull", "/DCIM/100APPLE/IMG_0003.MOV", video});
    EXPECT_EQ(broken.code, 3);
    EXPECT_EQ(broken.err, "Could not read /DCIM/100APPLE/IMG_0003.MOV from device: read failed, afc error 4\n");
    EXPECT_FALSE(QFileInfo::exists(video));
}

TEST(DeviceCommands, PullOfA100MBFileMatchesSha256sum)
{
    TempDir dir;
    QByteArray content(100 * 1000 * 1000, Qt::Uninitialized);
    QRandomGenerator(42).fillRange(reinterpret_cast<quint32*>(content.data()), content.size() / 4);
    const QString folder = writeDeviceFolder(dir.filePath("phone"), phone(1, "Phone"), {{"/DCIM/100APPLE/IMG_0001.MOV", content}});
    content.clear();
    DeviceSimulator simulator({folder});

    const QString local = dir.filePath("pulled.mov");
    const ProgramResult pull =
        runProgram(OMBRELO_BIN_DIR "/ombrelo-cli", {"pull", "/DCIM/100APPLE/IMG_0001.MOV", local}, 120);
    ASSERT_EQ(pull.exitCode, 0) << pull.describe().toStdString();
    const ProgramResult served = runProgram("sha256sum", {folder + "/media/DCIM/100APPLE/IMG_0001.MOV"});
    ASSERT_EQ(served.exitCode, 0) << served.describe().toStdString();
    const QByteArray servedHash = served.out.left(64);
    EXPECT_EQ(pull.out, servedHash + "  " + local.toUtf8() + "\n100000000 bytes (100.0 MB)\n");
    EXPECT_EQ(runProgram("sha256sum", {local}).out.left(64), servedHash);
}
