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
#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>

#include <csignal>
#include <fcntl.h>
#include <future>
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

// One file opened through libimobiledevice's own AFC client, to see exactly what the library
// reports, without the product's code in between.
class RawAfcFile {
public:
    RawAfcFile(const QString& udid, const QString& path)
    {
        if (idevice_new_with_options(&m_device, udid.toUtf8().constData(), IDEVICE_LOOKUP_USBMUX) ==
                IDEVICE_E_SUCCESS &&
            afc_client_start_service(m_device, &m_afc, "ombrelo-tests") == AFC_E_SUCCESS)
            afc_file_open(m_afc, path.toUtf8().constData(), AFC_FOPEN_RDONLY, &m_handle);
        if (m_handle == 0)
            ADD_FAILURE() << "cannot open " << path.toStdString() << " on " << udid.toStdString();
        char** info = nullptr;
        if (m_afc && afc_get_file_info(m_afc, path.toUtf8().constData(), &info) == AFC_E_SUCCESS && info) {
            for (int i = 0; info[i] && info[i + 1]; i += 2)
                if (qstrcmp(info[i], "st_size") == 0)
                    m_size = QByteArray(info[i + 1]).toLongLong();
            afc_dictionary_free(info);
        }
    }
    ~RawAfcFile()
    {
        if (m_afc)
            afc_client_free(m_afc);
        if (m_device)
            idevice_free(m_device);
    }

    // The size afc_get_file_info reports.
    qint64 size() const { return m_size; }
    // One afc_file_read of at most `length` bytes: its result and the bytes it gave.
    std::pair<afc_error_t, QByteArray> read(uint32_t length)
    {
        QByteArray buffer(qsizetype(length), '\0');
        uint32_t got = 0;
        const afc_error_t result = afc_file_read(m_afc, m_handle, buffer.data(), length, &got);
        return {result, buffer.left(got)};
    }

private:
    idevice_t m_device = nullptr;
    afc_client_t m_afc = nullptr;
    uint64_t m_handle = 0;
    qint64 m_size = -1;
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
    SimulatedPhone endless = simulatedPhone(1);
    endless.faults = {{"stallSeconds", 5}};
    writeDeviceJson(dir.filePath("shape"), endless);
    EXPECT_TRUE(runProgram(kSimulator, {"--socket", socket, dir.filePath("shape")})
                    .err.contains("\"faults.stallSeconds\" needs \"faults.stallAfterBytes\"."));
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

TEST(Devicesim, AFrozenPhoneHoldsOnlyItsOwnConnection)
{
    using namespace std::chrono_literals;
    TempDir dir;
    const QByteArray video = randomBytes(300000, 6);
    SimulatedPhone frozen = simulatedPhone(1);
    frozen.faults = {{"failPaths", QJsonObject{{"/a.mov", QJsonObject{{"stallAfterBytes", 100000}}}}}};
    SimulatedPhone hiccup = simulatedPhone(2);
    hiccup.faults = {{"stallAfterBytes", 200000}, {"stallSeconds", 1}};
    DeviceSimulator simulator(
        {writeDeviceFolder(dir.filePath("frozen"), frozen, {{"/a.mov", video}}),
         writeDeviceFolder(dir.filePath("hiccup"), hiccup, {{"/a.mov", video}, {"/small.jpg", "small"}})});

    // The bytes before the stall arrive complete; the read that would go further never returns.
    RawAfcFile file(simulatedUdid(1), "/a.mov");
    EXPECT_EQ(file.read(65536), std::pair(AFC_E_SUCCESS, video.left(65536)));
    EXPECT_EQ(file.read(65536), std::pair(AFC_E_SUCCESS, video.mid(65536, 100000 - 65536)));
    auto stuck = std::async(std::launch::async, [&] { return file.read(65536); });
    EXPECT_EQ(stuck.wait_for(1s), std::future_status::timeout) << simulator.log().toStdString();

    // Meanwhile another phone answers, and one whose freeze ends goes on where it stopped.
    AFCDevice other(simulatedUdid(2));
    EXPECT_EQ(other.readFile("/small.jpg"), "small");
    QElapsedTimer timer;
    timer.start();
    EXPECT_EQ(other.readFile("/a.mov"), video);
    EXPECT_GE(timer.elapsed(), 950);
    EXPECT_LT(timer.elapsed(), 3000);
    EXPECT_EQ(stuck.wait_for(0s), std::future_status::timeout);

    // The simulator still stops at once, which ends the frozen read with an error.
    timer.restart();
    EXPECT_EQ(simulator.stop(), 0) << simulator.log().toStdString();
    EXPECT_LT(timer.elapsed(), 2000);
    ASSERT_EQ(stuck.wait_for(5s), std::future_status::ready);
    EXPECT_NE(stuck.get().first, AFC_E_SUCCESS);
}

TEST(Devicesim, AShortFileEndsEarlyButKeepsItsSize)
{
    TempDir dir;
    const QByteArray photo = randomBytes(200000, 7);
    SimulatedPhone phone = simulatedPhone(1);
    phone.faults = {{"failPaths", QJsonObject{{"/DCIM/IMG_0001.JPG", QJsonObject{{"endAfterBytes", 150000}}}}}};
    DeviceSimulator simulator({writeDeviceFolder(dir.filePath("phone"), phone, {{"/DCIM/IMG_0001.JPG", photo}})});

    RawAfcFile file(simulatedUdid(1), "/DCIM/IMG_0001.JPG");
    EXPECT_EQ(file.size(), 200000);
    QByteArray received;
    for (int reads = 0; reads < 10; ++reads) {
        const auto [result, bytes] = file.read(65536);
        ASSERT_EQ(result, AFC_E_SUCCESS);
        if (bytes.isEmpty())
            break;
        received += bytes;
    }
    EXPECT_EQ(received, photo.left(150000));
}
