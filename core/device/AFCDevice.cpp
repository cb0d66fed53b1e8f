#include "AFCDevice.h"

#include "DeviceError.h"
#include "MediaSourceError.h"
#include "StreamingHasher.h"

#include <QElapsedTimer>
#include <QFile>
#include <QLocale>
#include <QLoggingCategory>

#include <libimobiledevice/afc.h>
#include <libimobiledevice/libimobiledevice.h>
#include <libimobiledevice/lockdown.h>
#include <plist/plist.h>

#include <algorithm>
#include <cstdlib>
#include <stdexcept>

namespace {

// Debug lines are off unless QT_LOGGING_RULES="ombrelo.device.debug=true" asks for them.
Q_LOGGING_CATEGORY(lcDevice, "ombrelo.device", QtInfoMsg)

constexpr char kLabel[] = "ombrelo";
constexpr char kAfcService[] = "com.apple.afc";

struct CFree {
    void operator()(char* text) const { std::free(text); }
};
using CString = std::unique_ptr<char, CFree>;

struct LockdownFree {
    void operator()(lockdownd_client_t client) const { lockdownd_client_free(client); }
};
using LockdownClient = std::unique_ptr<lockdownd_client_private, LockdownFree>;

struct ServiceFree {
    void operator()(lockdownd_service_descriptor_t service) const { lockdownd_service_descriptor_free(service); }
};
using ServiceDescriptor = std::unique_ptr<lockdownd_service_descriptor, ServiceFree>;

struct DeviceListFree {
    void operator()(idevice_info_t* list) const { idevice_device_list_extended_free(list); }
};

struct PlistFree {
    void operator()(void* node) const { plist_free(static_cast<plist_t>(node)); }
};

struct DictionaryFree {
    void operator()(char** dictionary) const { afc_dictionary_free(dictionary); }
};

// How much to ask of the device at a time: as much as arrives in about half a second, up to the
// buffer's size. A slow link then still answers every request within a second or so, so that a
// request with no answer for long means a device that stopped, not a slow cable.
class ReadPacer {
public:
    uint32_t nextRead() const { return m_size; }
    void start() { m_timer.start(); }
    void finish(uint32_t bytes)
    {
        const qint64 ms = std::max<qint64>(1, m_timer.elapsed());
        const uint64_t fits = uint64_t(bytes) * 500 / uint64_t(ms);
        m_size = uint32_t(std::clamp<uint64_t>(fits / kStep * kStep, kStep, kTransferChunkSize));
    }

private:
    static constexpr uint64_t kStep = 16 * 1024;
    uint32_t m_size = 256 * 1024;
    QElapsedTimer m_timer;
};

std::optional<QString> stringValue(lockdownd_client_t client, const char* key)
{
    plist_t node = nullptr;
    if (lockdownd_get_value(client, nullptr, key, &node) != LOCKDOWN_E_SUCCESS || !node)
        return std::nullopt;
    const std::unique_ptr<void, PlistFree> owned(node);
    if (plist_get_node_type(node) != PLIST_STRING)
        return std::nullopt;
    char* raw = nullptr;
    plist_get_string_val(node, &raw);
    const CString text(raw);
    if (!text)
        return std::nullopt;
    return QString::fromUtf8(text.get());
}

std::unique_ptr<idevice_private, void (*)(idevice_t)> openUsbDevice(const char* udid)
{
    idevice_t device = nullptr;
    if (idevice_new_with_options(&device, udid, IDEVICE_LOOKUP_USBMUX) != IDEVICE_E_SUCCESS)
        device = nullptr;
    return {device, [](idevice_t handle) {
                if (handle)
                    idevice_free(handle);
            }};
}

LockdownClient handshake(idevice_t device)
{
    lockdownd_client_t client = nullptr;
    const lockdownd_error_t result = lockdownd_client_new_with_handshake(device, &client, kLabel);
    LockdownClient owned(result == LOCKDOWN_E_SUCCESS ? client : nullptr);
    if (!owned) {
        if (client)
            lockdownd_client_free(client);
        throw DeviceError::lockdown(int32_t(result));
    }
    return owned;
}

} // namespace

void AFCDevice::DeviceFree::operator()(idevice_private* device) const { idevice_free(device); }

void AFCDevice::AfcFree::operator()(afc_client_private* client) const { afc_client_free(client); }

QString AFCDevice::afcError(int code)
{
    // libimobiledevice 1.3 has no text for its AFC errors; these are the ones people meet.
    const QString number = " (AFC error " + QString::number(code) + ")";
    switch (code) {
    case AFC_E_SUCCESS:
        return "the device answered without an answer" + number;
    case AFC_E_READ_ERROR:
        return "the device could not read it" + number;
    case AFC_E_OBJECT_IS_DIR:
        return "it is a folder where a file was expected" + number;
    case AFC_E_PERM_DENIED:
        return "the device does not allow reading this path" + number;
    case AFC_E_OP_TIMEOUT:
        return "the device did not answer in time" + number;
    case AFC_E_SERVICE_NOT_CONNECTED:
    case AFC_E_MUX_ERROR:
        return "the connection to the device was lost" + number;
    default:
        return "the device reported a problem" + number;
    }
}

DeviceInfo AFCDevice::readInfo(const QString& udid, lockdownd_client_t client)
{
    DeviceInfo info;
    info.udid = udid;
    char* rawName = nullptr;
    const lockdownd_error_t named = lockdownd_get_device_name(client, &rawName);
    const CString name(rawName);
    info.name = named == LOCKDOWN_E_SUCCESS && name ? QString::fromUtf8(name.get()) : QStringLiteral("iOS device");
    info.productType = stringValue(client, "ProductType").value_or("?");
    info.productVersion = stringValue(client, "ProductVersion").value_or("?");
    return info;
}

QList<DeviceInfo> AFCDevice::connectedDevices()
{
    idevice_info_t* raw = nullptr;
    int count = 0;
    if (idevice_get_device_list_extended(&raw, &count) != IDEVICE_E_SUCCESS || !raw)
        return {};
    const std::unique_ptr<idevice_info_t, DeviceListFree> list(raw);

    // Network-attached devices are left out; a device listed twice is described once.
    QStringList udids;
    for (int i = 0; i < count; ++i) {
        const idevice_info_t entry = raw[i];
        if (!entry || entry->conn_type != CONNECTION_USBMUXD || !entry->udid)
            continue;
        const QString udid = QString::fromUtf8(entry->udid);
        if (!udids.contains(udid))
            udids << udid;
    }

    QList<DeviceInfo> devices;
    for (const QString& udid : std::as_const(udids)) {
        try {
            const QByteArray udidBytes = udid.toUtf8();
            const auto device = openUsbDevice(udidBytes.constData());
            if (!device)
                throw DeviceError::connectFailed("device " + udid + " not found");
            const LockdownClient client = handshake(device.get());
            devices << readInfo(udid, client.get());
        } catch (const DeviceError& error) {
            qCDebug(lcDevice) << "device" << udid << "is unavailable:" << error.description();
            devices << DeviceInfo{udid, QStringLiteral("Unavailable device"), {}, {}, error.description()};
        }
    }
    return devices;
}

AFCDevice::AFCDevice(const std::optional<QString>& udid)
{
    const QByteArray udidBytes = udid ? udid->toUtf8() : QByteArray();
    auto device = openUsbDevice(udid ? udidBytes.constData() : nullptr);
    if (!device) {
        if (udid)
            throw DeviceError::connectFailed("device " + *udid + " not found");
        throw DeviceError::noDevice();
    }
    const LockdownClient client = handshake(device.get());

    QString actualUdid = udid.value_or(QString());
    if (!udid) {
        char* raw = nullptr;
        const idevice_error_t result = idevice_get_udid(device.get(), &raw);
        const CString text(raw);
        if (result == IDEVICE_E_SUCCESS && text)
            actualUdid = QString::fromUtf8(text.get());
    }

    lockdownd_service_descriptor_t rawService = nullptr;
    const lockdownd_error_t started = lockdownd_start_service(client.get(), kAfcService, &rawService);
    const ServiceDescriptor service(rawService);
    if (started != LOCKDOWN_E_SUCCESS || !service)
        throw DeviceError::lockdown(int32_t(started));

    afc_client_t afc = nullptr;
    int socket = -1;
    {
        // The AFC connection's socket is found as the one it adds; devices open one at a time.
        static std::mutex opening;
        std::lock_guard lock(opening);
        const QSet<int> before = DeviceWatchdog::openSockets();
        const afc_error_t made = afc_client_new(device.get(), service.get(), &afc);
        if (made != AFC_E_SUCCESS || !afc) {
            if (afc)
                afc_client_free(afc);
            throw DeviceError::afcService(afcError(made));
        }
        socket = DeviceWatchdog::newUsbmuxSocket(before);
    }
    if (socket < 0)
        qCWarning(lcDevice, "The device connection was not found: a device that stops answering is not cut short");
    m_watchdog = std::make_unique<DeviceWatchdog>(socket);
    m_device.reset(device.release());
    m_afc.reset(afc);
    // The lockdown session ends here; only the device handle and the AFC client stay open.
    m_info = readInfo(actualUdid, client.get());
}

AFCDevice::~AFCDevice() = default;

// Closes an open AFC file when the transfer ends, however it ends.
class AFCDevice::OpenFile {
public:
    OpenFile(AFCDevice& device, uint64_t handle) : m_device(device), m_handle(handle) {}
    ~OpenFile()
    {
        try {
            m_device.request({}, [&](afc_client_t afc) { return int(afc_file_close(afc, m_handle)); });
        } catch (const MediaSourceError&) {
            // A device that stopped answering has nothing left open.
        }
    }
    OpenFile(const OpenFile&) = delete;
    OpenFile& operator=(const OpenFile&) = delete;

private:
    AFCDevice& m_device;
    uint64_t m_handle;
};

int AFCDevice::request(const QString& path, const std::function<int(afc_client_t)>& call, std::stop_token stop)
{
    std::lock_guard lock(m_lock);
    if (m_watchdog->hasStalled())
        throw MediaSourceError::deviceStopped(path);
    int result = AFC_E_SUCCESS;
    {
        const DeviceWatchdog::Request watched(*m_watchdog, std::move(stop));
        result = call(m_afc.get());
    }
    if (result != AFC_E_SUCCESS && m_watchdog->hasStalled())
        throw MediaSourceError::deviceStopped(path);
    return result;
}

MediaSourceError AFCDevice::failure(const QString& path, int code)
{
    if (code == AFC_E_OBJECT_NOT_FOUND)
        return MediaSourceError::notFound(path);
    if (code == AFC_E_MUX_ERROR || code == AFC_E_SERVICE_NOT_CONNECTED)
        return MediaSourceError::linkLost(path, afcError(code));
    return MediaSourceError::readFailed(path, afcError(code));
}

QStringList AFCDevice::listDirectory(const QString& path)
{
    char** raw = nullptr;
    const QByteArray name = path.toUtf8();
    const int result =
        request(path, [&](afc_client_t afc) { return int(afc_read_directory(afc, name.constData(), &raw)); });
    const std::unique_ptr<char*, DictionaryFree> list(raw);
    if (result != AFC_E_SUCCESS)
        throw failure(path, result);
    // Success without a list is reported as it stands rather than read as an empty folder.
    if (!list)
        throw MediaSourceError::readFailed(path, afcError(AFC_E_SUCCESS));
    QStringList names;
    for (char** entry = list.get(); *entry; ++entry) {
        const QString name = QString::fromUtf8(*entry);
        if (name != "." && name != "..")
            names << name;
    }
    return names;
}

std::optional<DeviceFileInfo> AFCDevice::fileInfo(const QString& path)
{
    char** raw = nullptr;
    const QByteArray name = path.toUtf8();
    const int result =
        request(path, [&](afc_client_t afc) { return int(afc_get_file_info(afc, name.constData(), &raw)); });
    const std::unique_ptr<char*, DictionaryFree> list(raw);
    if (result == AFC_E_OBJECT_NOT_FOUND)
        return std::nullopt;
    if (result != AFC_E_SUCCESS)
        throw failure(path, result);
    if (!list)
        throw MediaSourceError::readFailed(path, afcError(AFC_E_SUCCESS));
    DeviceFileInfo info;
    for (char** entry = list.get(); entry[0] && entry[1]; entry += 2) {
        const QByteArray key(entry[0]);
        if (key == "st_size")
            info.size = QByteArray(entry[1]).toULongLong();
        else if (key == "st_mtime")
            info.modifiedNs = QByteArray(entry[1]).toLongLong();
        else if (key == "st_ifmt")
            info.isDirectory = QByteArray(entry[1]) == "S_IFDIR";
    }
    return info;
}

void AFCDevice::readChunks(const QString& path, const ChunkHandler& body, std::stop_token stop)
{
    // The size comes first: a read the device cuts short looks like the end of the file.
    const auto info = fileInfo(path);
    if (!info)
        throw MediaSourceError::notFound(path);
    const uint64_t size = info->size;
    uint64_t handle = 0;
    const QByteArray name = path.toUtf8();
    const int opened = request(
        path, [&](afc_client_t afc) { return int(afc_file_open(afc, name.constData(), AFC_FOPEN_RDONLY, &handle)); });
    if (opened != AFC_E_SUCCESS)
        throw failure(path, opened);
    const OpenFile file(*this, handle);
    // One buffer for the whole file, however large: memory stays flat for multi-gigabyte videos.
    const auto buffer = std::make_unique_for_overwrite<char[]>(kTransferChunkSize);
    ReadPacer pacer;
    uint64_t received = 0;
    for (;;) {
        uint32_t bytesRead = 0;
        const uint32_t asked = pacer.nextRead();
        pacer.start();
        const int result = request(
            path, [&](afc_client_t afc) { return int(afc_file_read(afc, handle, buffer.get(), asked, &bytesRead)); },
            stop);
        pacer.finish(bytesRead);
        if (result != AFC_E_SUCCESS)
            throw failure(path, result);
        if (bytesRead == 0)
            break;
        received += bytesRead;
        body(buffer.get(), bytesRead, size);
    }
    if (received != size)
        throw MediaSourceError::readFailed(
            path, QStringLiteral("the device sent %1 of its %2 bytes")
                      .arg(QLocale::c().toString(qulonglong(received)), QLocale::c().toString(qulonglong(size))));
}

DownloadResult AFCDevice::download(const QString& path, const QString& destination, const DownloadControl& control)
{
    // An existing file is replaced by an empty one; the caller writes to a temporary name.
    QFile file(destination);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered))
        throw MediaSourceError::readFailed(path, "cannot create " + destination);
    StreamingHasher hasher;
    readChunks(
        path,
        [&](const char* data, size_t length, uint64_t size) {
            if (control.stop.stop_requested())
                throw MediaSourceError::readFailed(path, "the download was stopped");
            hasher.update(data, length);
            // A write cut short (a full disk) reports no error until the rest is written again.
            for (qint64 done = 0; done < qint64(length);) {
                const qint64 written = file.write(data + done, qint64(length) - done);
                if (written <= 0)
                    throw DescribedError("Could not write " + destination + ": " + file.errorString());
                done += written;
            }
            if (control.onProgress)
                control.onProgress(hasher.bytesFed(), size);
        },
        control.stop);
    return hasher.finish();
}

QByteArray AFCDevice::readFile(const QString& path)
{
    QByteArray content;
    readChunks(path, [&](const char* data, size_t length, uint64_t) { content.append(data, qsizetype(length)); });
    return content;
}
