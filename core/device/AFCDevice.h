#pragma once

#include "DeviceInfo.h"
#include "DeviceWatchdog.h"
#include "DownloadResult.h"
#include "MediaSource.h"
#include "MediaSourceError.h"

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
// and its media file service (AFC). One AFC client must not be used by two threads at once, so
// every AFC request holds the device's lock; a download takes it for each chunk rather than for
// the whole file, so that a thumbnail read on another thread waits one chunk, not a whole video.
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
    DownloadResult download(const QString& path, const QString& destination,
                            const DownloadControl& control = {}) override;
    QByteArray readFile(const QString& path) override;
    std::optional<DeviceFileInfo> fileInfo(const QString& path) override;

private:
    // A chunk and the file's size on the device.
    using ChunkHandler = std::function<void(const char* data, size_t length, uint64_t size)>;
    // Streams a device file through one 1 MiB buffer, handing each chunk to `body`, and fails
    // unless exactly the file's size arrived.
    void readChunks(const QString& path, const ChunkHandler& body, std::stop_token stop = {});
    // Sends one AFC request under the device's lock, watched for a device that stops answering
    // (then MediaSourceError::deviceStopped); returns the request's result.
    int request(const QString& path, const std::function<int(afc_client_private* afc)>& call,
                std::stop_token stop = {});
    // The error a failed request means.
    static MediaSourceError failure(const QString& path, int code);
    class OpenFile;
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
    std::unique_ptr<DeviceWatchdog> m_watchdog;
};
