#include "DeviceLibrary.h"

#include "device/AFCDevice.h"

#include <QThread>

void DeviceLibrary::open(BackupSession& session, const std::optional<QString>& udid, const Say& say)
{
    session.connect(udid);
    say("Device: " + session.device().summary(), false);
    if (const Compatibility::Status compatibility = session.compatibility(); !compatibility.isTested())
        say("WARNING " + compatibility.message(), true);
    say("Reading the Photos database...", false);
    for (const QString& problem : session.readLibrary().problems)
        say("WARNING " + problem, true);
}

void DeviceLibrary::open(BackupSession& session, const std::optional<QString>& udid, QTextStream& status)
{
    open(session, udid, [&](const QString& line, bool) {
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
            say(reason, false);
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
