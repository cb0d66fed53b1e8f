#pragma once

#include "DeviceInfo.h"
#include "DownloadResult.h"
#include "MediaSource.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>

#include <cstddef>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>

struct idevice_private;
struct afc_client_private;
struct lockdownd_client_private;

// A connection to one iPhone or iPad over USB: its description, read once at connection time,
// and its media file service (AFC). Every AFC call sequence (a listing, a whole download) holds
// the device's lock from its first AFC call to its last, because one AFC client must not be
// used by two threads at once; callers on other threads simply wait their turn.
class AFCDevice : public MediaSource {
public:
    // Every device attached by USB, in the order usbmuxd lists them, one record per udid. A device
    // that cannot be queried appears as "Unavailable device" with the reason as its problem.
    // Never fails: when the list cannot be had at all, it is empty.
    static QList<DeviceInfo> connectedDevices();

    // Opens the device with this udid, or the first USB device when none is given.
    // Throws DeviceError.
    explicit AFCDevice(const std::optional<QString>& udid = std::nullopt);
    ~AFCDevice() override;
    AFCDevice(const AFCDevice&) = delete;
    AFCDevice& operator=(const AFCDevice&) = delete;

    const DeviceInfo& info() const { return m_info; }

    // Throw MediaSourceError (download also the local file system's error, as std::runtime_error).
    QStringList listDirectory(const QString& path) override;
    DownloadResult download(const QString& path, const QString& destination, std::stop_token stop = {}) override;
    QByteArray readFile(const QString& path) override;

private:
    using ChunkHandler = std::function<void(const char* data, size_t length)>;
    // Streams a device file through one 1 MiB buffer, handing each chunk to `body`, under the lock.
    void readChunks(const QString& path, const ChunkHandler& body);
    static DeviceInfo readInfo(const QString& udid, lockdownd_client_private* client);
    static QString afcError(int code);

    struct DeviceFree {
        void operator()(idevice_private* device) const;
    };
    struct AfcFree {
        void operator()(afc_client_private* client) const;
    };

    // Declared in this order so that the AFC client is freed before the device handle.
    std::unique_ptr<idevice_private, DeviceFree> m_device;
    std::unique_ptr<afc_client_private, AfcFree> m_afc;
    DeviceInfo m_info;
    std::mutex m_lock;
};
