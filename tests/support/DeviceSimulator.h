#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QMap>
#include <QProcess>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// The description of one simulated phone, written as its device.json.
struct SimulatedPhone {
    QString udid;
    QString name = QStringLiteral("Test iPhone");
    QString productType = QStringLiteral("iPhone15,3");
    QString productVersion = QStringLiteral("17.5");
    QString connection = QStringLiteral("USB");
    bool listedTwice = false;
    // The "faults" object, as ombrelo-devicesim --help documents it.
    QJsonObject faults;

    QJsonObject toJson() const;
};

// A valid udid (40 hexadecimal digits) that differs for each n.
QString simulatedUdid(int n);
// A phone with that udid and this name, the rest as SimulatedPhone has it.
SimulatedPhone simulatedPhone(int n, const QString& name = QStringLiteral("Test iPhone"));

// Writes <folder>/device.json and the files of <folder>/media, given by device path
// ("/DCIM/100APPLE/IMG_0001.HEIC"). Returns `folder`. A whole media tree written by
// ombrelo-mkdevice into <folder>/media serves just as well.
QString writeDeviceFolder(const QString& folder, const SimulatedPhone& phone,
                          const QMap<QString, QByteArray>& media = {});
// Rewrites device.json alone; the simulator picks it up at the next device listing.
void writeDeviceJson(const QString& folder, const SimulatedPhone& phone);

// A running ombrelo-devicesim on its own socket in a temporary folder. While it lives,
// USBMUXD_SOCKET_ADDRESS points this process (and the programs it starts) at it, so
// libimobiledevice talks to the simulated phones; destruction stops the simulator and
// restores the variable. The simulator logs every request (--verbose) to log().
class DeviceSimulator {
public:
    struct DevicesDir {};
    static constexpr DevicesDir devicesDir{};

    // Serves these device folders. Throws std::runtime_error, with the simulator's log,
    // when it does not start answering.
    explicit DeviceSimulator(const QStringList& deviceFolders);
    // Serves every sub-folder of `folder`, read again at every device listing:
    // DeviceSimulator simulator(DeviceSimulator::devicesDir, folder);
    DeviceSimulator(DevicesDir, const QString& folder);
    ~DeviceSimulator();
    DeviceSimulator(const DeviceSimulator&) = delete;
    DeviceSimulator& operator=(const DeviceSimulator&) = delete;

    QString socketPath() const { return m_dir.filePath("usbmuxd.sock"); }
    // The value of USBMUXD_SOCKET_ADDRESS: "UNIX:" and the socket path.
    QString socketAddress() const { return "UNIX:" + socketPath(); }
    qint64 pid() const { return m_process.processId(); }
    // Everything the simulator has written to stdout and stderr so far.
    QString log() const;
    // Sends SIGTERM and waits; returns the exit status (-1 when it had to be killed).
    int stop();

private:
    void start(const QStringList& arguments);

    QTemporaryDir m_dir;
    QProcess m_process;
    QByteArray m_previousAddress;
    bool m_hadPreviousAddress = false;
};
