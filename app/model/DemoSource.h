#pragma once

#include "device/DeviceInfo.h"
#include "device/MediaSource.h"

#include <QByteArray>
#include <cstdint>

// The media source of demo mode: no files to list or copy, and for every path a picture of its own
// (a gradient whose colours and angle come from the path), so thumbnails show without a device.
class DemoSource : public MediaSource {
public:
    // The device it stands for: "My iPhone", an iPhone16,2 with iOS 26.0, UDID "demo".
    static DeviceInfo deviceInfo();
    // 32-bit FNV-1a of the bytes.
    static uint32_t fnv1a(const QByteArray& bytes);

    QStringList listDirectory(const QString& path) override;
    // Always fails: demo mode has no files to copy.
    DownloadResult download(const QString& path, const QString& destination,
                            const DownloadControl& control = {}) override;
    // A 240 × 240 JPEG, the same for the same path.
    QByteArray readFile(const QString& path) override;
    // Nothing: there are no files, only pictures made on request.
    std::optional<DeviceFileInfo> fileInfo(const QString& path) override;
};
