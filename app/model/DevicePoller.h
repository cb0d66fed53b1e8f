#pragma once

#include "device/DeviceInfo.h"

#include <QList>
#include <QObject>
#include <QTimer>

#include <chrono>

class QThreadPool;

// Lists the connected devices on a worker thread, at once and then at every interval, one listing
// at a time. When nothing is listed it also asks whether the USB service answers at all, since an
// empty list alone cannot tell "nothing plugged in" from "usbmuxd is not running".
class DevicePoller : public QObject {
    Q_OBJECT
public:
    struct Listing {
        QList<DeviceInfo> devices;
        bool serviceReachable = true;
    };

    DevicePoller(QThreadPool& pool, std::chrono::milliseconds interval, QObject* parent = nullptr);

    void start();
    void stop();
    // Lists now, or as soon as the listing under way is done.
    void listNow();

signals:
    void listed(const DevicePoller::Listing& listing);

private:
    void finish(const Listing& listing);

    QThreadPool& m_pool;
    QTimer m_timer;
    bool m_busy = false;
    bool m_again = false;
};
