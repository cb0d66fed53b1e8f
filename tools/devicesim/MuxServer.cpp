#include "MuxServer.h"

#include "AFCService.h"
#include "LockdownService.h"
#include "Log.h"

#include <QFileInfo>
#include <QtEndian>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

struct MuxHeader {
    uint32_t length;
    uint32_t version;
    uint32_t message;
    uint32_t tag;
};
static_assert(sizeof(MuxHeader) == 16);

constexpr uint32_t kPlistMessage = 8;
constexpr uint32_t kMaxMessage = 1024 * 1024;

namespace Result {
constexpr uint64_t ok = 0, badCommand = 1, badDevice = 2, connectionRefused = 3;
}

// Stable identities for the computer side of pairing; nothing checks them beyond their presence.
const QString kHostId = QStringLiteral("6C1AD1C4-53D6-4C83-8F0F-0B1B1D6F0E01");
const QString kSystemBuid = QStringLiteral("4D5B9E0A-2F7C-4B9A-9E51-7A3C0C8B2D11");

sockaddr_un socketAddress(const QByteArray& path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), size_t(path.size()));
    return address;
}

} // namespace

MuxServer::MuxServer(const QString& socketPath, DeviceRegistry& registry)
    : m_socketPath(socketPath), m_registry(registry)
{
}

bool MuxServer::listen()
{
    const QByteArray path = QFile::encodeName(m_socketPath);
    if (size_t(path.size()) >= sizeof(sockaddr_un::sun_path)) {
        Log::line("the socket path " + m_socketPath + " is too long for a UNIX socket (at most " +
                  QString::number(sizeof(sockaddr_un::sun_path) - 1) + " bytes).");
        return false;
    }
    const sockaddr_un address = socketAddress(path);
    struct stat status {};
    if (::lstat(path.constData(), &status) == 0) {
        if (!S_ISSOCK(status.st_mode)) {
            Log::line(m_socketPath + " exists and is not a socket; choose another path.");
            return false;
        }
        // A socket that still answers belongs to a running daemon; one that does not is left
        // over from a daemon that was killed, and is replaced.
        Socket probe(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
        if (::connect(probe.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            Log::line(m_socketPath + " is in use by a running usbmuxd.");
            return false;
        }
        ::unlink(path.constData());
    }
    m_listener = Socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!m_listener.isOpen() ||
        ::bind(m_listener.fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_listener.fd(), 128) != 0) {
        Log::line("cannot listen on " + m_socketPath + ": " + QString::fromLocal8Bit(std::strerror(errno)) + ".");
        return false;
    }
    return true;
}

int MuxServer::run()
{
    if (!listen())
        return 1;
    sigset_t stopSignals;
    sigemptyset(&stopSignals);
    sigaddset(&stopSignals, SIGINT);
    sigaddset(&stopSignals, SIGTERM);
    Socket signalFd(::signalfd(-1, &stopSignals, SFD_CLOEXEC));
    Log::request("listening on " + m_socketPath);

    int nextId = 1;
    for (;;) {
        pollfd fds[2] = {{m_listener.fd(), POLLIN, 0}, {signalFd.fd(), POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR)
                continue;
            break;
        }
        if (fds[1].revents & POLLIN) {
            signalfd_siginfo info{};
            if (::read(signalFd.fd(), &info, sizeof info) == ssize_t(sizeof info))
                Log::request(QString("stopping on signal ") + sigabbrev_np(int(info.ssi_signo)));
            break;
        }
        if (fds[0].revents & POLLIN) {
            const int fd = ::accept4(m_listener.fd(), nullptr, nullptr, SOCK_CLOEXEC);
            if (fd < 0)
                continue;
            const int id = nextId++;
            {
                std::lock_guard lock(m_mutex);
                m_open.insert(fd);
                ++m_active;
            }
            std::thread([this, fd, id] { serve(fd, id); }).detach();
        }
    }
    m_listener.close();
    ::unlink(QFile::encodeName(m_socketPath).constData());
    stopAll();
    return 0;
}

void MuxServer::stopAll()
{
    m_registry.unplugAll();
    std::unique_lock lock(m_mutex);
    for (int fd : m_open)
        ::shutdown(fd, SHUT_RDWR);
    if (!m_finished.wait_for(lock, std::chrono::seconds(5), [this] { return m_active == 0; }))
        Log::line(QString::number(m_active) + " connections did not end in time.");
}

void MuxServer::serve(int fd, int id)
{
    Socket socket(fd);
    for (;;) {
        MuxHeader header;
        if (!socket.readExact(&header, sizeof header))
            break;
        const uint32_t length = qFromLittleEndian(header.length);
        const uint32_t tag = qFromLittleEndian(header.tag);
        if (length < sizeof header || length > kMaxMessage) {
            Log::line("#" + QString::number(id) + " usbmux: a message of " + QString::number(length) +
                      " bytes; closing.");
            break;
        }
        QByteArray payload(qsizetype(length - sizeof header), Qt::Uninitialized);
        if (!payload.isEmpty() && !socket.readExact(payload.data(), size_t(payload.size())))
            break;
        if (qFromLittleEndian(header.message) != kPlistMessage) {
            Log::line("#" + QString::number(id) + " usbmux: only the plist protocol is served; closing.");
            break;
        }
        PlistPtr request = Plist::parse(payload);
        if (!handle(socket, id, tag, request.get()))
            break;
    }
    {
        std::lock_guard lock(m_mutex);
        m_open.erase(fd);
    }
    socket.close();
    std::lock_guard lock(m_mutex);
    --m_active;
    m_finished.notify_all();
}

bool MuxServer::handle(Socket& socket, int id, uint32_t tag, plist_t request)
{
    const QString type = Plist::string(request, "MessageType").value_or(QString());
    const QString who =
        "#" + QString::number(id) + " usbmux " + type + " from " + Plist::string(request, "ProgName").value_or("?");
    if (type == "ListDevices") {
        PlistPtr list(plist_new_array());
        for (const auto& device : m_registry.refresh()) {
            plist_array_append_item(list.get(), attachedRecord(*device, device->deviceId()).release());
            if (device->config()->listedTwice)
                plist_array_append_item(list.get(), attachedRecord(*device, device->secondId()).release());
        }
        Log::request(who + ": " + QString::number(plist_array_get_size(list.get())) + " entries");
        PlistPtr reply = Plist::dict();
        Plist::setNode(reply.get(), "DeviceList", std::move(list));
        return sendPlist(socket, tag, reply.get());
    }
    if (type == "Listen") {
        Log::request(who);
        if (!sendResult(socket, tag, Result::ok))
            return false;
        for (const auto& device : m_registry.refresh()) {
            if (!sendPlist(socket, 0, attachedRecord(*device, device->deviceId()).get()))
                return false;
            if (device->config()->listedTwice &&
                !sendPlist(socket, 0, attachedRecord(*device, device->secondId()).get()))
                return false;
        }
        // Listeners hear nothing more; they hang up when they have what they need.
        char ignored[256];
        while (::read(socket.fd(), ignored, sizeof ignored) > 0) {
        }
        return false;
    }
    if (type == "ReadBUID") {
        Log::request(who);
        PlistPtr reply = Plist::dict();
        Plist::setString(reply.get(), "BUID", kSystemBuid);
        return sendPlist(socket, tag, reply.get());
    }
    if (type == "ReadPairRecord") {
        const QString udid = Plist::string(request, "PairRecordID").value_or(QString());
        if (!m_registry.findByUdid(udid)) {
            Log::request(who + " " + udid + ": no such device");
            return sendResult(socket, tag, Result::badDevice);
        }
        Log::request(who + " " + udid);
        PlistPtr record = Plist::dict();
        Plist::setString(record.get(), "HostID", kHostId);
        Plist::setString(record.get(), "SystemBUID", kSystemBuid);
        PlistPtr reply = Plist::dict();
        Plist::setData(reply.get(), "PairRecordData", Plist::toBinary(record.get()));
        return sendPlist(socket, tag, reply.get());
    }
    if (type == "SavePairRecord" || type == "DeletePairRecord") {
        Log::request(who);
        return sendResult(socket, tag, Result::ok);
    }
    if (type == "Connect")
        return connectDevice(socket, id, tag, request);
    Log::request(who + ": not a known request");
    return sendResult(socket, tag, Result::badCommand);
}

bool MuxServer::connectDevice(Socket& socket, int id, uint32_t tag, plist_t request)
{
    const auto deviceId = uint32_t(Plist::unsignedInteger(request, "DeviceID").value_or(0));
    const uint64_t swapped = Plist::unsignedInteger(request, "PortNumber").value_or(0);
    // The port travels in network byte order inside a plain integer.
    const auto port = uint16_t(((swapped & 0xFF) << 8) | ((swapped >> 8) & 0xFF));
    QString what = "#" + QString::number(id) + " usbmux Connect device " + QString::number(deviceId) + " port " +
                   QString::number(port);
    const std::shared_ptr<SimulatedDevice> device = m_registry.findById(deviceId);
    if (!device || !device->pluggedIn()) {
        Log::request(what + ": no such device");
        return sendResult(socket, tag, Result::badDevice);
    }
    if (port != LockdownService::kPort && port != AFCService::kPort) {
        Log::request(what + ": refused");
        return sendResult(socket, tag, Result::connectionRefused);
    }
    if (!device->attach(socket.fd())) {
        Log::request(what + ": unplugged meanwhile");
        return sendResult(socket, tag, Result::badDevice);
    }
    Log::request(what + ": connected");
    if (sendResult(socket, tag, Result::ok)) {
        const QString deviceTag = "#" + QString::number(id) + " " + device->udid();
        if (port == LockdownService::kPort)
            LockdownService(socket, *device, deviceTag).run();
        else
            AFCService(socket, *device, deviceTag).run();
    }
    device->detach(socket.fd());
    Log::request("#" + QString::number(id) + " closed");
    return false;
}

PlistPtr MuxServer::attachedRecord(const SimulatedDevice& device, uint32_t deviceId) const
{
    const std::shared_ptr<const DeviceConfig> config = device.config();
    PlistPtr properties = Plist::dict();
    Plist::setUnsigned(properties.get(), "DeviceID", deviceId);
    Plist::setString(properties.get(), "SerialNumber", config->udid);
    Plist::setUnsigned(properties.get(), "ProductID", 0x12A8);
    if (config->network) {
        Plist::setString(properties.get(), "ConnectionType", "Network");
        // A BSD sockaddr_in (length byte first) for 127.0.0.1: nothing listens there, so a
        // client that tries the network path fails at once rather than hanging.
        const char address[16] = {16, 2, 0, 0, 127, 0, 0, 1};
        Plist::setData(properties.get(), "NetworkAddress", QByteArray(address, sizeof address));
    } else {
        Plist::setString(properties.get(), "ConnectionType", "USB");
        Plist::setUnsigned(properties.get(), "ConnectionSpeed", 480000000);
        Plist::setUnsigned(properties.get(), "LocationID", deviceId);
    }
    PlistPtr record = Plist::dict();
    Plist::setUnsigned(record.get(), "DeviceID", deviceId);
    Plist::setString(record.get(), "MessageType", "Attached");
    Plist::setNode(record.get(), "Properties", std::move(properties));
    return record;
}

bool MuxServer::sendPlist(Socket& socket, uint32_t tag, plist_t message)
{
    const QByteArray xml = Plist::toXml(message);
    MuxHeader header{qToLittleEndian(uint32_t(sizeof(MuxHeader) + size_t(xml.size()))), qToLittleEndian(1u),
                     qToLittleEndian(kPlistMessage), qToLittleEndian(tag)};
    return socket.writeAll(&header, sizeof header, xml.constData(), size_t(xml.size()));
}

bool MuxServer::sendResult(Socket& socket, uint32_t tag, uint64_t number)
{
    PlistPtr reply = Plist::dict();
    Plist::setString(reply.get(), "MessageType", "Result");
    Plist::setUnsigned(reply.get(), "Number", number);
    return sendPlist(socket, tag, reply.get());
}
