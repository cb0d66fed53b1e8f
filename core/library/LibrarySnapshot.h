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

    struct Reading {
        PhotoLibrary library;
        // The copy already in the folder was read: the device's files had not changed.
        bool reusedCopy = false;
    };

    // Reads the device's library through the copy in `folder` (see SnapshotFolder): a copy made
    // from device files of the same sizes and modification times as now, and that passes its
    // integrity check, is read again without fetching; otherwise the files are fetched anew, as
    // fetch() does. A large library's database takes half a minute to copy over USB 2.
    static Reading read(MediaSource& source, const QString& folder, int attempts);

    // Downloads the database files into `folder` (emptied first) and loads the copy. Every
    // failed attempt starts again from scratch; the last attempt's error is thrown.
    // `attempts` must be at least 1.
    static PhotoLibrary fetch(MediaSource& source, const QString& folder, int attempts);

    // Throws SQLiteError when SQLite's quick check of the copy finds damage.
    static void checkIntegrity(const QString& databasePath);

    // Where the app and the command-line tool keep their copy of a device's database.
    static QString cacheFolder(const QString& udid);
};
