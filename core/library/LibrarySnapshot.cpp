#include "LibrarySnapshot.h"

#include "DescribedError.h"
#include "SQLiteDB.h"
#include "device/MediaSource.h"
#include "device/MediaSourceError.h"

#include <QDir>
#include <QLoggingCategory>
#include <QStandardPaths>

#include <exception>
#include <stdexcept>

Q_LOGGING_CATEGORY(libraryLog, "ombrelo.library")

namespace {

const QString kDatabaseName = QStringLiteral("Photos.sqlite");

PhotoLibrary fetchOnce(MediaSource& source, const QString& folder)
{
    QDir(folder).removeRecursively();
    if (!QDir().mkpath(folder))
        throw DescribedError(QString("Could not create the folder \u201c%1\u201d for the database copy.").arg(folder));
    for (const QString& name : LibrarySnapshot::deviceFiles()) {
        try {
            source.download("/PhotoData/" + name, QDir(folder).filePath(name));
        } catch (const MediaSourceError& error) {
            // The log and shared-memory files exist only while the database is open on the device.
            if (error.kind() != MediaSourceError::Kind::notFound || name == kDatabaseName)
                throw;
        }
    }
    const QString database = QDir(folder).filePath(kDatabaseName);
    LibrarySnapshot::checkIntegrity(database);
    return PhotoLibrary::load(database);
}

} // namespace

const QStringList& LibrarySnapshot::deviceFiles()
{
    static const QStringList files{kDatabaseName, "Photos.sqlite-wal", "Photos.sqlite-shm"};
    return files;
}

PhotoLibrary LibrarySnapshot::fetch(MediaSource& source, const QString& folder, int attempts)
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
