#pragma once

#include "DeviceConfig.h"
#include "SimulatedDevice.h"
#include "Socket.h"

#include <QByteArray>
#include <QString>

#include <cstdint>
#include <map>

// The phone's media file service (AFC), serving the device folder's media/ read-only.
// Packets have a 40-byte little-endian header; replies echo the request's packet number.
// File data goes out straight from the page cache, paced by the device's link when the
// device.json asks for a slow link, cut short when it asks for a pulled cable, ended early for a
// file read short, and held back for a phone that freezes.
class AFCService {
public:
    static constexpr uint16_t kPort = 49200;

    AFCService(Socket& socket, SimulatedDevice& device, const QString& tag);
    // Answers requests until the client closes the connection, the device is unplugged or the
    // simulated cable is pulled.
    void run();

private:
    struct OpenFile {
        Socket file;
        QString path;
        uint64_t position = 0;
        PathFault fault;
        bool stalled = false; // the path's stall has happened
    };
    struct Reply {
        bool keepGoing = true;
        QString note;
    };

    Reply handle(uint64_t number, uint64_t operation, const QByteArray& arguments);
    Reply readDirectory(uint64_t number, const QString& path);
    Reply fileInfo(uint64_t number, const QString& path);
    Reply deviceInfo(uint64_t number);
    Reply openFile(uint64_t number, const QByteArray& arguments);
    Reply readFile(uint64_t number, const QByteArray& arguments);
    Reply seekFile(uint64_t number, const QByteArray& arguments);
    // Stops answering, as a frozen phone does; false when the connection ended meanwhile.
    bool stall(const Stall& stall, const QString& what, const QString& source);

    // Sends file bytes straight from the page cache, and the holes of a sparse file as zeros from
    // memory, so a multi-gigabyte sparse video costs neither memory nor cache. False when the
    // client went away.
    bool sendRange(int file, uint64_t offset, uint64_t length, uint64_t bytesPerSecond);
    bool sendStatus(uint64_t number, uint64_t code);
    bool sendValue(uint64_t number, uint64_t operation, uint64_t value);
    bool sendData(uint64_t number, const QByteArray& data);
    PathFault faultFor(const QString& path) const;

    Socket& m_socket;
    SimulatedDevice& m_device;
    const QString m_tag;
    std::map<uint64_t, OpenFile> m_files;
    uint64_t m_nextHandle = 1;
    uint64_t m_servedBytes = 0;
    bool m_stalled = false; // the device's stall has happened on this connection
};
