#pragma once

#include "PhotoLibrary.h"

#include <QString>
#include <QStringList>

class MediaSource;

// Copies the device's Photos database into a local folder, checks the copy and reads it.
// Not instantiable: a namespace for the operations on a database copy.
class LibrarySnapshot {
public:
    LibrarySnapshot() = delete;

    // The files that make up the database in the device's /PhotoData folder, in download order.
    static const QStringList& deviceFiles();

    // Downloads the database files into `folder` (emptied first) and loads the copy. Every
    // failed attempt starts again from scratch; the last attempt's error is thrown.
    // `attempts` must be at least 1.
    static PhotoLibrary fetch(MediaSource& source, const QString& folder, int attempts);

    // Throws SQLiteError when SQLite's quick check of the copy finds damage.
    static void checkIntegrity(const QString& databasePath);

    // Where the app and the command-line tool keep their copy of a device's database.
    static QString cacheFolder(const QString& udid);
};
