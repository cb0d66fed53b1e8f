#include "PullCommand.h"

#include "DeviceAccess.h"
#include "TerminalStatus.h"
#include "device/AFCDevice.h"

#include <QFile>
#include <QFileInfo>
#include <QLocale>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

// Shows the bytes written so far on the terminal's status line while a long pull runs; the
// download itself reports nothing until it ends, so the growing local file is watched instead.
class PullProgress {
public:
    PullProgress(CommandContext& context, const QString& file)
        : m_status(context.out, context.outIsTerminal), m_file(file)
    {
        if (context.outIsTerminal)
            m_thread = std::thread([this] { watch(); });
    }
    ~PullProgress()
    {
        if (m_thread.joinable()) {
            {
                std::lock_guard lock(m_mutex);
                m_done = true;
            }
            m_wake.notify_all();
            m_thread.join();
        }
    }

private:
    void watch()
    {
        std::unique_lock lock(m_mutex);
        while (!m_wake.wait_for(lock, std::chrono::milliseconds(500), [this] { return m_done; })) {
            const qint64 size = QFileInfo(m_file).size();
            m_status.setStatus("Pulled " + QLocale().formattedDataSize(size, 1, QLocale::DataSizeSIFormat) +
                               QString::fromUtf8("…"));
        }
    }

    TerminalStatus m_status; // cleared when the progress ends, before the result is printed
    const QString m_file;
    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_done = false;
    std::thread m_thread;
};

} // namespace

void PullCommand::configure(QCommandLineParser& parser) const
{
    parser.addPositionalArgument("DEVICE_PATH", "An absolute file path on the device, such as "
                                                "/DCIM/100APPLE/IMG_0001.HEIC.");
    parser.addPositionalArgument("LOCAL_FILE", "The new local file to write; an existing file is never replaced.");
    parser.addOption(udidOption());
}

int PullCommand::run(const QCommandLineParser& parser, CommandContext& context)
{
    const QStringList arguments = parser.positionalArguments();
    if (arguments.size() != 2)
        return usageError(context, "DEVICE_PATH and LOCAL_FILE are needed.");
    const QString devicePath = arguments[0];
    const QString localFile = QFileInfo(arguments[1]).absoluteFilePath();
    if (QFileInfo::exists(localFile) || QFileInfo(localFile).isSymLink()) {
        context.err << localFile << " already exists; pull does not replace files.\n";
        return ExitCode::failed;
    }
    const int code = runWithDevice(context, [&] {
        AFCDevice device(chosenUdid(parser));
        DownloadResult result;
        {
            const PullProgress progress(context, localFile);
            result = device.download(devicePath, localFile);
        }
        context.out << result.sha256 << "  " << arguments[1] << "\n" << result.size << " bytes";
        if (result.size >= 1000)
            context.out << " (" << QLocale().formattedDataSize(qint64(result.size), 1, QLocale::DataSizeSIFormat)
                        << ")";
        context.out << "\n";
        return ExitCode::ok;
    });
    // A pull that failed midway leaves nothing that could pass for the whole file.
    if (code != ExitCode::ok)
        QFile::remove(localFile);
    return code;
}
