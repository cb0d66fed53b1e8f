#include "DeviceWatchdog.h"

#include <QByteArray>
#include <QDir>
#include <QLoggingCategory>

#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

Q_LOGGING_CATEGORY(lcWatchdog, "ombrelo.device", QtInfoMsg)

// The usbmuxd socket libusbmuxd connects to, as it reads it from the environment.
QByteArray usbmuxdPath()
{
    const QByteArray address = qgetenv("USBMUXD_SOCKET_ADDRESS");
    if (address.startsWith("UNIX:"))
        return address.mid(5);
    return "/var/run/usbmuxd";
}

bool isConnectedTo(int fd, const QByteArray& path)
{
    sockaddr_un peer{};
    socklen_t length = sizeof peer;
    if (getpeername(fd, reinterpret_cast<sockaddr*>(&peer), &length) != 0 || peer.sun_family != AF_UNIX)
        return false;
    return QByteArray(peer.sun_path) == path;
}

} // namespace

DeviceWatchdog::DeviceWatchdog(int socket, std::chrono::milliseconds stallTimeout)
    : m_socket(socket), m_stallTimeout(stallTimeout), m_thread([this](std::stop_token stop) { watch(stop); })
{
}

DeviceWatchdog::~DeviceWatchdog()
{
    m_thread.request_stop();
    m_changed.notify_all();
}

DeviceWatchdog::Request::Request(DeviceWatchdog& watchdog, std::stop_token stop) : m_watchdog(watchdog)
{
    std::lock_guard lock(m_watchdog.m_mutex);
    m_watchdog.m_since = std::chrono::steady_clock::now();
    m_watchdog.m_requestStop = std::move(stop);
    m_watchdog.m_stopSeen.reset();
    m_watchdog.m_changed.notify_all();
}

DeviceWatchdog::Request::~Request()
{
    std::lock_guard lock(m_watchdog.m_mutex);
    m_watchdog.m_since.reset();
    m_watchdog.m_requestStop = {};
}

bool DeviceWatchdog::hasStalled() const
{
    std::lock_guard lock(m_mutex);
    return m_stalled;
}

void DeviceWatchdog::watch(std::stop_token stop)
{
    std::unique_lock lock(m_mutex);
    while (!stop.stop_requested()) {
        m_changed.wait_for(lock, stop, std::chrono::milliseconds(200), [] { return false; });
        if (!m_since || m_stalled)
            continue;
        const auto now = std::chrono::steady_clock::now();
        if (m_requestStop.stop_requested() && !m_stopSeen)
            m_stopSeen = now;
        const bool silent = now - *m_since >= m_stallTimeout;
        const bool abandoned = m_stopSeen && now - *m_stopSeen >= stopGrace;
        if (silent || abandoned) {
            qCInfo(lcWatchdog, "%s: shutting the device connection",
                   silent ? "The device has not answered a request" : "A stopped download does not end");
            m_stalled = true;
            cut();
        }
    }
}

void DeviceWatchdog::cut()
{
    // The request under way returns at once with an error; so does every later one.
    if (m_socket >= 0)
        ::shutdown(m_socket, SHUT_RDWR);
}

QSet<int> DeviceWatchdog::openSockets()
{
    QSet<int> sockets;
    for (const QString& entry : QDir("/proc/self/fd").entryList(QDir::Files | QDir::System)) {
        bool isNumber = false;
        const int fd = entry.toInt(&isNumber);
        struct stat status {};
        if (isNumber && fstat(fd, &status) == 0 && S_ISSOCK(status.st_mode))
            sockets.insert(fd);
    }
    return sockets;
}

int DeviceWatchdog::newUsbmuxSocket(const QSet<int>& before)
{
    const QByteArray path = usbmuxdPath();
    int found = -1;
    for (int fd : openSockets()) {
        if (before.contains(fd) || !isConnectedTo(fd, path))
            continue;
        if (found >= 0)
            return -1;
        found = fd;
    }
    return found;
}
