#pragma once

#include "Plist.h"
#include "SimulatedDevice.h"
#include "Socket.h"

#include <QString>

#include <cstdint>

// lockdownd of a simulated phone: the pair handshake, device values and starting the media
// service, all without TLS (StartSession and StartService both answer that no TLS is wanted).
// Messages are a big-endian 32-bit length and a plist; replies are XML.
class LockdownService {
public:
    static constexpr uint16_t kPort = 62078;

    LockdownService(Socket& socket, SimulatedDevice& device, const QString& tag);
    // Answers requests until the client closes the connection or the device is unplugged.
    void run();

private:
    // The reply to one request; `note` receives what the verbose log says about it.
    PlistPtr answer(plist_t request, const QString& type, QString& note);
    PlistPtr getValue(plist_t request, const DeviceConfig& config, QString& note) const;

    Socket& m_socket;
    SimulatedDevice& m_device;
    const QString m_tag;
    QString m_sessionId;
};
