#pragma once

#include "library/SQLiteDB.h"

#include <QDateTime>
#include <QHash>
#include <QSet>
#include <QString>

#include <memory>
#include <optional>

// The record of what was backed up into one backup folder, kept in the folder itself.
// Every row is write-once: the first insert for a key wins and later ones are ignored,
// so running a backup again never rewrites history.
class Manifest {
public:
    enum class Status { copied, duplicate, adopted };
    // readOnly: for looking only; nothing is created and nothing is ever written.
    enum class Access { readWrite, readOnly };

    static inline const QString fileName = QStringLiteral(".ombrelo-manifest.sqlite");
    // SQLite's rollback journal beside it: the manifest's name with this added.
    static inline const QString journalSuffix = QStringLiteral("-journal");

    // Whether anything (a link included) is at the manifest's name in `root`.
    static bool exists(const QString& root);
    // Throws BackupFolderError when the manifest or its journal in `root` is a link, a folder, a
    // pipe or anything else but a plain file, before either is opened.
    static void requirePlainFiles(const QString& root);
    static QString rawValue(Status status);

    // Opens the manifest of `root`, creating it when missing (read-only: it must exist). Throws
    // SQLiteError, without writing anything, when the file is not a database or is the database of
    // another program, and BackupFolderError when it or its journal is not a plain file.
    explicit Manifest(const QString& root, Access access = Access::readWrite);

    std::optional<QString> path(const QString& hash, const QString& dest);
    void recordAlbum(const QString& uuid, const QString& path, const QString& title);
    QHash<QString, QString> albumPaths();
    std::optional<QString> stem(const QString& asset, const QString& dest);
    QSet<QString> stems(const QString& dest);
    void reserveStem(const QString& asset, const QString& dest, const QString& stem);
    QSet<QString> backedUpAssets(const QString& destination);
    // backedUpAssets of every folder at once: folder path → asset UUIDs.
    QHash<QString, QSet<QString>> backedUpAssetsByFolder();
    int fileCount();

    // The manifest's date format: ISO 8601 in UTC, whole seconds (2024-05-01T09:30:00Z).
    QString formatDate(const QDateTime& date) const;

    // The open connection, for the engine's own statements.
    SQLiteDB& db() { return *m_db; }

private:
    std::unique_ptr<SQLiteDB> m_db;
};
