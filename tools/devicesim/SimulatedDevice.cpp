#include "SimulatedDevice.h"

#include <sys/socket.h>

SimulatedDevice::SimulatedDevice(const QString& folder, const DeviceConfig& config, uint32_t deviceId,
                                 uint32_t secondId)
    : m_folder(folder), m_media(folder + "/media"), m_deviceId(deviceId), m_secondId(secondId),
      m_config(std::make_shared<const DeviceConfig>(config))
{
}

std::shared_ptr<const DeviceConfig> SimulatedDevice::config() const
{
    std::lock_guard lock(m_mutex);
    return m_config;
}

void SimulatedDevice::setConfig(const DeviceConfig& config)
{
    auto next = std::make_shared<const DeviceConfig>(config);
    std::lock_guard lock(m_mutex);
    m_config = std::move(next);
}

bool SimulatedDevice::attach(int fd)
{
    std::lock_guard lock(m_mutex);
    if (!m_pluggedIn)
        return false;
    m_connections.insert(fd);
    return true;
}

void SimulatedDevice::detach(int fd)
{
    std::lock_guard lock(m_mutex);
    m_connections.erase(fd);
}

void SimulatedDevice::unplug()
{
    // Shutting down (not closing) wakes the connection's thread, which then closes its own socket;
    // detach() runs under the same lock, so a descriptor is never shut down after it was reused.
    std::lock_guard lock(m_mutex);
    m_pluggedIn = false;
    for (int fd : m_connections)
        ::shutdown(fd, SHUT_RDWR);
}

bool SimulatedDevice::pluggedIn() const
{
    std::lock_guard lock(m_mutex);
    return m_pluggedIn;
}
