#include "Manifest.h"

#include "BackupFolderError.h"

#include <QDir>
#include <QFileInfo>
#include <QTimeZone>

namespace {

const char* const kOpenStatements[] = {
    "PRAGMA journal_mode=DELETE",
    "PRAGMA synchronous=FULL",
    "CREATE TABLE IF NOT EXISTS meta(key TEXT PRIMARY KEY, value TEXT)",
    "INSERT OR IGNORE INTO meta VALUES('schema_version', '1')",
    "CREATE TABLE IF NOT EXISTS albums(\n    album_uuid TEXT PRIMARY KEY, rel_path TEXT NOT NULL, title TEXT)",
    "CREATE TABLE IF NOT EXISTS placements(\n    asset_uuid TEXT NOT NULL, dest TEXT NOT NULL, stem TEXT NOT NULL,\n"
    "    PRIMARY KEY(asset_uuid, dest))",
    "CREATE TABLE IF NOT EXISTS files(\n    asset_uuid TEXT NOT NULL, dest TEXT NOT NULL, component TEXT NOT NULL,\n"
    "    rel_path TEXT NOT NULL, sha256 TEXT NOT NULL, size INTEGER NOT NULL,\n"
    "    capture_date TEXT, source_path TEXT, status TEXT NOT NULL, backed_up_at TEXT NOT NULL,\n"
    "    PRIMARY KEY(asset_uuid, dest, component))",
    "CREATE INDEX IF NOT EXISTS files_by_hash ON files(dest, sha256)",
};

const QStringList kManifestTables = {"meta", "albums", "placements", "files"};

// The tables of an existing SQLite file that holds tables and none of the manifest's: the database
// of another program, which opening it as a manifest would write into. Empty otherwise, and when
// the file cannot be read (opening it as a manifest then fails at its first statement, writing
// nothing).
QStringList foreignTables(const QString& path)
{
    if (QFileInfo(path).size() == 0)
        return {};
    QStringList tables;
    try {
        SQLiteDB db(path, true, false);
        db.query("SELECT name FROM sqlite_master WHERE type='table' ORDER BY name", {}, [&](const SQLRow& row) {
            if (auto name = row.text(0))
                tables << *name;
        });
    } catch (const SQLiteError&) {
        return {};
    }
    for (const QString& table : std::as_const(tables))
        if (kManifestTables.contains(table))
            return {};
    return tables;
}

} // namespace

bool Manifest::exists(const QString& root)
{
    const QFileInfo file(QDir(root).filePath(fileName));
    return file.exists() || file.isSymLink();
}

void Manifest::requirePlainFiles(const QString& root)
{
    const QString path = QDir(root).filePath(fileName);
    BackupFolderError::requirePlainFile(path);
    BackupFolderError::requirePlainFile(path + journalSuffix);
}

QString Manifest::rawValue(Status status)
{
    switch (status) {
    case Status::copied:
        return QStringLiteral("copied");
    case Status::duplicate:
        return QStringLiteral("duplicate");
    case Status::adopted:
        break;
    }
    return QStringLiteral("adopted");
}

Manifest::Manifest(const QString& root, Access access)
{
    requirePlainFiles(root);
    const QString path = QDir(root).filePath(fileName);
    if (const QStringList tables = foreignTables(path); !tables.isEmpty())
        throw SQLiteError(path + ": the database of another program (tables " + tables.join(", ") +
                          "), not a backup manifest");
    if (access == Access::readOnly) {
        // A journal left by a run that was killed mid-write must be rolled back before the file can
        // be read at all, which a read-only connection cannot do; that is the only write made then.
        const bool journalLeft = QFileInfo::exists(path + journalSuffix);
        m_db = std::make_unique<SQLiteDB>(path, !journalLeft, false);
        return;
    }
    m_db = std::make_unique<SQLiteDB>(path, false, true);
    // The rollback journal and full syncs make every row durable the moment its insert returns.
    for (const char* statement : kOpenStatements)
        m_db->execute(QString::fromUtf8(statement));
}

std::optional<QString> Manifest::path(const QString& hash, const QString& dest)
{
    std::optional<QString> result;
    m_db->query("SELECT rel_path FROM files WHERE dest=? AND sha256=? LIMIT 1", {dest, hash},
                [&](const SQLRow& row) { result = row.text(0); });
    return result;
}

void Manifest::recordAlbum(const QString& uuid, const QString& path, const QString& title)
{
    m_db->execute("INSERT OR IGNORE INTO albums VALUES(?,?,?)", {uuid, path, title});
}

QHash<QString, QString> Manifest::albumPaths()
{
    QHash<QString, QString> paths;
    m_db->query("SELECT album_uuid, rel_path FROM albums", {}, [&](const SQLRow& row) {
        auto uuid = row.text(0);
        auto path = row.text(1);
        if (uuid && path)
            paths.insert(*uuid, *path);
    });
    return paths;
}

std::optional<QString> Manifest::stem(const QString& asset, const QString& dest)
{
    std::optional<QString> result;
    m_db->query("SELECT stem FROM placements WHERE asset_uuid=? AND dest=?", {asset, dest},
                [&](const SQLRow& row) { result = row.text(0); });
    return result;
}

QSet<QString> Manifest::stems(const QString& dest)
{
    QSet<QString> result;
    m_db->query("SELECT stem FROM placements WHERE dest=?", {dest}, [&](const SQLRow& row) {
        if (auto stem = row.text(0))
            result.insert(stem->toLower());
    });
    return result;
}

void Manifest::reserveStem(const QString& asset, const QString& dest, const QString& stem)
{
    m_db->execute("INSERT OR IGNORE INTO placements VALUES(?,?,?)", {asset, dest, stem});
}

QSet<QString> Manifest::backedUpAssets(const QString& destination)
{
    QSet<QString> result;
    m_db->query("SELECT asset_uuid FROM files WHERE dest=? AND component='original'", {destination},
                [&](const SQLRow& row) {
                    if (auto uuid = row.text(0))
                        result.insert(*uuid);
                });
    return result;
}

QHash<QString, QSet<QString>> Manifest::backedUpAssetsByFolder()
{
    QHash<QString, QSet<QString>> result;
    m_db->query("SELECT dest, asset_uuid FROM files WHERE component='original'", {}, [&](const SQLRow& row) {
        result[QString::fromUtf8(row.utf8(0))].insert(QString::fromUtf8(row.utf8(1)));
    });
    return result;
}

int Manifest::fileCount()
{
    int count = 0;
    m_db->query("SELECT count(*) FROM files", {}, [&](const SQLRow& row) { count = int(row.integer(0).value_or(0)); });
    return count;
}

QString Manifest::formatDate(const QDateTime& date) const { return date.toUTC().toString(Qt::ISODate); }
