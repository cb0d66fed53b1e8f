#include "DevicePoller.h"

#include "Background.h"
#include "device/AFCDevice.h"
#include "device/UsbmuxdStatus.h"

DevicePoller::DevicePoller(QThreadPool& pool, std::chrono::milliseconds interval, QObject* parent)
    : QObject(parent), m_pool(pool)
{
    m_timer.setInterval(interval);
    connect(&m_timer, &QTimer::timeout, this, &DevicePoller::listNow);
}

void DevicePoller::start()
{
    m_timer.start();
    listNow();
}

void DevicePoller::stop() { m_timer.stop(); }

void DevicePoller::listNow()
{
    if (m_busy) {
        m_again = true;
        return;
    }
    m_busy = true;
    runInBackground(
        m_pool, this,
        [] {
            Listing listing;
            listing.devices = AFCDevice::connectedDevices();
            if (listing.devices.isEmpty())
                listing.serviceReachable = usbmuxdIsReachable();
            return listing;
        },
        [](DevicePoller& poller, const Listing& listing) { poller.finish(listing); });
}

void DevicePoller::finish(const Listing& listing)
{
    m_busy = false;
    emit listed(listing);
    if (m_again) {
        m_again = false;
        listNow();
    }
}
