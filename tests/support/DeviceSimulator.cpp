#include "DeviceSimulator.h"

#include "TempDir.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <fcntl.h>
#include <optional>
#include <spawn.h>
#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

extern char** environ;

namespace {

constexpr char kAddressVariable[] = "USBMUXD_SOCKET_ADDRESS";

bool answers(const QString& socketPath)
{
    const QByteArray path = QFile::encodeName(socketPath);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (size_t(path.size()) >= sizeof address.sun_path)
        return false;
    std::copy(path.begin(), path.end(), address.sun_path);
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const bool connected = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    ::close(fd);
    return connected;
}

// Waits for the child for up to `timeout`; returns its exit status, or nothing while it runs.
std::optional<int> waitFor(pid_t pid, std::chrono::milliseconds timeout)
{
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        int status = 0;
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid)
            return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        if (done < 0 && errno != EINTR)
            return -1;
        if (std::chrono::steady_clock::now() >= deadline)
            return std::nullopt;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace

QJsonObject SimulatedPhone::toJson() const
{
    QJsonObject object{{"udid", udid},
                       {"name", name},
                       {"productType", productType},
                       {"productVersion", productVersion},
                       {"connection", connection},
                       {"listedTwice", listedTwice}};
    if (!faults.isEmpty())
        object.insert("faults", faults);
    return object;
}

QString simulatedUdid(int n) { return "a0b1c2d3" + QString::number(n, 16).rightJustified(32, '0'); }

SimulatedPhone simulatedPhone(int n, const QString& name)
{
    SimulatedPhone phone;
    phone.udid = simulatedUdid(n);
    phone.name = name;
    return phone;
}

void writeDeviceJson(const QString& folder, const SimulatedPhone& phone)
{
    writeFile(folder + "/device.json", QJsonDocument(phone.toJson()).toJson());
}

QString writeDeviceFolder(const QString& folder, const SimulatedPhone& phone, const QMap<QString, QByteArray>& media)
{
    writeDeviceJson(folder, phone);
    QDir().mkpath(folder + "/media");
    for (auto it = media.begin(); it != media.end(); ++it)
        writeFile(folder + "/media" + it.key(), it.value());
    return folder;
}

DeviceSimulator::DeviceSimulator(const QStringList& deviceFolders) : m_dir(QDir::tempPath() + "/ombrelo-sim-XXXXXX")
{
    start(deviceFolders);
}

DeviceSimulator::DeviceSimulator(DevicesDir, const QString& folder) : m_dir(QDir::tempPath() + "/ombrelo-sim-XXXXXX")
{
    start({"--devices-dir", folder});
}

void DeviceSimulator::start(const QStringList& arguments)
{
    if (!m_dir.isValid())
        throw std::runtime_error("cannot create a temporary folder for the simulator");
    const QByteArray program = OMBRELO_BIN_DIR "/ombrelo-devicesim";
    QList<QByteArray> args{program, "--verbose", "--socket", QFile::encodeName(socketPath())};
    for (const QString& argument : arguments)
        args << QFile::encodeName(argument);
    std::vector<char*> argv;
    for (QByteArray& arg : args)
        argv.push_back(arg.data());
    argv.push_back(nullptr);

    const QByteArray logPath = QFile::encodeName(m_dir.filePath("simulator.log"));
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, logPath.constData(), O_WRONLY | O_CREAT | O_APPEND, 0644);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    const int spawned = posix_spawn(&m_pid, program.constData(), &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0)
        throw std::runtime_error(("cannot start " + program).toStdString());

    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!answers(socketPath())) {
        if (const std::optional<int> status = waitFor(m_pid, std::chrono::milliseconds(20))) {
            m_pid = -1;
            throw std::runtime_error(
                ("ombrelo-devicesim exited with status " + QString::number(*status) + ":\n" + log()).toStdString());
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            stop();
            throw std::runtime_error(("ombrelo-devicesim did not answer within 10 s:\n" + log()).toStdString());
        }
    }
    m_hadPreviousAddress = qEnvironmentVariableIsSet(kAddressVariable);
    m_previousAddress = qgetenv(kAddressVariable);
    qputenv(kAddressVariable, socketAddress().toUtf8());
}

DeviceSimulator::~DeviceSimulator()
{
    stop();
    if (m_hadPreviousAddress)
        qputenv(kAddressVariable, m_previousAddress);
    else
        qunsetenv(kAddressVariable);
}

int DeviceSimulator::stop()
{
    if (m_pid <= 0)
        return -1;
    ::kill(m_pid, SIGTERM);
    std::optional<int> status = waitFor(m_pid, std::chrono::seconds(10));
    if (!status) {
        ::kill(m_pid, SIGKILL);
        waitFor(m_pid, std::chrono::seconds(10));
        status = -1;
    }
    m_pid = -1;
    return *status;
}

QString DeviceSimulator::log() const
{
    QFile file(m_dir.filePath("simulator.log"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}
