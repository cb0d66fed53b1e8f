#pragma once

#include "DeviceConfig.h"
#include "MediaTree.h"
#include "RateLimiter.h"

#include <QString>

#include <cstdint>
#include <memory>
#include <mutex>
#include <set>

// One plugged-in phone: its folder, its current device.json, and the connections open to it.
// Faults are read per request, so editing device.json takes effect at the next device listing.
class SimulatedDevice {
public:
    SimulatedDevice(const QString& folder, const DeviceConfig& config, uint32_t deviceId, uint32_t secondId);

    const QString& folder() const { return m_folder; }
    const MediaTree& media() const { return m_media; }
    // The usbmuxd handle, and the second one under which a device listed twice appears.
    uint32_t deviceId() const { return m_deviceId; }
    uint32_t secondId() const { return m_secondId; }
    QString udid() const { return config()->udid; }

    std::shared_ptr<const DeviceConfig> config() const;
    void setConfig(const DeviceConfig& config);

    RateLimiter& link() { return m_link; }

    // Registers an open connection; false when the device has been unplugged meanwhile.
    bool attach(int fd);
    void detach(int fd);
    // Closes every connection to the device, as pulling its cable does.
    void unplug();
    bool pluggedIn() const;

private:
    const QString m_folder;
    const MediaTree m_media;
    const uint32_t m_deviceId;
    const uint32_t m_secondId;
    RateLimiter m_link;

    mutable std::mutex m_mutex;
    std::shared_ptr<const DeviceConfig> m_config;
    std::set<int> m_connections;
    bool m_pluggedIn = true;
};
