#include "PullCommand.h"

#include "DeviceAccess.h"
#include "TerminalStatus.h"
#include "device/AFCDevice.h"

#include <QFile>
#include <QFileInfo>
#include <QLocale>

#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

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

// The local file, made by the pull itself (exclusively) before the device is asked for anything.
// The pull writes into this very file through its open descriptor, even if something else takes
// its name meanwhile, and removes it only while the name is still its own.
class NewLocalFile {
public:
    // Throws std::runtime_error with the user's text when the file cannot be made.
    explicit NewLocalFile(const QString& path) : m_path(path)
    {
        m_fd = ::open(QFile::encodeName(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
        if (m_fd < 0)
            throw std::runtime_error(creationProblem(errno).toStdString());
    }
    ~NewLocalFile() { ::close(m_fd); }
    NewLocalFile(const NewLocalFile&) = delete;
    NewLocalFile& operator=(const NewLocalFile&) = delete;

    // A path that opens exactly this file, whatever holds its name by then.
    QString writablePath() const { return "/proc/self/fd/" + QString::number(m_fd); }
    bool holdsItsName() const
    {
        struct stat named, own;
        return ::lstat(QFile::encodeName(m_path).constData(), &named) == 0 && ::fstat(m_fd, &own) == 0 &&
               named.st_dev == own.st_dev && named.st_ino == own.st_ino;
    }
    void removeIfStillOurs() const
    {
        if (holdsItsName())
            ::unlink(QFile::encodeName(m_path).constData());
    }

private:
    QString creationProblem(int error) const
    {
        if (error == EEXIST)
            return m_path + " already exists; pull does not replace files.";
        const QString folder = QFileInfo(m_path).absolutePath();
        if (error == ENOENT || error == ENOTDIR)
            return QString::fromUtf8("The folder \u201c%1\u201d doesn't exist, so the file could not be made there. "
                                     "Create the folder first, or give a path in an existing one.")
                .arg(folder);
        return QString::fromUtf8("\u201c%1\u201d could not be made (%2). Give a path in a folder you can write to.")
            .arg(m_path, QString::fromLocal8Bit(std::strerror(error)));
    }

    QString m_path;
    int m_fd = -1;
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
    std::optional<NewLocalFile> file;
    try {
        file.emplace(localFile);
    } catch (const std::runtime_error& error) {
        context.err << QString::fromUtf8(error.what()) << "\n";
        return ExitCode::failed;
    }
    const int code = runWithDevice(context, [&] {
        AFCDevice device(chosenUdid(parser));
        DownloadResult result;
        {
            const PullProgress progress(context, file->writablePath());
            result = device.download(devicePath, file->writablePath());
        }
        if (!file->holdsItsName())
            throw std::runtime_error(
                QString::fromUtf8("Another file took the name \u201c%1\u201d while the device file "
                                  "was copied; it was left as it is. Pull again to a new name.")
                    .arg(localFile)
                    .toStdString());
        context.out << result.sha256 << "  " << arguments[1] << "\n" << result.size << " bytes";
        if (result.size >= 1000)
            context.out << " (" << QLocale().formattedDataSize(qint64(result.size), 1, QLocale::DataSizeSIFormat)
                        << ")";
        context.out << "\n";
        return ExitCode::ok;
    });
    // A pull that failed midway leaves nothing that could pass for the whole file, and removes
    // nothing but its own file.
    if (code != ExitCode::ok)
        file->removeIfStillOurs();
    return code;
}
