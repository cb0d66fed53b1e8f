#include "PhoneBackup.h"

#include "backup/Manifest.h"
#include "library/SQLiteDB.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

#include <cstdio>
#include <stdexcept>

namespace {

// Seconds from the Unix epoch to 2001-01-01, the phone's epoch.
constexpr qint64 kPhoneEpoch = 978307200;

std::optional<QString> optionalText(const QJsonValue& value)
{
    return value.isString() ? std::optional(value.toString()) : std::nullopt;
}

QJsonObject readJson(const QString& path)
{
    QJsonParseError error;
    const QJsonDocument document = QJsonDocument::fromJson(readFile(path), &error);
    if (!document.isObject())
        throw std::runtime_error((path + ": " + error.errorString()).toStdString());
    return document.object();
}

} // namespace

QString PhoneAnswerKey::Asset::displayName() const
{
    return originalFilename && !originalFilename->isEmpty() ? *originalFilename : filename;
}

std::optional<QDateTime> PhoneAnswerKey::Asset::captureDate() const
{
    if (!dateCreated)
        return std::nullopt;
    return QDateTime::fromMSecsSinceEpoch(qint64((*dateCreated + kPhoneEpoch) * 1000.0), Qt::UTC);
}

PhoneAnswerKey PhoneAnswerKey::read(const QString& path)
{
    const QJsonObject root = readJson(path);
    PhoneAnswerKey key;
    key.generation = root["generation"].toString();
    for (const QJsonValue& value : root["assets"].toArray()) {
        Asset asset;
        asset.pk = value["pk"].toInteger();
        asset.uuid = value["uuid"].toString();
        asset.directory = value["directory"].toString();
        asset.filename = value["filename"].toString();
        asset.originalFilename = optionalText(value["originalFilename"]);
        if (value["dateCreated"].isDouble())
            asset.dateCreated = value["dateCreated"].toDouble();
        asset.isVideo = value["isVideo"].toBool();
        asset.isLivePhoto = value["isLivePhoto"].toBool();
        asset.isHidden = value["isHidden"].toBool();
        asset.isTrashed = value["isTrashed"].toBool();
        asset.hasAdjustments = value["hasAdjustments"].toBool();
        if (value["savedAssetType"].isDouble())
            asset.savedAssetType = value["savedAssetType"].toInteger();
        if (value["bundleScope"].isDouble())
            asset.bundleScope = value["bundleScope"].toInteger();
        asset.category = value["category"].toString();
        for (const QJsonValue& album : value["albums"].toArray())
            asset.albums << album.toString();
        for (const QJsonValue& file : value["files"].toArray())
            asset.files.append({file["component"].toString(), file["path"].toString(), file["sha256"].toString(),
                                file["size"].isDouble() ? file["size"].toInteger() : -1});
        key.assets.append(asset);
    }
    for (const QJsonValue& value : root["albums"].toArray())
        key.albums.append({value["pk"].toInteger(), value["uuid"].toString(), optionalText(value["title"]),
                           value["isFolder"].toBool(), value["isTrashed"].toBool(), value["kind"].toInteger(),
                           value["parentUUID"].toString()});
    for (const QJsonValue& value : root["unknownFiles"].toArray())
        key.unknownFiles << value.toString();
    return key;
}

const PhoneAnswerKey::Album* PhoneAnswerKey::album(const QString& uuid) const
{
    for (const Album& album : albums)
        if (album.uuid == uuid)
            return &album;
    return nullptr;
}

ProgramResult makePhone(const QString& folder, const QStringList& options)
{
    return runProgram(OMBRELO_BIN_DIR "/ombrelo-mkdevice", QStringList{folder} + options, 120);
}

PhoneBackup::PhoneBackup(const QStringList& mkdeviceOptions) : m_deviceFolder(m_dir.filePath("phone"))
{
    const QString keyPath = m_dir.filePath("answer-key.json");
    const ProgramResult made = makePhone(m_deviceFolder, mkdeviceOptions + QStringList{"--answer-key", keyPath});
    if (made.exitCode != 0)
        throw std::runtime_error(("ombrelo-mkdevice failed: " + made.describe()).toStdString());
    m_key = PhoneAnswerKey::read(keyPath);
    m_simulator = std::make_unique<DeviceSimulator>(QStringList{m_deviceFolder});
}

PhoneBackup::PhoneBackup(Folder deviceFolder) : m_deviceFolder(deviceFolder.path)
{
    m_simulator = std::make_unique<DeviceSimulator>(QStringList{m_deviceFolder});
}

QString PhoneBackup::udid() const { return readJson(m_deviceFolder + "/device.json")["udid"].toString(); }

void PhoneBackup::setFaults(const QJsonObject& faults) { setDeviceFaults(m_deviceFolder, faults); }

void setDeviceFaults(const QString& deviceFolder, const QJsonObject& faults)
{
    const QString path = deviceFolder + "/device.json";
    QJsonObject device = readJson(path);
    if (faults.isEmpty())
        device.remove("faults");
    else
        device["faults"] = faults;
    // Written aside and renamed, so the simulator never reads half a file.
    writeFile(path + ".new", QJsonDocument(device).toJson());
    if (::rename(QFile::encodeName(path + ".new").constData(), QFile::encodeName(path).constData()) != 0)
        throw std::runtime_error(("cannot replace " + path).toStdString());
}

QProcessEnvironment PhoneBackup::environment() const
{
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("USBMUXD_SOCKET_ADDRESS", m_simulator->socketAddress());
    // The phone's database is fetched into the cache folder: keep it out of the user's.
    environment.insert("XDG_CACHE_HOME", m_dir.filePath("cache"));
    return environment;
}

QString PhoneBackup::cliPath() { return QStringLiteral(OMBRELO_BIN_DIR "/ombrelo-cli"); }

ProgramResult PhoneBackup::cli(const QStringList& arguments, int timeoutSeconds) const
{
    return runProgram(cliPath(), arguments, timeoutSeconds, environment());
}

void PrintTo(const ManifestRow& row, std::ostream* os)
{
    *os << "{" << row.assetUUID.toStdString() << ", " << row.dest.toStdString() << ", " << row.component.toStdString()
        << ", " << row.relPath.toStdString() << ", " << row.sha256.left(12).toStdString() << "…, " << row.size << ", "
        << row.captureDate.value_or("null").toStdString() << ", " << row.sourcePath.toStdString() << ", "
        << row.status.toStdString() << "}";
}

ManifestRows readManifestRows(const QString& root)
{
    SQLiteDB db(QDir(root).filePath(Manifest::fileName), true, false);
    ManifestRows rows;
    db.query("SELECT asset_uuid, dest, component, rel_path, sha256, size, capture_date, source_path, status "
             "FROM files ORDER BY asset_uuid, dest, component",
             {}, [&](const SQLRow& row) {
                 rows.append({row.text(0).value_or(""), row.text(1).value_or(""), row.text(2).value_or(""),
                              row.text(3).value_or(""), row.text(4).value_or(""), row.integer(5).value_or(-1),
                              row.text(6), row.text(7).value_or(""), row.text(8).value_or("")});
             });
    return rows;
}
