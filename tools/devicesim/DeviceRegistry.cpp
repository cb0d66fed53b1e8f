#include "DeviceRegistry.h"

#include "Log.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {
QByteArray readDeviceJson(const QString& folder, bool& ok)
{
    QFile file(folder + "/device.json");
    ok = file.open(QIODevice::ReadOnly);
    return ok ? file.readAll() : QByteArray();
}
} // namespace

std::unique_ptr<DeviceRegistry> DeviceRegistry::forFolders(const QStringList& folders)
{
    std::unique_ptr<DeviceRegistry> registry(new DeviceRegistry);
    for (const QString& folder : folders) {
        const QString absolute = QFileInfo(folder).absoluteFilePath();
        bool ok = false;
        const QByteArray json = readDeviceJson(absolute, ok);
        if (!ok)
            throw ConfigError("cannot read " + absolute + "/device.json.");
        try {
            DeviceConfig::parse(json);
        } catch (const ConfigError& error) {
            throw ConfigError(absolute + "/device.json: " + QString::fromStdString(error.what()));
        }
        registry->m_folders << absolute;
    }
    registry->refresh();
    return registry;
}

std::unique_ptr<DeviceRegistry> DeviceRegistry::forDevicesDir(const QString& devicesDir)
{
    const QFileInfo info(devicesDir);
    if (!info.isDir())
        throw ConfigError("the devices folder " + devicesDir + " does not exist.");
    std::unique_ptr<DeviceRegistry> registry(new DeviceRegistry);
    registry->m_devicesDir = info.absoluteFilePath();
    registry->refresh();
    return registry;
}

QStringList DeviceRegistry::currentFolders() const
{
    if (m_devicesDir.isEmpty())
        return m_folders;
    QStringList folders;
    const QDir dir(m_devicesDir);
    for (const QString& name : dir.entryList(QDir::Dirs | QDir::NoDotAndDotDot, QDir::Name))
        folders << dir.filePath(name);
    return folders;
}

std::optional<DeviceConfig> DeviceRegistry::readConfig(const QString& folder, QByteArray& json)
{
    bool ok = false;
    json = readDeviceJson(folder, ok);
    QString problem;
    if (!ok) {
        problem = "cannot read " + folder + "/device.json; the device stays unplugged.";
    } else {
        try {
            return DeviceConfig::parse(json);
        } catch (const ConfigError& error) {
            problem = folder + "/device.json: " + QString::fromStdString(error.what()) + " The device stays unplugged.";
        }
    }
    const QByteArray seen = ok ? json : QByteArray("\0unreadable", 11);
    if (m_reported.value(folder) != seen) {
        m_reported.insert(folder, seen);
        Log::line(problem);
    }
    return std::nullopt;
}

QList<std::shared_ptr<SimulatedDevice>> DeviceRegistry::refresh()
{
    std::lock_guard lock(m_mutex);
    QHash<QString, Slot> kept;
    QStringList order;
    for (const QString& folder : currentFolders()) {
        Slot slot = m_slots.take(folder);
        QByteArray json;
        const std::optional<DeviceConfig> config = readConfig(folder, json);
        if (!config) {
            if (slot.device)
                slot.device->unplug();
            continue;
        }
        m_reported.remove(folder);
        const bool sameDevice = slot.device && slot.device->pluggedIn() && slot.device->udid() == config->udid;
        if (sameDevice && slot.json != json) {
            slot.device->setConfig(*config);
            Log::request("device " + config->udid + ": device.json changed");
        } else if (!sameDevice) {
            if (slot.device)
                slot.device->unplug();
            const uint32_t id = m_nextId;
            m_nextId += 2;
            slot.device = std::make_shared<SimulatedDevice>(folder, *config, id, id + 1);
            Log::request("device " + config->udid + " plugged in from " + folder);
        }
        slot.json = json;
        kept.insert(folder, slot);
        order << folder;
    }
    for (const Slot& gone : std::as_const(m_slots)) {
        gone.device->unplug();
        Log::request("device " + gone.device->udid() + " unplugged");
    }
    m_slots = kept;
    m_order = order;

    QList<std::shared_ptr<SimulatedDevice>> devices;
    for (const QString& folder : order)
        devices << m_slots.value(folder).device;
    return devices;
}

std::shared_ptr<SimulatedDevice> DeviceRegistry::findById(uint32_t deviceId) const
{
    std::lock_guard lock(m_mutex);
    for (const Slot& slot : m_slots)
        if (slot.device->deviceId() == deviceId ||
            (slot.device->secondId() == deviceId && slot.device->config()->listedTwice))
            return slot.device;
    return nullptr;
}

std::shared_ptr<SimulatedDevice> DeviceRegistry::findByUdid(const QString& udid) const
{
    std::lock_guard lock(m_mutex);
    for (const QString& folder : m_order) {
        const std::shared_ptr<SimulatedDevice> device = m_slots.value(folder).device;
        if (device && device->udid() == udid)
            return device;
    }
    return nullptr;
}

void DeviceRegistry::unplugAll()
{
    std::lock_guard lock(m_mutex);
    for (const Slot& slot : std::as_const(m_slots))
        slot.device->unplug();
}
