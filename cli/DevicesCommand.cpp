#include "DevicesCommand.h"

#include "device/AFCDevice.h"
#include "device/UsbmuxdStatus.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

void DevicesCommand::configure(QCommandLineParser& parser) const
{
    parser.addOption({"json", "Print a JSON list of the devices' fields instead of one line per device."});
}

int DevicesCommand::run(const QCommandLineParser& parser, CommandContext& context)
{
    const QList<DeviceInfo> devices = AFCDevice::connectedDevices();
    if (parser.isSet("json")) {
        QJsonArray list;
        for (const DeviceInfo& device : devices)
            list.append(QJsonObject{{"udid", device.udid},
                                    {"name", device.name},
                                    {"productType", device.productType},
                                    {"productVersion", device.productVersion},
                                    {"problem", device.problem ? QJsonValue(*device.problem) : QJsonValue()}});
        context.out << QJsonDocument(list).toJson(QJsonDocument::Indented);
        return ExitCode::ok;
    }
    if (devices.isEmpty()) {
        context.out << "No iPhone or iPad is connected by USB.\n";
        if (!usbmuxdIsReachable())
            context.err << "The USB service usbmuxd isn't running. Install the usbmuxd package, then plug the "
                           "device in again.\n";
        return ExitCode::ok;
    }
    for (const DeviceInfo& device : devices)
        context.out << device.summary() << "\n";
    return ExitCode::ok;
}
