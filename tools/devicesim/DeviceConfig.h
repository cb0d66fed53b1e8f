#pragma once

#include <QByteArray>
#include <QHash>
#include <QString>

#include <cstdint>
#include <optional>
#include <stdexcept>

// A device.json that cannot be used; the message names the offending key.
class ConfigError : public std::runtime_error {
public:
    explicit ConfigError(const QString& message) : std::runtime_error(message.toStdString()) {}
};

// A phone that stops answering once this many file bytes have gone out: the request under way
// gets no reply, nor does anything after it on that connection, for `seconds` (for ever when 0).
struct Stall {
    uint64_t afterBytes = 0;
    double seconds = 0;
};

// How one device path misbehaves: the AFC error number its open, read or listing answers.
struct PathFault {
    int open = 0;
    int read = 0;
    int list = 0;
    // Listing the folder answers an empty reply, without even "." and "..", as a confused device might.
    bool emptyListing = false;
    // Reads succeed up to this many bytes of the file before the read error is answered.
    uint64_t readAfterBytes = 0;
    // Reads report the end of the file after this many bytes, while its size stays the full one.
    std::optional<uint64_t> endAfterBytes;
    // Counted in bytes of this file, for each opening of it.
    std::optional<Stall> stall;
};

// The identity and behaviour of one simulated device, as its device.json describes it.
struct DeviceConfig {
    QString udid;
    QString name = QStringLiteral("iPhone");
    QString productType = QStringLiteral("iPhone15,3");
    QString productVersion = QStringLiteral("17.5");
    bool network = false;
    bool listedTwice = false;

    struct Faults {
        QString lockdownError;     // answered to StartSession
        QString startServiceError; // answered to StartService
        bool deviceNameMissing = false;
        bool productTypeMissing = false;
        bool productVersionMissing = false;
        QHash<QString, PathFault> failPaths; // keyed by normalised device path
        std::optional<uint64_t> dropAfterBytes;
        std::optional<Stall> stall;  // counted in file bytes served per AFC connection
        uint64_t bytesPerSecond = 0; // 0: as fast as the host allows
    } faults;

    // Throws ConfigError.
    static DeviceConfig parse(const QByteArray& json);
};
