#pragma once

#include "DeviceSimulator.h"
#include "QtPrinters.h"
#include "RunProgram.h"
#include "TempDir.h"

#include <QDateTime>
#include <QJsonObject>
#include <QList>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <memory>
#include <optional>
#include <ostream>

// What a phone made by ombrelo-mkdevice holds, read from its --answer-key file: the truth that
// end-to-end tests hold a backup against.
struct PhoneAnswerKey {
    struct File {
        QString component; // "original", "live-video", "aae", "edited", …, "adjustments"
        QString path;      // on the device: "/DCIM/100APPLE/IMG_0001.HEIC"
        QString sha256;    // empty when the files were not written
        qint64 size = -1;
    };
    struct Asset {
        qint64 pk = 0;
        QString uuid;
        QString directory; // "DCIM/100APPLE"
        QString filename;
        std::optional<QString> originalFilename;
        std::optional<double> dateCreated; // seconds since 2001-01-01
        bool isVideo = false;
        bool isLivePhoto = false;
        bool isHidden = false;
        bool isTrashed = false;
        bool hasAdjustments = false;
        std::optional<qint64> savedAssetType;
        std::optional<qint64> bundleScope;
        // "library" (backed up), "trashed", "sharedWithYou", "sharedAlbum", "otherLibrary" or
        // "iCloudOnly" (eligible, but its files are not on the phone).
        QString category;
        QStringList albums; // album uuids
        QList<File> files;  // its components, original first

        // The name the backup shows and names files after: the original name when there is one.
        QString displayName() const;
        // The capture date the backed-up files must carry; none without a date.
        std::optional<QDateTime> captureDate() const;
    };
    struct Album {
        qint64 pk = 0;
        QString uuid;
        std::optional<QString> title;
        bool isFolder = false;
        bool isTrashed = false;
        qint64 kind = 0; // 2 a user album, 4000 a folder, others built in
        QString parentUUID;
    };

    QString generation;
    QList<Asset> assets;
    QList<Album> albums;
    QStringList unknownFiles; // media files the library does not know

    static PhoneAnswerKey read(const QString& path);
    const Album* album(const QString& uuid) const;
};

// Runs ombrelo-mkdevice to write a phone into `folder` with these options.
ProgramResult makePhone(const QString& folder, const QStringList& options);
// Replaces the "faults" of a device folder's device.json (an empty object removes them); a
// simulator serving it applies them from its next device listing.
void setDeviceFaults(const QString& deviceFolder, const QJsonObject& faults);

// A simulated phone served by its own ombrelo-devicesim, and ombrelo-cli run against it as a
// user runs it: a separate process with the phone's usbmuxd socket and a cache folder of its own.
//
//   PhoneBackup phone({"--generation", "ios17", "--assets", "40"});
//   ProgramResult run = phone.cli({"backup", dest, "--all", "--yes"});
class PhoneBackup {
public:
    // Makes a phone with ombrelo-mkdevice (these options, plus --answer-key) and serves it.
    // Throws std::runtime_error with mkdevice's or the simulator's output when that fails.
    explicit PhoneBackup(const QStringList& mkdeviceOptions);
    // Serves a device folder written otherwise (writeDeviceFolder); answerKey() is then empty.
    struct Folder {
        QString path;
    };
    explicit PhoneBackup(Folder deviceFolder);

    const PhoneAnswerKey& answerKey() const { return m_key; }
    QString deviceFolder() const { return m_deviceFolder; }
    QString udid() const;
    DeviceSimulator& simulator() { return *m_simulator; }

    // Replaces the "faults" of the phone's device.json (an empty object removes them); the
    // simulator applies it from its next device listing, so from the next ombrelo-cli run.
    void setFaults(const QJsonObject& faults);

    // The environment ombrelo-cli runs in, for tests that start it themselves.
    QProcessEnvironment environment() const;
    static QString cliPath();
    // Runs ombrelo-cli to its end, killed after `timeoutSeconds` (exit code -1 then).
    ProgramResult cli(const QStringList& arguments, int timeoutSeconds = 120) const;

private:
    TempDir m_dir;
    QString m_deviceFolder;
    PhoneAnswerKey m_key;
    std::unique_ptr<DeviceSimulator> m_simulator;
};

// One row of a backup folder's manifest "files" table, without its time of recording.
struct ManifestRow {
    QString assetUUID;
    QString dest;
    QString component;
    QString relPath;
    QString sha256;
    qint64 size = 0;
    std::optional<QString> captureDate;
    QString sourcePath;
    QString status; // "copied", "adopted" or "duplicate"
    bool operator==(const ManifestRow&) const = default;
};
void PrintTo(const ManifestRow& row, std::ostream* os);

using ManifestRows = QList<ManifestRow>;
// The "files" rows of the manifest in `root`, ordered by (asset, folder, component).
// Throws SQLiteError when there is no readable manifest.
ManifestRows readManifestRows(const QString& root);
