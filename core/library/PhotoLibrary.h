#pragma once

#include "LibraryAlbum.h"
#include "LibraryAsset.h"

#include <QHash>
#include <QList>
#include <QString>
#include <QStringList>

class SQLiteDB;

// Everything read from one Photos database: assets, albums and folders, album membership,
// and notes on how the database's layout was read.
struct PhotoLibrary {
    // The discovered album–asset membership table.
    struct JoinTable {
        QString table;
        QString albumColumn;
        QString assetColumn;
        bool operator==(const JoinTable&) const = default;
    };

    QList<LibraryAsset> assets;
    QList<LibraryAlbum> albums;
    QHash<int64_t, QList<int64_t>> membership;
    QStringList schemaNotes;
    // Damage found in the library and how the backup works around it, one sentence each.
    QStringList problems;

    bool operator==(const PhotoLibrary&) const = default;

    // Reads a database file (a local copy; opened for writing so its log is folded in).
    // Throws SQLiteError or PhotoLibraryError.
    static PhotoLibrary load(const QString& databasePath);

private:
    static JoinTable discoverJoinTable(SQLiteDB& db, const QHash<QString, int64_t>& entities);
};

using JoinTable = PhotoLibrary::JoinTable;
