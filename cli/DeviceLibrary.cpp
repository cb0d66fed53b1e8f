#include "DeviceLibrary.h"

#include "checks/Compatibility.h"
#include "library/LibrarySnapshot.h"

#include <QThread>

DeviceLibrary DeviceLibrary::open(const std::optional<QString>& udid, const Say& say)
{
    DeviceLibrary result;
    result.device = std::make_unique<AFCDevice>(udid);
    const DeviceInfo& info = result.device->info();
    say("Device: " + info.summary());
    const Compatibility::Status compatibility = Compatibility::status(info.productVersion);
    if (!compatibility.isTested())
        say("WARNING " + compatibility.message());
    say("Reading the Photos database...");
    result.library = LibrarySnapshot::fetch(*result.device, LibrarySnapshot::cacheFolder(info.udid), 3);
    return result;
}

DeviceLibrary DeviceLibrary::open(const std::optional<QString>& udid, QTextStream& status)
{
    return open(udid, [&](const QString& line) {
        status << line << "\n";
        status.flush();
    });
}

bool DeviceLibrary::waitForDevice(const std::optional<QString>& udid, const Say& say, const std::function<bool()>& stop)
{
    QString lastReason;
    for (;;) {
        QString reason = "Waiting for an iPhone or iPad to be connected by USB...";
        for (const DeviceInfo& info : AFCDevice::connectedDevices()) {
            if (udid && info.udid != *udid)
                continue;
            if (!info.problem)
                return true;
            reason = "Waiting: " + info.summary();
        }
        if (reason != lastReason) {
            say(reason);
            lastReason = reason;
        }
        // Four seconds between looks, as the app polls, but answer a stop request at once.
        for (int i = 0; i < 40; ++i) {
            if (stop())
                return false;
            QThread::msleep(100);
        }
    }
}
