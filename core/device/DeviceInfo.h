#pragma once

#include <QHash>
#include <QString>

#include <optional>

// One attached iPhone or iPad, or the reason it cannot be used.
struct DeviceInfo {
    QString udid;
    QString name;
    QString productType;
    QString productVersion;
    std::optional<QString> problem;

    const QString& id() const { return udid; }
    bool isPad() const { return productType.startsWith("iPad"); }
    // "Kitchen iPad (iPad13,1, iOS 17.5)", or "<udid>: <problem>".
    QString summary() const;

    bool operator==(const DeviceInfo&) const = default;
};

inline size_t qHash(const DeviceInfo& info, size_t seed = 0)
{
    return qHashMulti(seed, info.udid, info.name, info.productType, info.productVersion);
}
