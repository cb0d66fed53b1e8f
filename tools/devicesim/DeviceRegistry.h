#pragma once

#include "SimulatedDevice.h"

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <memory>
#include <mutex>

// The phones plugged into the simulated usbmuxd. The device folders (or the sub-folders of the
// devices folder) are read again at every listing: a folder that disappears unplugs its phone and
// closes its connections, a new one plugs a phone in, an edited device.json changes behaviour.
class DeviceRegistry {
public:
    // Throws ConfigError naming the file when a folder has no usable device.json.
    static std::unique_ptr<DeviceRegistry> forFolders(const QStringList& folders);
    // Throws ConfigError when the folder does not exist.
    static std::unique_ptr<DeviceRegistry> forDevicesDir(const QString& devicesDir);

    // The plugged-in devices, in listing order, after reading the folders again.
    QList<std::shared_ptr<SimulatedDevice>> refresh();
    // Lookups among the devices of the last listing; null when absent.
    std::shared_ptr<SimulatedDevice> findById(uint32_t deviceId) const;
    std::shared_ptr<SimulatedDevice> findByUdid(const QString& udid) const;
    void unplugAll();

private:
    DeviceRegistry() = default;
    QStringList currentFolders() const;
    // Parses a folder's device.json; logs a problem once per version of the file.
    std::optional<DeviceConfig> readConfig(const QString& folder, QByteArray& json);

    struct Slot {
        std::shared_ptr<SimulatedDevice> device;
        QByteArray json;
    };

    QString m_devicesDir;
    QStringList m_folders;
    mutable std::mutex m_mutex;
    QHash<QString, Slot> m_slots;
    QStringList m_order;
    QHash<QString, QByteArray> m_reported;
    uint32_t m_nextId = 1;
};
