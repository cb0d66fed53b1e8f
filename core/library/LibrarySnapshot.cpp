#include "LibrarySnapshot.h"

#include "SQLiteDB.h"
#include "SnapshotFolder.h"
#include "device/MediaSource.h"
#include "device/MediaSourceError.h"

#include <QFile>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QStandardPaths>

#include <exception>

Q_LOGGING_CATEGORY(libraryLog, "ombrelo.library")

namespace {

const QString kDatabaseName = QStringLiteral("Photos.sqlite");

// What the device says of its database files now: size and modification time of each, null for
// one that is not there. A copy made when this was the same is a copy of the same database.
QJsonObject deviceFilesNow(MediaSource& source)
{
    QJsonObject files;
    for (const QString& name : LibrarySnapshot::deviceFiles()) {
        const auto info = source.fileInfo("/PhotoData/" + name);
        files.insert(name, info ? QJsonObject{{"size", QString::number(info->size)},
                                              {"modifiedNs", QString::number(info->modifiedNs)}}
                                : QJsonValue());
    }
    return files;
}

PhotoLibrary fetchOnce(MediaSource& source, SnapshotFolder& folder)
{
    folder.clear(LibrarySnapshot::deviceFiles());
    const QJsonObject files = deviceFilesNow(source);
    for (const QString& name : LibrarySnapshot::deviceFiles()) {
        // The log and shared-memory files exist only while the database is open on the device.
        if (files.value(name).isNull() && name != kDatabaseName)
            continue;
        const QString part = folder.partPath(name);
        try {
            source.download("/PhotoData/" + name, part);
        } catch (const MediaSourceError& error) {
            QFile::remove(part);
            if (error.kind() != MediaSourceError::Kind::notFound || name == kDatabaseName)
                throw;
            continue;
        }
        folder.place(part, name);
    }
    const QString database = folder.filePath(kDatabaseName);
    LibrarySnapshot::checkIntegrity(database);
    PhotoLibrary library = PhotoLibrary::load(database);
    // Recorded last: a copy cut short by a failure or a kill has no record, so it is never reused.
    folder.writeRecord(files);
    return library;
}

PhotoLibrary fetchLocked(MediaSource& source, SnapshotFolder& folder, int attempts)
{
    if (attempts < 1)
        qFatal("LibrarySnapshot::fetch: %d attempts; at least one is needed", attempts);
    // The device may be writing its database while it is copied, so a bad copy is tried again,
    // all three files from the start, with no pause.
    for (int attempt = 1;; ++attempt) {
        try {
            return fetchOnce(source, folder);
        } catch (const std::exception& error) {
            if (attempt >= attempts)
                throw;
            qCInfo(libraryLog, "Copying the Photos database failed (attempt %d of %d): %s", attempt, attempts,
                   error.what());
        }
    }
}

} // namespace

const QStringList& LibrarySnapshot::deviceFiles()
{
    static const QStringList files{kDatabaseName, "Photos.sqlite-wal", "Photos.sqlite-shm"};
    return files;
}

LibrarySnapshot::Reading LibrarySnapshot::read(MediaSource& source, const QString& folderPath, int attempts)
{
    SnapshotFolder folder(folderPath);
    if (const auto record = folder.record(); record && *record == deviceFilesNow(source)) {
        try {
            const QString database = folder.filePath(kDatabaseName);
            checkIntegrity(database);
            return {PhotoLibrary::load(database), true};
        } catch (const std::exception& error) {
            qCInfo(libraryLog, "The copy of the Photos database cannot be used again: %s", error.what());
        }
    }
    return {fetchLocked(source, folder, attempts), false};
}

PhotoLibrary LibrarySnapshot::fetch(MediaSource& source, const QString& folderPath, int attempts)
{
    SnapshotFolder folder(folderPath);
    return fetchLocked(source, folder, attempts);
}

void LibrarySnapshot::checkIntegrity(const QString& databasePath)
{
    // Opened for writing so that SQLite brings the copied log into the copy before checking.
    SQLiteDB db(databasePath, false, false);
    QString result;
    db.query("PRAGMA quick_check", {}, [&](const SQLRow& row) { result = row.text(0).value_or(QString()); });
    // A damaged file yields several rows; the last one is reported.
    if (result != "ok")
        throw SQLiteError("copied database failed integrity check: " + result);
}

QString LibrarySnapshot::cacheFolder(const QString& udid)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericCacheLocation) + "/Ombrelo/" + udid;
}
