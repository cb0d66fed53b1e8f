#pragma once

#include "DownloadResult.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

#include <stop_token>

// The one way the rest of the system reads a device's media tree. Device paths are absolute,
// "/"-separated, relative to the media root (/DCIM/100APPLE/IMG_0001.HEIC).
// Every operation may throw MediaSourceError (or the local file system's error).
class MediaSource {
public:
    virtual ~MediaSource() = default;

    // The entry names of a device directory, in the device's order, without "." and "..".
    virtual QStringList listDirectory(const QString& path) = 0;
    // Streams a device file into a new local file at `destination`, hashing as it goes. A stop
    // requested through `stop` ends the download early, between chunks, with a readFailed error;
    // the partial file is left for the caller to remove.
    virtual DownloadResult download(const QString& path, const QString& destination, std::stop_token stop = {}) = 0;
    // The whole content of a (small) device file.
    virtual QByteArray readFile(const QString& path) = 0;
};
