#pragma once

#include "DownloadResult.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <functional>
#include <optional>
#include <stop_token>

// How a download is watched and stopped while it streams.
struct DownloadControl {
    // A stop requested here ends the download between chunks, with a readFailed error.
    std::stop_token stop;
    // Called after each chunk with the bytes written so far and the file's size on the device.
    std::function<void(uint64_t done, uint64_t total)> onProgress;
};

// What the device says of one of its files.
struct DeviceFileInfo {
    uint64_t size = 0;
    int64_t modifiedNs = 0; // nanoseconds since 1970
    bool isDirectory = false;

    bool operator==(const DeviceFileInfo&) const = default;
};

// The one way the rest of the system reads a device's media tree. Device paths are absolute,
// "/"-separated, relative to the media root (/DCIM/100APPLE/IMG_0001.HEIC).
// Every operation may throw MediaSourceError (or the local file system's error).
class MediaSource {
public:
    virtual ~MediaSource() = default;

    // The entry names of a device directory, in the device's order, without "." and "..".
    virtual QStringList listDirectory(const QString& path) = 0;
    // Streams a device file into a new local file at `destination`, hashing as it goes. A file the
    // device sends shorter or longer than its size fails with readFailed. A stopped or failed
    // download leaves its partial file for the caller to remove.
    virtual DownloadResult download(const QString& path, const QString& destination,
                                    const DownloadControl& control = {}) = 0;
    // The whole content of a (small) device file, checked against its size the same way.
    virtual QByteArray readFile(const QString& path) = 0;
    // The file's size and modification time; nothing when there is no such file.
    virtual std::optional<DeviceFileInfo> fileInfo(const QString& path) = 0;
};
