#include "DeviceConfig.h"

#include "MediaTree.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QSet>

#include <cmath>

namespace {

void rejectUnknownKeys(const QJsonObject& object, const QSet<QString>& known, const QString& prefix)
{
    for (auto it = object.begin(); it != object.end(); ++it)
        if (!known.contains(it.key()))
            throw ConfigError("unknown key \"" + prefix + it.key() + "\".");
}

QString text(const QJsonObject& object, const QString& key, const QString& name, const QString& fallback)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined())
        return fallback;
    if (!value.isString())
        throw ConfigError("\"" + name + "\" must be text.");
    return value.toString();
}

bool flag(const QJsonObject& object, const QString& key, const QString& name)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined())
        return false;
    if (!value.isBool())
        throw ConfigError("\"" + name + "\" must be true or false.");
    return value.toBool();
}

std::optional<uint64_t> count(const QJsonObject& object, const QString& key, const QString& name, uint64_t minimum)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined())
        return std::nullopt;
    const double number = value.toDouble(-1);
    if (!value.isDouble() || number < double(minimum) || number != std::floor(number) || number > 9.0e15)
        throw ConfigError("\"" + name + "\" must be a whole number of at least " + QString::number(minimum) + ".");
    return uint64_t(number);
}

double seconds(const QJsonObject& object, const QString& key, const QString& name)
{
    const QJsonValue value = object.value(key);
    if (value.isUndefined())
        return 0;
    if (!value.isDouble() || value.toDouble() < 0 || value.toDouble() > 1.0e6)
        throw ConfigError("\"" + name + "\" must be a number of seconds from 0 to 1000000.");
    return value.toDouble();
}

// "stallAfterBytes" and "stallSeconds" of a faults object or of a path's object.
std::optional<Stall> stall(const QJsonObject& object, const QString& prefix)
{
    const std::optional<uint64_t> after = count(object, "stallAfterBytes", prefix + "stallAfterBytes", 0);
    if (!after) {
        if (object.contains("stallSeconds"))
            throw ConfigError("\"" + prefix + "stallSeconds\" needs \"" + prefix + "stallAfterBytes\".");
        return std::nullopt;
    }
    return Stall{*after, seconds(object, "stallSeconds", prefix + "stallSeconds")};
}

int afcError(const QJsonObject& object, const QString& key, const QString& name)
{
    const std::optional<uint64_t> value = count(object, key, name, 1);
    if (value && *value > 0xFFFF)
        throw ConfigError("\"" + name + "\" must be an AFC error number.");
    return int(value.value_or(0));
}

PathFault pathFault(const QJsonValue& value, const QString& name)
{
    if (!value.isObject())
        throw ConfigError("\"" + name + "\" must be an object such as {\"open\": 10}.");
    const QJsonObject object = value.toObject();
    rejectUnknownKeys(
        object,
        {"open", "read", "list", "readAfterBytes", "emptyListing", "endAfterBytes", "stallAfterBytes", "stallSeconds"},
        name + ".");
    PathFault fault;
    fault.open = afcError(object, "open", name + ".open");
    fault.read = afcError(object, "read", name + ".read");
    fault.list = afcError(object, "list", name + ".list");
    fault.readAfterBytes = count(object, "readAfterBytes", name + ".readAfterBytes", 0).value_or(0);
    fault.emptyListing = flag(object, "emptyListing", name + ".emptyListing");
    fault.endAfterBytes = count(object, "endAfterBytes", name + ".endAfterBytes", 0);
    fault.stall = stall(object, name + ".");
    return fault;
}

DeviceConfig::Faults parseFaults(const QJsonValue& value)
{
    DeviceConfig::Faults faults;
    if (value.isUndefined())
        return faults;
    if (!value.isObject())
        throw ConfigError("\"faults\" must be an object.");
    const QJsonObject object = value.toObject();
    rejectUnknownKeys(object,
                      {"lockdownError", "startServiceError", "deviceNameMissing", "productTypeMissing",
                       "productVersionMissing", "failPaths", "dropAfterBytes", "stallAfterBytes", "stallSeconds",
                       "bytesPerSecond"},
                      "faults.");
    faults.lockdownError = text(object, "lockdownError", "faults.lockdownError", {});
    faults.startServiceError = text(object, "startServiceError", "faults.startServiceError", {});
    faults.deviceNameMissing = flag(object, "deviceNameMissing", "faults.deviceNameMissing");
    faults.productTypeMissing = flag(object, "productTypeMissing", "faults.productTypeMissing");
    faults.productVersionMissing = flag(object, "productVersionMissing", "faults.productVersionMissing");
    faults.dropAfterBytes = count(object, "dropAfterBytes", "faults.dropAfterBytes", 0);
    faults.stall = stall(object, "faults.");
    faults.bytesPerSecond = count(object, "bytesPerSecond", "faults.bytesPerSecond", 1).value_or(0);

    const QJsonValue paths = object.value("failPaths");
    if (!paths.isUndefined()) {
        if (!paths.isObject())
            throw ConfigError("\"faults.failPaths\" must be an object of device paths.");
        const QJsonObject pathObject = paths.toObject();
        for (auto it = pathObject.begin(); it != pathObject.end(); ++it) {
            const QString name = "faults.failPaths." + it.key();
            const std::optional<QString> path = MediaTree::normalize(it.key());
            if (!path || !it.key().startsWith('/'))
                throw ConfigError("\"" + name + "\" must be an absolute device path.");
            faults.failPaths.insert(*path, pathFault(it.value(), name));
        }
    }
    return faults;
}

} // namespace

DeviceConfig DeviceConfig::parse(const QByteArray& json)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(json, &error);
    if (error.error != QJsonParseError::NoError)
        throw ConfigError("not valid JSON: " + error.errorString() + " at offset " + QString::number(error.offset) +
                          ".");
    if (!document.isObject())
        throw ConfigError(QStringLiteral("the file must hold a JSON object."));
    const QJsonObject object = document.object();
    rejectUnknownKeys(object, {"udid", "name", "productType", "productVersion", "connection", "listedTwice", "faults"},
                      {});

    DeviceConfig config;
    config.udid = text(object, "udid", "udid", {});
    if (config.udid.isEmpty())
        throw ConfigError(QStringLiteral("\"udid\" is missing."));
    // libusbmuxd rewrites other shapes (it inserts a dash into 24-digit ones), so only the two
    // shapes real devices have are accepted.
    static const QRegularExpression udidShape("^([0-9a-fA-F]{40}|[0-9a-fA-F]{8}-[0-9a-fA-F]{16})$");
    if (!udidShape.match(config.udid).hasMatch())
        throw ConfigError("\"udid\" must be 40 hexadecimal digits, or 8 and 16 joined by "
                          "\"-\"; \"" +
                          config.udid + "\" is neither.");
    config.name = text(object, "name", "name", config.name);
    config.productType = text(object, "productType", "productType", config.productType);
    config.productVersion = text(object, "productVersion", "productVersion", config.productVersion);
    const QString connection = text(object, "connection", "connection", "USB");
    if (connection != "USB" && connection != "Network")
        throw ConfigError("\"connection\" must be \"USB\" or \"Network\", not \"" + connection + "\".");
    config.network = connection == "Network";
    config.listedTwice = flag(object, "listedTwice", "listedTwice");
    config.faults = parseFaults(object.value("faults"));
    return config;
}
