#include "DeviceSimulator.h"

#include "TempDir.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>

#include <stdexcept>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

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
    m_process.setStandardInputFile(QProcess::nullDevice());
    m_process.setStandardOutputFile(m_dir.filePath("simulator.log"), QIODevice::Append);
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(OMBRELO_BIN_DIR "/ombrelo-devicesim",
                    QStringList{"--verbose", "--socket", socketPath()} + arguments);
    if (!m_process.waitForStarted(10000))
        throw std::runtime_error(("cannot start ombrelo-devicesim: " + m_process.errorString()).toStdString());
    QElapsedTimer clock;
    clock.start();
    while (!answers(socketPath())) {
        if (m_process.waitForFinished(20) || m_process.state() == QProcess::NotRunning)
            throw std::runtime_error(
                ("ombrelo-devicesim exited with status " + QString::number(m_process.exitCode()) + ":\n" + log())
                    .toStdString());
        if (clock.elapsed() > 10000) {
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
    if (m_process.state() == QProcess::NotRunning)
        return -1;
    m_process.terminate();
    if (!m_process.waitForFinished(10000)) {
        m_process.kill();
        m_process.waitForFinished(10000);
        return -1;
    }
    return m_process.exitStatus() == QProcess::NormalExit ? m_process.exitCode() : -1;
}

QString DeviceSimulator::log() const
{
    QFile file(m_dir.filePath("simulator.log"));
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}
