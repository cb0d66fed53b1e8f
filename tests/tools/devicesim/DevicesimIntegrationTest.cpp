#include "DeviceSimulator.h"
#include "QtPrinters.h"
#include "RunProgram.h"
#include "TempDir.h"
#include "device/AFCDevice.h"
#include "device/MediaSourceError.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QStandardPaths>

#include <gtest/gtest.h>

#include <csignal>
#include <fcntl.h>
#include <thread>
#include <unistd.h>

namespace {

const QString kSimulator = OMBRELO_BIN_DIR "/ombrelo-devicesim";

// Debian's libimobiledevice-utils and ifuse are part of the test set-up; their absence is a
// failure to report, not a reason to skip.
QString requireTool(const QString& name, const QString& package)
{
    const QString path = QStandardPaths::findExecutable(name);
    if (path.isEmpty())
        ADD_FAILURE() << name.toStdString() << " is not installed (Debian package " << package.toStdString() << ")";
    return path;
}

// Unmounts a FUSE mount point however the test ends.
class Mount {
public:
    explicit Mount(QString point) : m_point(std::move(point)) {}
    ~Mount() { runProgram("fusermount", {"-u", "-z", m_point}); }

private:
    QString m_point;
};

} // namespace

TEST(Devicesim, StockToolsSeeTheSimulatedPhones)
{
    TempDir dir;
    SimulatedPhone first = simulatedPhone(1, "First Phone");
    first.productVersion = "16.7.2";
    SimulatedPhone network = simulatedPhone(3, "Network Phone");
    network.connection = "Network";
    DeviceSimulator simulator({writeDeviceFolder(dir.filePath("a"), first),
                               writeDeviceFolder(dir.filePath("b"), simulatedPhone(2)),
                               writeDeviceFolder(dir.filePath("c"), network)});
    const QString ideviceId = requireTool("idevice_id", "libimobiledevice-utils");
    const QString ideviceinfo = requireTool("ideviceinfo", "libimobiledevice-utils");
    if (ideviceId.isEmpty() || ideviceinfo.isEmpty())
        return;

    const ProgramResult usb = runProgram(ideviceId, {"-l"});
    EXPECT_EQ(usb.exitCode, 0) << usb.describe().toStdString();
    EXPECT_EQ(usb.out, (simulatedUdid(1) + "\n" + simulatedUdid(2) + "\n").toUtf8());
    const ProgramResult all = runProgram(ideviceId, {});
    EXPECT_TRUE(all.out.contains((simulatedUdid(3) + " (Network)").toUtf8())) << all.describe().toStdString();
    EXPECT_EQ(runProgram(ideviceId, {simulatedUdid(1)}).out, "First Phone\n");

    const ProgramResult version = runProgram(ideviceinfo, {"-u", simulatedUdid(1), "-k", "ProductVersion"});
    EXPECT_EQ(version.exitCode, 0) << version.describe().toStdString();
    EXPECT_EQ(version.out, "16.7.2\n");
    EXPECT_EQ(runProgram(ideviceinfo, {"-u", simulatedUdid(2), "-k", "ProductVersion"}).out, "17.5\n");
    const ProgramResult everything = runProgram(ideviceinfo, {"-u", simulatedUdid(1)});
    EXPECT_TRUE(everything.out.contains("DeviceName: First Phone\n")) << everything.describe().toStdString();
    EXPECT_TRUE(everything.out.contains("ProductType: iPhone15,3\n"));
}

TEST(Devicesim, IfuseMountIsIdenticalToMedia)
{
    const int fuse = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
    if (fuse < 0)
        GTEST_SKIP() << "/dev/fuse cannot be opened here (" << std::strerror(errno)
                     << "), so ifuse cannot mount the simulated phone; this agreement check did not run.";
    ::close(fuse);
    const QString ifuse = requireTool("ifuse", "ifuse");
    const QString fusermount = requireTool("fusermount", "fuse");
    if (ifuse.isEmpty() || fusermount.isEmpty())
        return;

    TempDir dir;
    const QString folder = writeDeviceFolder(dir.filePath("phone"), simulatedPhone(1),
                                             {{"/DCIM/100APPLE/IMG_0001.HEIC", randomBytes(300000, 1)},
                                              {"/DCIM/100APPLE/IMG_0002.MOV", randomBytes(3 * 1048576 + 17, 2)},
                                              {"/DCIM/100APPLE/ONE_MIB.JPG", randomBytes(1048576, 3)},
                                              {"/DCIM/101APPLE/Été – Zürich.JPG", "unicode"},
                                              {"/PhotoData/Photos.sqlite", randomBytes(65536, 4)},
                                              {"/PhotoData/Photos.sqlite-wal", {}}});
    QDir().mkpath(folder + "/media/PhotoData/Thumbnails/V2");
    DeviceSimulator simulator({folder});

    const QString point = dir.filePath("mnt");
    QDir().mkpath(point);
    const ProgramResult mounted = runProgram(ifuse, {point, "-u", simulatedUdid(1)});
    ASSERT_EQ(mounted.exitCode, 0) << mounted.describe().toStdString() << simulator.log().toStdString();
    const Mount unmount(point);

    const ProgramResult diff = runProgram("diff", {"-r", point, folder + "/media"}, 120);
    EXPECT_EQ(diff.exitCode, 0) << diff.describe().toStdString();
    EXPECT_TRUE(diff.out.isEmpty());
    // Reading the tail seeks; statfs reads the device's file system info.
    EXPECT_EQ(runProgram("tail", {"-c", "1000", point + "/DCIM/100APPLE/IMG_0002.MOV"}).out,
              randomBytes(3 * 1048576 + 17, 2).right(1000));
    EXPECT_EQ(runProgram("df", {point}).exitCode, 0);
    // The mount is read-only in effect: the phone refuses every change.
    EXPECT_NE(runProgram("touch", {point + "/DCIM/new.txt"}).exitCode, 0);
    EXPECT_FALSE(QFileInfo::exists(folder + "/media/DCIM/new.txt"));
}

TEST(Devicesim, BadDeviceJsonNamesTheKey)
{
    TempDir dir;
    SimulatedPhone typo = simulatedPhone(1);
    typo.faults = {{"dropAfterByte", 10}};
    writeDeviceFolder(dir.filePath("typo"), typo);
    const QString socket = dir.filePath("s.sock");
    const ProgramResult rejected = runProgram(kSimulator, {"--socket", socket, dir.filePath("typo")});
    EXPECT_EQ(rejected.exitCode, 2);
    EXPECT_EQ(rejected.err,
              ("ombrelo-devicesim: " + dir.filePath("typo") + "/device.json: unknown key \"faults.dropAfterByte\".\n")
                  .toUtf8());
    EXPECT_FALSE(QFileInfo::exists(socket));

    writeFile(dir.filePath("shape/device.json"), R"({"udid": "1234", "colour": "red"})");
    EXPECT_TRUE(
        runProgram(kSimulator, {"--socket", socket, dir.filePath("shape")}).err.contains("unknown key \"colour\""));
    writeFile(dir.filePath("shape/device.json"), R"({"udid": "1234"})");
    EXPECT_TRUE(
        runProgram(kSimulator, {"--socket", socket, dir.filePath("shape")}).err.contains("\"1234\" is neither"));
    EXPECT_EQ(runProgram(kSimulator, {dir.filePath("typo")}).exitCode, 2);

    // Under --devices-dir, a bad device.json leaves that phone unplugged until it is fixed.
    const QString devices = dir.filePath("devices");
    writeDeviceFolder(devices + "/typo", typo);
    writeDeviceFolder(devices + "/good", simulatedPhone(2, "Good"));
    DeviceSimulator simulator(DeviceSimulator::devicesDir, devices);
    ASSERT_EQ(AFCDevice::connectedDevices().size(), 1);
    EXPECT_TRUE(simulator.log().contains(devices + "/typo/device.json: unknown key \"faults.dropAfterByte\". "
                                                   "The device stays unplugged."));
    writeDeviceJson(devices + "/typo", simulatedPhone(1, "Fixed"));
    const QList<DeviceInfo> fixed = AFCDevice::connectedDevices();
    ASSERT_EQ(fixed.size(), 2);
    EXPECT_EQ(fixed[1].name, "Fixed");
}

TEST(Devicesim, ThrottleHoldsTheRateAcrossConnections)
{
    TempDir dir;
    SimulatedPhone slow = simulatedPhone(1);
    const qint64 rate = 20000000;
    slow.faults = {{"bytesPerSecond", rate}};
    const QByteArray video = randomBytes(5000000, 5);
    DeviceSimulator simulator({writeDeviceFolder(dir.filePath("phone"), slow, {{"/a.mov", video}, {"/b.mov", video}})});
    AFCDevice one;
    AFCDevice two;

    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(one.readFile("/a.mov"), video);
    const double single = double(timer.nsecsElapsed()) / 1e9;
    // 5 MB at 20 MB/s: a quarter of a second, never less. A loaded machine can starve the
    // simulator's threads, so only a gross slow-down counts as a failure.
    EXPECT_GE(single, 0.25 * 0.97);
    EXPECT_LE(single, 0.25 * 2);

    // Two connections to one phone share its link: together they take as long as both files in a row.
    timer.restart();
    std::thread other([&] { EXPECT_EQ(two.readFile("/b.mov"), video); });
    EXPECT_EQ(one.readFile("/a.mov"), video);
    other.join();
    const double both = double(timer.nsecsElapsed()) / 1e9;
    EXPECT_GE(both, 0.5 * 0.97);
    EXPECT_LE(both, 0.5 * 2);
}

TEST(Devicesim, StopsCleanlyOnSignalsWithConnectionsOpen)
{
    TempDir dir;
    const QString folder = writeDeviceFolder(dir.filePath("phone"), simulatedPhone(1), {{"/a.txt", "a"}});
    for (const int signal : {SIGINT, SIGTERM}) {
        DeviceSimulator simulator({folder});
        AFCDevice device;
        EXPECT_EQ(device.readFile("/a.txt"), "a");
        ::kill(simulator.pid(), signal);
        EXPECT_EQ(simulator.stop(), 0) << simulator.log().toStdString();
        EXPECT_FALSE(QFileInfo::exists(simulator.socketPath()));
        EXPECT_THROW(device.readFile("/a.txt"), MediaSourceError);
    }

    // A socket left behind by a simulator that was killed is replaced.
    DeviceSimulator killed({folder});
    ::kill(killed.pid(), SIGKILL);
    killed.stop();
    ASSERT_TRUE(QFileInfo::exists(killed.socketPath()));
    const QString stale = killed.socketPath();
    const ProgramResult restarted =
        runProgram("timeout", {"--preserve-status", "-s", "INT", "1", kSimulator, "--socket", stale, folder});
    EXPECT_EQ(restarted.exitCode, 0) << restarted.describe().toStdString();
    EXPECT_FALSE(QFileInfo::exists(stale));
}
