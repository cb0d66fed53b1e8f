#include "LockdownService.h"

#include "AFCService.h"
#include "Log.h"

#include <QUuid>
#include <QtEndian>

namespace {

constexpr uint32_t kMaxMessage = 1024 * 1024;

PlistPtr reply(const QString& type)
{
    PlistPtr dict = Plist::dict();
    Plist::setString(dict.get(), "Request", type);
    return dict;
}

PlistPtr failure(const QString& type, const QString& error, QString& note)
{
    PlistPtr dict = reply(type);
    // An Error without a Result is how lockdownd reports a named failure; clients map the name to a code.
    Plist::setString(dict.get(), "Error", error);
    note = "Error " + error;
    return dict;
}

} // namespace

LockdownService::LockdownService(Socket& socket, SimulatedDevice& device, const QString& tag)
    : m_socket(socket), m_device(device), m_tag(tag)
{
}

void LockdownService::run()
{
    for (;;) {
        uint32_t length = 0;
        if (!m_socket.readExact(&length, sizeof length))
            return;
        length = qFromBigEndian(length);
        if (length == 0 || length > kMaxMessage) {
            Log::line(m_tag + " lockdown: a message of " + QString::number(length) + " bytes; closing.");
            return;
        }
        QByteArray body(qsizetype(length), Qt::Uninitialized);
        if (!m_socket.readExact(body.data(), length))
            return;
        PlistPtr request = Plist::parse(body);
        const QString type = Plist::string(request.get(), "Request").value_or(QString());
        if (type.isEmpty()) {
            Log::line(m_tag + " lockdown: a message without a request; closing.");
            return;
        }
        QString note = "OK";
        PlistPtr answered = answer(request.get(), type, note);
        Log::request(m_tag + " lockdown " + type + ": " + note);
        const QByteArray xml = Plist::toXml(answered.get());
        const uint32_t size = qToBigEndian(uint32_t(xml.size()));
        if (!m_socket.writeAll(&size, sizeof size, xml.constData(), size_t(xml.size())))
            return;
        if (type == "Goodbye")
            return;
    }
}

PlistPtr LockdownService::answer(plist_t request, const QString& type, QString& note)
{
    const std::shared_ptr<const DeviceConfig> config = m_device.config();
    if (type == "QueryType") {
        PlistPtr dict = reply(type);
        Plist::setString(dict.get(), "Type", "com.apple.mobile.lockdown");
        return dict;
    }
    if (type == "GetValue")
        return getValue(request, *config, note);
    if (type == "StartSession") {
        if (!config->faults.lockdownError.isEmpty())
            return failure(type, config->faults.lockdownError, note);
        if (!Plist::string(request, "HostID"))
            return failure(type, "MissingHostID", note);
        m_sessionId = QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
        PlistPtr dict = reply(type);
        Plist::setString(dict.get(), "SessionID", m_sessionId);
        Plist::setBool(dict.get(), "EnableSessionSSL", false);
        note = "session " + m_sessionId;
        return dict;
    }
    if (type == "StopSession") {
        m_sessionId.clear();
        PlistPtr dict = reply(type);
        Plist::setString(dict.get(), "Result", "Success");
        return dict;
    }
    if (type == "StartService") {
        const QString service = Plist::string(request, "Service").value_or(QString());
        if (!config->faults.startServiceError.isEmpty())
            return failure(type, config->faults.startServiceError, note);
        if (m_sessionId.isEmpty())
            return failure(type, "SessionInactive", note);
        if (service != "com.apple.afc")
            return failure(type, "InvalidService", note);
        PlistPtr dict = reply(type);
        Plist::setString(dict.get(), "Service", service);
        Plist::setUnsigned(dict.get(), "Port", AFCService::kPort);
        Plist::setBool(dict.get(), "EnableServiceSSL", false);
        note = service + " on port " + QString::number(AFCService::kPort);
        return dict;
    }
    if (type == "ValidatePair" || type == "Pair" || type == "Goodbye") {
        PlistPtr dict = reply(type);
        Plist::setString(dict.get(), "Result", "Success");
        return dict;
    }
    if (type == "SetValue")
        return failure(type, "SetProhibited", note);
    if (type == "RemoveValue")
        return failure(type, "RemoveProhibited", note);
    return failure(type, "InvalidRequest", note);
}

PlistPtr LockdownService::getValue(plist_t request, const DeviceConfig& config, QString& note) const
{
    const QString type = QStringLiteral("GetValue");
    const std::optional<QString> domain = Plist::string(request, "Domain");
    const std::optional<QString> key = Plist::string(request, "Key");

    // The values a phone tells before any session, minus those a fault hides.
    PlistPtr values = Plist::dict();
    if (!config.faults.deviceNameMissing)
        Plist::setString(values.get(), "DeviceName", config.name);
    Plist::setString(values.get(), "DeviceClass", config.productType.startsWith("iPad") ? "iPad" : "iPhone");
    Plist::setString(values.get(), "ProductName", "iPhone OS");
    if (!config.faults.productTypeMissing)
        Plist::setString(values.get(), "ProductType", config.productType);
    if (!config.faults.productVersionMissing)
        Plist::setString(values.get(), "ProductVersion", config.productVersion);
    Plist::setString(values.get(), "UniqueDeviceID", config.udid);
    Plist::setString(values.get(), "SerialNumber", config.udid.right(12).toUpper());
    Plist::setString(values.get(), "CPUArchitecture", "arm64");

    PlistPtr dict = reply(type);
    if (domain && !domain->isEmpty()) {
        if (key)
            Plist::setString(dict.get(), "Key", *key);
        Plist::setString(dict.get(), "Domain", *domain);
        Plist::setString(dict.get(), "Error", "MissingValue");
        note = *domain + ": Error MissingValue";
        return dict;
    }
    if (!key) {
        Plist::setNode(dict.get(), "Value", std::move(values));
        note = "all values";
        return dict;
    }
    Plist::setString(dict.get(), "Key", *key);
    plist_t value = plist_dict_get_item(values.get(), key->toUtf8().constData());
    if (!value) {
        Plist::setString(dict.get(), "Error", "MissingValue");
        note = *key + ": Error MissingValue";
        return dict;
    }
    plist_dict_set_item(dict.get(), "Value", plist_copy(value));
    note = *key + " = " + Plist::string(dict.get(), "Value").value_or(QString());
    return dict;
}
