#pragma once

#include "DeviceRegistry.h"
#include "Plist.h"
#include "Socket.h"

#include <QString>

#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <set>

// A usbmuxd on a UNIX socket with the simulated phones behind it. Each client connection has its
// own thread: it asks for the device list, pair records and the like (16-byte little-endian
// header, XML plist), or asks to Connect, after which the connection belongs to the phone's
// lockdown or AFC service.
class MuxServer {
public:
    MuxServer(const QString& socketPath, DeviceRegistry& registry);

    // Serves until SIGINT or SIGTERM arrives (both must be blocked in every thread beforehand),
    // then closes every connection and removes the socket. Returns the exit code.
    int run();

private:
    bool listen();
    void serve(int fd, int id);
    // Answers one request; false ends the connection.
    bool handle(Socket& socket, int id, uint32_t tag, plist_t request);
    bool connectDevice(Socket& socket, int id, uint32_t tag, plist_t request);
    bool sendPlist(Socket& socket, uint32_t tag, plist_t message);
    bool sendResult(Socket& socket, uint32_t tag, uint64_t number);
    PlistPtr attachedRecord(const SimulatedDevice& device, uint32_t deviceId) const;
    void stopAll();

    const QString m_socketPath;
    DeviceRegistry& m_registry;
    Socket m_listener;

    std::mutex m_mutex;
    std::condition_variable m_finished;
    std::set<int> m_open;
    int m_active = 0;
};
