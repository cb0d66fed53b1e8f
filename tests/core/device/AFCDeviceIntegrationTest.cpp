#include "DeviceSimulator.h"
#include "QtPrinters.h"
#include "TempDir.h"
#include "device/AFCDevice.h"
#include "device/MediaSourceError.h"
#include "device/StreamingHasher.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

namespace {

// Peak resident memory of a process in KiB, from /proc.
qint64 peakResidentKiB(const QString& pid = "self")
{
    QFile status("/proc/" + pid + "/status");
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QRegularExpression line("VmHWM:\\s+(\\d+) kB");
    const QRegularExpressionMatch match = line.match(QString::fromLatin1(status.readAll()));
    return match.hasMatch() ? match.captured(1).toLongLong() : -1;
}

template <typename Call>
MediaSourceError mediaError(Call&& call)
{
    try {
        call();
    } catch (const MediaSourceError& error) {
        return error;
    }
    throw std::runtime_error("the call did not fail with a MediaSourceError");
}

// Runs `call` on another thread and fails the whole test run, rather than hanging, if it
// does not return in time.
template <typename Call>
auto withinSeconds(int seconds, Call&& call)
{
    auto future = std::async(std::launch::async, std::forward<Call>(call));
    if (future.wait_for(std::chrono::seconds(seconds)) != std::future_status::ready) {
        ADD_FAILURE() << "the call hung for " << seconds << " s";
        std::_Exit(1);
    }
    return future.get();
}

} // namespace

// Opening with no udid takes the first device connected by USB; unplugging it closes its open
// connection, which then fails promptly instead of hanging. (What `devices` lists: DeviceCommands.)
TEST(AFCDevice, OpensTheFirstUsbDeviceAndLetsItGoWhenUnplugged)
{
    TempDir dir;
    const QString devices = dir.filePath("devices");
    SimulatedPhone network = simulatedPhone(1, "Wi-Fi Phone");
    network.connection = "Network";
    writeDeviceFolder(devices + "/1-network", network);
    SimulatedPhone twice = simulatedPhone(2, "Kitchen iPad");
    twice.productType = "iPad13,1";
    twice.listedTwice = true;
    writeDeviceFolder(devices + "/2-ipad", twice);
    writeDeviceFolder(devices + "/3-phone", simulatedPhone(3, "Anna's iPhone"));
    DeviceSimulator simulator(DeviceSimulator::devicesDir, devices);

    AFCDevice first;
    EXPECT_EQ(first.info(), (DeviceInfo{twice.udid, "Kitchen iPad", "iPad13,1", "17.5", std::nullopt}));
    EXPECT_TRUE(first.listDirectory("/").isEmpty());
    ASSERT_TRUE(QDir().rename(devices + "/2-ipad", dir.filePath("2-ipad")));
    EXPECT_EQ(AFCDevice::connectedDevices().size(), 1);
    EXPECT_THROW(withinSeconds(20, [&] { return first.listDirectory("/"); }), MediaSourceError);
}

TEST(AFCDevice, AfcErrorsHaveTheirTexts)
{
    TempDir dir;
    SimulatedPhone faulty = simulatedPhone(1);
    faulty.faults = {{"failPaths", QJsonObject{{"/DCIM/100APPLE/IMG_0002.HEIC", QJsonObject{{"open", 10}}},
                                               {"/DCIM/100APPLE/IMG_0003.MOV",
                                                QJsonObject{{"read", 4}, {"readAfterBytes", 2 << 20}}},
                                               {"/DCIM/101APPLE", QJsonObject{{"list", 10}}},
                                               {"/Confused", QJsonObject{{"emptyListing", true}}}}}};
    const QString folder = writeDeviceFolder(dir.filePath("phone"), faulty,
                                             {{"/DCIM/100APPLE/IMG_0002.HEIC", "heic"},
                                              {"/DCIM/100APPLE/IMG_0003.MOV", randomBytes(3 << 20, 1)},
                                              {"/DCIM/100APPLE/IMG_0004.JPG", "jpeg"},
                                              {"/DCIM/101APPLE/IMG_0101.JPG", "jpeg"}});
    QDir().mkpath(folder + "/media/Empty");
    QDir().mkpath(folder + "/media/Confused");
    writeFile(dir.filePath("secret.txt"), "outside the media tree");
    ASSERT_TRUE(QFile::link(dir.filePath("secret.txt"), folder + "/media/DCIM/100APPLE/LINK.JPG"));
    DeviceSimulator simulator({folder});
    AFCDevice device;
    const QString local = dir.filePath("out");

    const MediaSourceError missing = mediaError([&] { device.download("/DCIM/100APPLE/IMG_0001.HEIC", local); });
    EXPECT_EQ(missing.kind(), MediaSourceError::Kind::notFound);
    EXPECT_EQ(missing.description(), "Not found on device: /DCIM/100APPLE/IMG_0001.HEIC");
    EXPECT_EQ(mediaError([&] { device.listDirectory("/DCIM/999APPLE"); }).description(),
              "Not found on device: /DCIM/999APPLE");
    EXPECT_EQ(mediaError([&] { device.readFile("/DCIM/100APPLE/IMG_0002.HEIC"); }).description(),
              "Could not read /DCIM/100APPLE/IMG_0002.HEIC from device: the device does not allow reading this path "
              "(AFC error 10)");
    const MediaSourceError midFile = mediaError([&] { device.download("/DCIM/100APPLE/IMG_0003.MOV", local); });
    EXPECT_EQ(midFile.kind(), MediaSourceError::Kind::readFailed);
    EXPECT_EQ(midFile.description(),
              "Could not read /DCIM/100APPLE/IMG_0003.MOV from device: the device could not read it (AFC error 4)");
    EXPECT_EQ(QFileInfo(local).size(), 2 << 20) << "the partial file stays for the caller to remove";
    EXPECT_EQ(mediaError([&] { device.listDirectory("/DCIM/101APPLE"); }).description(),
              "Could not read /DCIM/101APPLE from device: the device does not allow reading this path (AFC error 10)");
    EXPECT_EQ(mediaError([&] { device.listDirectory("/DCIM/100APPLE/IMG_0004.JPG"); }).message(),
              "the device could not read it (AFC error 4)");
    // A listing that succeeds without any list is a failure, not an empty folder.
    EXPECT_EQ(mediaError([&] { device.listDirectory("/Confused"); }).description(),
              "Could not read /Confused from device: the device answered without an answer (AFC error 0)");
    const QString unwritable = dir.filePath("no/such/folder/file.jpg");
    EXPECT_EQ(mediaError([&] { device.download("/DCIM/100APPLE/IMG_0004.JPG", unwritable); }).description(),
              "Could not read /DCIM/100APPLE/IMG_0004.JPG from device: cannot create " + unwritable);

    // Nothing outside media/ can be reached: not by "..", not through a link.
    const QString kRefused = "the device does not allow reading this path (AFC error 10)";
    EXPECT_EQ(mediaError([&] { device.readFile("/../secret.txt"); }).message(), kRefused);
    EXPECT_EQ(mediaError([&] { device.readFile("/DCIM/100APPLE/LINK.JPG"); }).message(), kRefused);
    EXPECT_EQ(mediaError([&] { device.listDirectory("/DCIM/.."); }).message(), kRefused);

    // Every failure released the device: listings and reads still work, in the device's order.
    EXPECT_EQ(device.listDirectory("/DCIM/100APPLE"), (QStringList{"IMG_0002.HEIC", "IMG_0003.MOV", "IMG_0004.JPG"}));
    EXPECT_EQ(device.listDirectory("/"), (QStringList{"Confused", "DCIM", "Empty"}));
    EXPECT_TRUE(device.listDirectory("/Empty").isEmpty());
    EXPECT_EQ(device.readFile("/DCIM/100APPLE/IMG_0004.JPG"), "jpeg");
}

TEST(AFCDevice, TransfersAreExactAtEveryBoundary)
{
    TempDir dir;
    const QByteArray exactlyOneMiB = randomBytes(kTransferChunkSize, 1);
    const QByteArray unaligned = randomBytes(2 * kTransferChunkSize + 12345, 2);
    const QString folder = writeDeviceFolder(dir.filePath("phone"), simulatedPhone(1),
                                             {{"/empty.dat", {}},
                                              {"/DCIM/100APPLE/ONE.MOV", exactlyOneMiB},
                                              {"/DCIM/100APPLE/Été à Zürich.JPG", unaligned}});
    DeviceSimulator simulator({folder});
    AFCDevice device(simulatedUdid(1));

    const DownloadResult empty = device.download("/empty.dat", dir.filePath("empty"));
    EXPECT_EQ(empty, (DownloadResult{"e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855", 0}));
    EXPECT_TRUE(QFileInfo::exists(dir.filePath("empty")));
    EXPECT_EQ(QFileInfo(dir.filePath("empty")).size(), 0);

    // An existing destination is replaced.
    writeFile(dir.filePath("one"), QByteArray(5 << 20, 'x'));
    const DownloadResult one = device.download("/DCIM/100APPLE/ONE.MOV", dir.filePath("one"));
    EXPECT_EQ(one, (DownloadResult{sha256Of(exactlyOneMiB), kTransferChunkSize}));
    EXPECT_EQ(readFile(dir.filePath("one")), exactlyOneMiB);
    EXPECT_EQ(sha256OfFile(dir.filePath("one")), one);

    const DownloadResult odd = device.download("/DCIM/100APPLE/Été à Zürich.JPG", dir.filePath("odd"));
    EXPECT_EQ(odd, (DownloadResult{sha256Of(unaligned), uint64_t(unaligned.size())}));
    EXPECT_EQ(readFile(dir.filePath("odd")), unaligned);
    EXPECT_EQ(device.readFile("/DCIM/100APPLE/Été à Zürich.JPG"), unaligned);
    EXPECT_EQ(device.readFile("/empty.dat"), QByteArray());
    EXPECT_EQ(device.listDirectory("/DCIM/100APPLE"), (QStringList{"ONE.MOV", "Été à Zürich.JPG"}));
}

TEST(AFCDevice, MultiGigabyteSparseFileStreamsWithFlatMemory)
{
    TempDir dir;
    const QString folder = writeDeviceFolder(dir.filePath("phone"), simulatedPhone(1));
    // Over 4 GiB, so no 32-bit size or offset survives; sparse, so it costs no disk.
    const qint64 size = (qint64(4) << 30) + kTransferChunkSize + 3;
    const QByteArray tail = "end of a very long video";
    {
        QFile video(folder + "/media/LONG.MOV");
        ASSERT_TRUE(video.open(QIODevice::WriteOnly));
        ASSERT_TRUE(video.resize(size - tail.size()));
        ASSERT_TRUE(video.seek(size - tail.size()));
        ASSERT_EQ(video.write(tail), tail.size());
    }
    // What coreutils' sha256sum says of the same file (truncate -s 4296015851, then the tail appended).
    const QString expected = "a62071e76192bf0db8b9dbd01b29b1956eeb64fc7c2ef0ff404c4b2f86d98311";

    DeviceSimulator simulator({folder});
    AFCDevice device;
    const qint64 before = peakResidentKiB();
    const DownloadResult result = device.download("/LONG.MOV", "/dev/null");
    EXPECT_EQ(result, (DownloadResult{expected, uint64_t(size)}));
    EXPECT_LT(peakResidentKiB() - before, 32 * 1024) << "the download's memory grew with the file";
    EXPECT_LT(peakResidentKiB(QString::number(simulator.pid())), 64 * 1024) << "the simulator's memory grew";
}

// Two downloads and thumbnail reads on one device from three threads: every transfer is exact, and
// the thumbnails take their turns between the videos' chunks instead of waiting for whole videos.
TEST(AFCDevice, ThreadsTakeTurnsOnOneDeviceChunkByChunk)
{
    TempDir dir;
    const QByteArray first = randomBytes(8 << 20, 3);
    const QByteArray second = randomBytes((8 << 20) + 1, 4);
    SimulatedPhone slow = simulatedPhone(1);
    slow.faults = {{"bytesPerSecond", 10000000}}; // the videos take 1.7 s, a turn 0.1 s
    const QString folder =
        writeDeviceFolder(dir.filePath("phone"), slow,
                          {{"/A.MOV", first}, {"/B.MOV", second}, {"/Thumbs/1.JPG", "one"}, {"/Thumbs/2.JPG", "two"}});
    DeviceSimulator simulator({folder});
    AFCDevice device;

    std::atomic<bool> streaming = false;
    std::atomic<int> videosDone = 0;
    DownloadControl control;
    control.onProgress = [&](uint64_t, uint64_t) { streaming = true; };
    DownloadResult a, b;
    std::thread one([&] {
        a = device.download("/A.MOV", dir.filePath("a"), control);
        ++videosDone;
    });
    std::thread two([&] {
        b = device.download("/B.MOV", dir.filePath("b"), control);
        ++videosDone;
    });
    while (!streaming)
        std::this_thread::yield();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(device.listDirectory("/Thumbs"), (QStringList{"1.JPG", "2.JPG"}));
        EXPECT_EQ(device.readFile("/Thumbs/2.JPG"), "two");
    }
    EXPECT_EQ(videosDone, 0) << "the thumbnails waited for a whole video";
    one.join();
    two.join();
    EXPECT_EQ(a, (DownloadResult{sha256Of(first), uint64_t(first.size())}));
    EXPECT_EQ(b, (DownloadResult{sha256Of(second), uint64_t(second.size())}));
    EXPECT_EQ(readFile(dir.filePath("b")), second);
}
