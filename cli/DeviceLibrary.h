#pragma once

#include "device/AFCDevice.h"
#include "library/PhotoLibrary.h"

#include <QString>
#include <QTextStream>

#include <functional>
#include <memory>
#include <optional>

// A connected phone and the library read from its Photos database, as the app reads it: the
// database and its log files are copied into the phone's cache folder first.
struct DeviceLibrary {
    std::unique_ptr<AFCDevice> device;
    PhotoLibrary library;

    // Where status lines ("Device: …", "Reading the Photos database...") go, one whole line each.
    using Say = std::function<void(const QString& line)>;

    // Opens the device (the first one when `udid` is absent) and reads its library.
    // Throws DeviceError, MediaSourceError, SQLiteError or PhotoLibraryError.
    static DeviceLibrary open(const std::optional<QString>& udid, const Say& say);
    static DeviceLibrary open(const std::optional<QString>& udid, QTextStream& status);

    // Polls every four seconds until a usable device (the given one, if any) is connected.
    // Says each new reason for waiting once. Returns false when `stop` asks to give up.
    static bool waitForDevice(const std::optional<QString>& udid, const Say& say, const std::function<bool()>& stop);
};
