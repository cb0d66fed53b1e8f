#include "DeviceError.h"

namespace {

QString lockdownText(int32_t code)
{
    switch (code) {
    case -17:
        return QStringLiteral("The device is locked. Unlock it and try again.");
    case -18:
        return QString::fromUtf8("\u201cDon't Trust\u201d was chosen on the device. Unplug and reconnect to be "
                                 "asked again.");
    case -19:
        return QString::fromUtf8("Tap \u201cTrust\u201d on the device, then try again.");
    // Invalid configuration, pairing failed and invalid host id all mean the same to the user.
    case -2:
    case -4:
    case -21:
        return QString::fromUtf8(
            "This computer is not trusted by the device. Unlock it and tap \u201cTrust\u201d when asked.");
    default:
        return "The device refused the connection (lockdown error " + QString::number(code) + ").";
    }
}

QString describe(DeviceError::Kind kind, const QString& detail, int32_t code)
{
    switch (kind) {
    case DeviceError::Kind::connectFailed:
        return "Could not connect to the device: " + detail;
    case DeviceError::Kind::lockdown:
        return lockdownText(code);
    case DeviceError::Kind::afcService:
        return "Could not open the device's media service: " + detail;
    case DeviceError::Kind::noDevice:
        break;
    }
    return QStringLiteral("No iPhone or iPad is connected by USB.");
}

} // namespace

DeviceError::DeviceError(Kind kind, const QString& detail, int32_t code)
    : DescribedError(describe(kind, detail, code)), m_kind(kind), m_detail(detail), m_code(code)
{
}
