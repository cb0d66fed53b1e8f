#pragma once

#include "DescribedError.h"

#include <QString>

#include <cstdint>
#include <stdexcept>

// A failure to reach a device or its media service.
class DeviceError : public DescribedError {
public:
    enum class Kind { connectFailed, lockdown, afcService, noDevice };

    static DeviceError connectFailed(const QString& detail) { return {Kind::connectFailed, detail, 0}; }
    static DeviceError lockdown(int32_t code) { return {Kind::lockdown, {}, code}; }
    static DeviceError afcService(const QString& detail) { return {Kind::afcService, detail, 0}; }
    static DeviceError noDevice() { return {Kind::noDevice, {}, 0}; }

    Kind kind() const { return m_kind; }
    const QString& detail() const { return m_detail; }
    int32_t code() const { return m_code; }

    bool operator==(const DeviceError& other) const
    {
        return m_kind == other.m_kind && m_detail == other.m_detail && m_code == other.m_code;
    }

private:
    DeviceError(Kind kind, const QString& detail, int32_t code);

    Kind m_kind;
    QString m_detail;
    int32_t m_code;
};
