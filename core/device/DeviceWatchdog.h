#pragma once

#include <QSet>

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <stop_token>
#include <thread>

// Watches the requests sent to one device connection. A request that gets no answer for
// `stallTimeout`, or that is still waiting a second after the download it serves was stopped, has
// the connection shut under it, so that it fails at once instead of waiting the minute and a half
// libimobiledevice takes to give up on a frozen phone. The connection is then dead for good: every
// later request is refused, and the device must be connected again.
class DeviceWatchdog {
public:
    static constexpr std::chrono::seconds defaultStallTimeout{20};
    static constexpr std::chrono::milliseconds stopGrace{1000};

    // `socket` is the connection's file descriptor, or -1 when it is not known (requests are then
    // only watched, never cut short).
    explicit DeviceWatchdog(int socket, std::chrono::milliseconds stallTimeout = defaultStallTimeout);
    ~DeviceWatchdog();
    DeviceWatchdog(const DeviceWatchdog&) = delete;
    DeviceWatchdog& operator=(const DeviceWatchdog&) = delete;

    // One request in flight, from construction to destruction; requests never overlap.
    class Request {
    public:
        Request(DeviceWatchdog& watchdog, std::stop_token stop);
        ~Request();
        Request(const Request&) = delete;
        Request& operator=(const Request&) = delete;

    private:
        DeviceWatchdog& m_watchdog;
    };

    // Whether the device stopped answering (the connection was shut for that).
    bool hasStalled() const;

    // The socket a library call opened to usbmuxd: the one socket connected to usbmuxd that is open
    // now and was not among `before`; -1 when there is not exactly one.
    static QSet<int> openSockets();
    static int newUsbmuxSocket(const QSet<int>& before);

private:
    void watch(std::stop_token stop);
    void cut();

    const int m_socket;
    const std::chrono::milliseconds m_stallTimeout;
    mutable std::mutex m_mutex;
    std::condition_variable_any m_changed;
    std::optional<std::chrono::steady_clock::time_point> m_since; // the request in flight
    std::stop_token m_requestStop;
    std::optional<std::chrono::steady_clock::time_point> m_stopSeen;
    bool m_stalled = false;
    std::jthread m_thread;
};
