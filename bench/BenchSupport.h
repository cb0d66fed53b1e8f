#pragma once

// Shared by the benchmarks that drive the real programs: a simulated phone written by
// ombrelo-mkdevice, ombrelo-devicesim serving it, ombrelo-cli run as a user runs it, and the
// plain libimobiledevice read loop that a backup is measured against.

#include "device/StreamingHasher.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <memory>
#include <stdexcept>
#include <sys/resource.h>
#include <thread>
#include <vector>

namespace bench {

inline std::runtime_error failure(const QString& text) { return std::runtime_error(text.toStdString()); }

inline QString tool(const QString& name) { return QStringLiteral(OMBRELO_BIN_DIR) + "/" + name; }

inline double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    return values.empty() ? 0 : values[values.size() / 2];
}

inline double seconds(const QElapsedTimer& timer) { return double(timer.nsecsElapsed()) / 1e9; }

// The value that follows `name` on the command line, or `fallback`.
inline QString option(const QStringList& args, const QString& name, const QString& fallback)
{
    const qsizetype at = args.indexOf(name);
    return at >= 0 && at + 1 < args.size() ? args.at(at + 1) : fallback;
}

struct Timing {
    double elapsed = 0; // seconds
    double cpu = 0;     // user and system seconds of the program
};

inline double childrenCpuSeconds()
{
    rusage usage{};
    getrusage(RUSAGE_CHILDREN, &usage);
    return double(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           double(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

inline void throwUnlessSucceeded(const QProcess& process, const QString& program, const QStringList& arguments)
{
    if (process.exitStatus() != QProcess::NormalExit || process.exitCode() != 0)
        throw failure(QFileInfo(program).fileName() + " " + arguments.join(' ') + " failed with exit code " +
                      QString::number(process.exitCode()));
}

// Runs a program to its end; its output goes to `outputFile` (or is discarded), its errors to ours.
// Throws when it fails.
inline Timing run(const QString& program, const QStringList& arguments, const QProcessEnvironment& environment,
                  const QString& outputFile = {}, int timeoutSeconds = 3600)
{
    QProcess process;
    process.setProcessEnvironment(environment);
    if (outputFile.isEmpty())
        process.setStandardOutputFile(QProcess::nullDevice());
    else
        process.setStandardOutputFile(outputFile);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const double cpuBefore = childrenCpuSeconds();
    QElapsedTimer timer;
    timer.start();
    process.start(program, arguments);
    if (!process.waitForFinished(timeoutSeconds * 1000)) {
        process.kill();
        process.waitForFinished();
        throw failure(QFileInfo(program).fileName() + " did not finish in time");
    }
    const Timing timing{seconds(timer), childrenCpuSeconds() - cpuBefore};
    throwUnlessSucceeded(process, program, arguments);
    return timing;
}

// Runs a program to its end with its output read through a pipe into `outputFile`, noting when the
// first line starting with each of `marks` arrived (seconds from the start, as of the read that
// brought it; -1 if none did).
// Throws when it fails.
inline Timing runMarked(const QString& program, const QStringList& arguments, const QProcessEnvironment& environment,
                        const QString& outputFile, const QStringList& marks, std::vector<double>& markTimes,
                        qint64* lineCount = nullptr, int timeoutSeconds = 3600)
{
    QFile output(outputFile);
    if (!output.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw failure("cannot write " + outputFile);
    markTimes.assign(size_t(marks.size()), -1);
    QProcess process;
    process.setProcessEnvironment(environment);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    const double cpuBefore = childrenCpuSeconds();
    QElapsedTimer timer;
    timer.start();
    process.start(program, arguments);
    qint64 lines = 0;
    QByteArray tail = "\n"; // the end of what came before, so that a mark split between reads is found
    // Read in whole chunks, as `tee` would, so that the reader costs the program little.
    const auto readChunk = [&] {
        const QByteArray chunk = process.readAllStandardOutput();
        if (chunk.isEmpty())
            return;
        output.write(chunk);
        lines += chunk.count('\n');
        const QByteArray text = tail + chunk;
        for (qsizetype m = 0; m < marks.size(); ++m)
            if (markTimes[size_t(m)] < 0 && text.contains("\n" + marks[m].toUtf8()))
                markTimes[size_t(m)] = seconds(timer);
        tail = text.right(256);
    };
    while (process.state() != QProcess::NotRunning) {
        process.waitForReadyRead(100);
        readChunk();
        if (seconds(timer) > timeoutSeconds) {
            process.kill();
            process.waitForFinished();
            throw failure(QFileInfo(program).fileName() + " did not finish in time");
        }
    }
    process.waitForFinished();
    const Timing timing{seconds(timer), childrenCpuSeconds() - cpuBefore};
    readChunk();
    if (lineCount)
        *lineCount = lines;
    throwUnlessSucceeded(process, program, arguments);
    return timing;
}

// Writes a simulated phone with ombrelo-mkdevice and returns its udid.
inline QString makePhone(const QString& folder, int assets, const QString& files, int64_t bytesPerSecond)
{
    const QStringList arguments{folder, "--assets", QString::number(assets), "--files", files};
    std::printf("$ ombrelo-mkdevice %s\n", qPrintable(arguments.join(' ')));
    std::fflush(stdout);
    run(tool("ombrelo-mkdevice"), arguments, QProcessEnvironment::systemEnvironment());
    QFile file(folder + "/device.json");
    if (!file.open(QIODevice::ReadOnly))
        throw failure("ombrelo-mkdevice wrote no device.json");
    QJsonObject device = QJsonDocument::fromJson(file.readAll()).object();
    file.close();
    if (bytesPerSecond > 0) {
        QJsonObject faults = device.value("faults").toObject();
        faults.insert("bytesPerSecond", qint64(bytesPerSecond));
        device.insert("faults", faults);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(QJsonDocument(device).toJson()) < 0)
            throw failure("cannot rewrite device.json");
    }
    return device.value("udid").toString();
}

// ombrelo-devicesim serving some device folders on its own socket, for as long as it lives.
class Simulator {
public:
    Simulator(const QString& socket, const QStringList& folders) : m_socket(socket)
    {
        m_process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_process.setStandardOutputFile(QProcess::nullDevice());
        m_process.start(tool("ombrelo-devicesim"), QStringList{"--socket", socket} + folders);
        if (!m_process.waitForStarted())
            throw failure("cannot start ombrelo-devicesim");
        for (int attempt = 0; attempt < 500 && !QFile::exists(socket); ++attempt)
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        if (!QFile::exists(socket))
            throw failure("ombrelo-devicesim did not answer");
    }
    ~Simulator()
    {
        m_process.terminate();
        if (!m_process.waitForFinished(10000))
            m_process.kill();
        m_process.waitForFinished();
    }
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;

    // The environment in which libimobiledevice, and so ombrelo-cli, finds this simulator.
    QProcessEnvironment environment() const
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("USBMUXD_SOCKET_ADDRESS", "UNIX:" + m_socket);
        return environment;
    }
    void useInThisProcess() const { qputenv("USBMUXD_SOCKET_ADDRESS", ("UNIX:" + m_socket).toUtf8()); }

private:
    QString m_socket;
    QProcess m_process;
};

// The most the link and the library can give: one AFC connection, and for every file
// afc_file_open, 1 MiB afc_file_read calls until the end, afc_file_close. Nothing is kept.
// Returns the bytes read.
inline int64_t plainReadLoop(const QString& udid, const QStringList& paths)
{
    const QByteArray id = udid.toUtf8();
    idevice_t device = nullptr;
    lockdownd_client_t lockdown = nullptr;
    lockdownd_service_descriptor_t service = nullptr;
    afc_client_t afc = nullptr;
    if (idevice_new_with_options(&device, id.constData(), IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS ||
        lockdownd_client_new_with_handshake(device, &lockdown, "ombrelo-bench") != LOCKDOWN_E_SUCCESS ||
        lockdownd_start_service(lockdown, "com.apple.afc", &service) != LOCKDOWN_E_SUCCESS ||
        afc_client_new(device, service, &afc) != AFC_E_SUCCESS)
        throw failure("cannot open the simulated device " + udid);
    lockdownd_service_descriptor_free(service);
    lockdownd_client_free(lockdown);
    std::vector<char> buffer(kTransferChunkSize);
    int64_t total = 0;
    for (const QString& path : paths) {
        uint64_t handle = 0;
        if (afc_file_open(afc, path.toUtf8().constData(), AFC_FOPEN_RDONLY, &handle) != AFC_E_SUCCESS)
            throw failure("cannot open " + path);
        for (;;) {
            uint32_t n = 0;
            if (afc_file_read(afc, handle, buffer.data(), uint32_t(buffer.size()), &n) != AFC_E_SUCCESS)
                throw failure("cannot read " + path);
            if (n == 0)
                break;
            total += n;
        }
        afc_file_close(afc, handle);
    }
    afc_client_free(afc);
    idevice_free(device);
    return total;
}

} // namespace bench
