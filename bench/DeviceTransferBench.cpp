// Pull throughput through ombrelo-devicesim: AFCDevice::download (hash, then write to disk or to
// /dev/null) against a plain loop of 1 MiB afc_file_read calls on the same file through the same library,
// on an unthrottled link and on a link paced like USB 2 (40,000,000 bytes per second).
//
//   build/bin/DeviceTransferBench [--size-mb 100] [--runs 3]

#include "BenchSupport.h"
#include "device/AFCDevice.h"
#include "device/StreamingHasher.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <stdexcept>
#include <vector>

namespace {

void writeDevice(const QString& folder, const QString& udid, qint64 bytesPerSecond, const QByteArray& content)
{
    QDir().mkpath(folder + "/media");
    QJsonObject device{{"udid", udid}, {"name", "Bench"}};
    if (bytesPerSecond > 0)
        device.insert("faults", QJsonObject{{"bytesPerSecond", bytesPerSecond}});
    QFile json(folder + "/device.json");
    if (!json.open(QIODevice::WriteOnly) || json.write(QJsonDocument(device).toJson()) < 0)
        throw std::runtime_error("cannot write device.json");
    QFile media(folder + "/media/VIDEO.MOV");
    if (!media.open(QIODevice::WriteOnly) || media.write(content) != content.size())
        throw std::runtime_error("cannot write the media file");
}

qint64 download(const QString& udid, const QString& destination)
{
    AFCDevice device(udid);
    const DownloadResult result = device.download("/VIDEO.MOV", destination);
    return qint64(result.size);
}

struct Measure {
    double best = 0;
    double median = 0;
};

template <typename Run>
Measure measure(int runs, qint64 expected, Run&& run)
{
    std::vector<double> rates;
    for (int i = 0; i < runs; ++i) {
        QElapsedTimer timer;
        timer.start();
        const qint64 bytes = run();
        const double seconds = double(timer.nsecsElapsed()) / 1e9;
        if (bytes != expected)
            throw std::runtime_error("a transfer came back short");
        rates.push_back(double(bytes) / seconds / 1e6);
    }
    std::sort(rates.begin(), rates.end());
    return {rates.back(), rates[rates.size() / 2]};
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCommandLineParser parser;
    parser.addHelpOption();
    parser.addOptions({{"size-mb", "Size of the pulled file in MB (10^6 bytes).", "MB", "100"},
                       {"runs", "Runs of each measurement (the median and best are shown).", "N", "3"}});
    parser.process(app);
    const qint64 size = parser.value("size-mb").toLongLong() * 1000000;
    const int runs = std::max(1, parser.value("runs").toInt());
    std::signal(SIGPIPE, SIG_IGN);

    QTemporaryDir dir(QDir::tempPath() + "/ombrelo-bench-XXXXXX");
    QByteArray content(size, Qt::Uninitialized);
    QRandomGenerator(7).fillRange(reinterpret_cast<quint32*>(content.data()), size / 4);
    const QString fastUdid = "b0000000000000000000000000000000000000f1";
    const QString usbUdid = "b0000000000000000000000000000000000000f2";
    writeDevice(dir.filePath("fast"), fastUdid, 0, content);
    writeDevice(dir.filePath("usb2"), usbUdid, 40000000, content);
    content.clear();
    int status = 0;
    try {
        const bench::Simulator simulator(dir.filePath("usbmuxd.sock"), {dir.filePath("fast"), dir.filePath("usb2")});
        simulator.useInThisProcess();
        const QString destination = dir.filePath("pulled.mov");
        std::printf("Device transfer: a %lld MB file through ombrelo-devicesim, %d runs each (MB/s, median / best)\n\n",
                    size / 1000000, runs);
        std::printf("| link | plain 1 MiB afc_file_read loop | AFCDevice::download to /dev/null (SHA-256 only) | "
                    "AFCDevice::download to a file (SHA-256 + write) | download to a file / plain |\n");
        std::printf("|---|---|---|---|---|\n");
        const struct {
            const char* name;
            QString udid;
        } links[] = {{"unthrottled", fastUdid}, {"USB 2 pace (40,000,000 B/s)", usbUdid}};
        for (const auto& link : links) {
            const Measure plain =
                measure(runs, size, [&] { return qint64(bench::plainReadLoop(link.udid, {"/VIDEO.MOV"})); });
            const Measure hashed = measure(runs, size, [&] { return download(link.udid, "/dev/null"); });
            const Measure pulled = measure(runs, size, [&] {
                const qint64 bytes = download(link.udid, destination);
                QFile::remove(destination);
                return bytes;
            });
            std::printf("| %s | %.0f / %.0f | %.0f / %.0f | %.0f / %.0f | %.0f %% |\n", link.name, plain.median,
                        plain.best, hashed.median, hashed.best, pulled.median, pulled.best,
                        100.0 * pulled.median / plain.median);
            std::fflush(stdout);
        }
    } catch (const std::exception& error) {
        std::fprintf(stderr, "DeviceTransferBench: %s\n", error.what());
        status = 1;
    }
    return status;
}
