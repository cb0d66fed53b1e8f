#include "PhotoLibrary.h"

#include "PhotoLibraryError.h"
#include "SQLiteDB.h"

#include <QRegularExpression>
#include <QSet>

namespace {

const QStringList kRequiredAssetColumns{"Z_PK", "ZUUID", "ZDIRECTORY", "ZFILENAME", "ZDATECREATED"};
const QStringList kOptionalAssetColumns{"ZTRASHEDSTATE", "ZHIDDEN",         "ZKIND",
                                        "ZKINDSUBTYPE",  "ZSAVEDASSETTYPE", "ZBUNDLESCOPE"};
const QStringList kRequiredAlbumColumns{"Z_PK", "ZKIND", "ZTITLE", "ZUUID"};

constexpr int64_t kRegularAlbumKind = 2;
constexpr int64_t kAlbumFolderKind = 4000;

bool tableExists(SQLiteDB& db, const QString& name)
{
    bool found = false;
    db.query("SELECT 1 FROM sqlite_master WHERE type='table' AND name=?", {SQLValue::text(name)},
             [&](const SQLRow&) { found = true; });
    return found;
}

void requireColumns(const QSet<QString>& columns, const QStringList& required, const QString& table)
{
    for (const QString& column : required)
        if (!columns.contains(column))
            throw PhotoLibraryError::unsupportedSchema(table + "." + column + " missing");
}

QString entityText(const QHash<QString, int64_t>& entities, const QString& name)
{
    const auto it = entities.constFind(name);
    return it == entities.cend() ? QStringLiteral("?") : QString::number(*it);
}

// The text a problem note gives for an item: its original name when there is one.
QString nameOf(const LibraryAsset& asset) { return asset.displayName(); }
QString nameOf(const LibraryAlbum& album) { return QString::fromUtf8("\u201c%1\u201d").arg(album.title); }

// A damaged library can give two items (or two albums) the same identifier, which the backup keys
// everything by. The first keeps it; each later one is told apart by its database key, stable
// from one reading to the next, so that both are backed up, and the user is told.
template <typename Item>
void separateSharedIdentifiers(QList<Item>& items, const QString& what, QStringList& problems)
{
    QHash<QString, const Item*> first;
    for (const Item& item : items)
        first.insert(item.uuid, nullptr);
    for (Item& item : items) {
        const Item*& owner = first[item.uuid];
        if (!owner) {
            owner = &item;
            continue;
        }
        const QString separate = item.uuid + '#' + QString::number(item.pk);
        problems << QString::fromUtf8("The Photos library gives %1 %2 and %3 the same identifier %4; both are backed "
                                      "up, the second as %5.")
                        .arg(what, nameOf(*owner), nameOf(item), item.uuid, separate);
        item.uuid = separate;
    }
}

} // namespace

PhotoLibrary PhotoLibrary::load(const QString& databasePath)
{
    // Opened for writing, without create, so that SQLite folds a copied log into the copy.
    SQLiteDB db(databasePath, false, false);
    PhotoLibrary library;

    QHash<QString, int64_t> entities;
    if (!tableExists(db, "Z_PRIMARYKEY"))
        throw PhotoLibraryError::unsupportedSchema("no Z_PRIMARYKEY table");
    db.query("SELECT Z_ENT, Z_NAME FROM Z_PRIMARYKEY", {}, [&](const SQLRow& row) {
        const auto number = row.integer(0);
        const auto name = row.text(1);
        if (number && name)
            entities.insert(*name, *number);
    });

    QString assetTable;
    if (tableExists(db, "ZASSET"))
        assetTable = "ZASSET";
    else if (tableExists(db, "ZGENERICASSET"))
        assetTable = "ZGENERICASSET"; // the table's name before iOS 14
    else
        throw PhotoLibraryError::unsupportedSchema("no ZASSET table");

    const QSet<QString> assetColumns = db.columns(assetTable);
    requireColumns(assetColumns, kRequiredAssetColumns, assetTable);

    QStringList missingOptional;
    for (const QString& column : kOptionalAssetColumns)
        if (!assetColumns.contains(column))
            missingOptional << column;
    if (!missingOptional.isEmpty())
        library.schemaNotes << "Asset columns not present (defaults used): " + missingOptional.join(", ");
    const auto optional = [&](const QString& column, const QString& fallback) {
        return assetColumns.contains(column) ? "a." + column : fallback;
    };

    // The timestamp is set exactly for edited assets in every generation, while the flag column
    // disappeared in later ones; when both exist the timestamp decides.
    QString edited = "0";
    if (assetColumns.contains("ZADJUSTMENTTIMESTAMP"))
        edited = "(a.ZADJUSTMENTTIMESTAMP IS NOT NULL)";
    else if (assetColumns.contains("ZHASADJUSTMENTS"))
        edited = "a.ZHASADJUSTMENTS";

    QString originalName = "NULL";
    QString join;
    const QSet<QString> attributeColumns = db.columns("ZADDITIONALASSETATTRIBUTES");
    if (attributeColumns.contains("ZASSET") && attributeColumns.contains("ZORIGINALFILENAME")) {
        originalName = "x.ZORIGINALFILENAME";
        join = "LEFT JOIN ZADDITIONALASSETATTRIBUTES x ON x.ZASSET = a.Z_PK";
    } else {
        library.schemaNotes << "Original file names unavailable (ZADDITIONALASSETATTRIBUTES.ZORIGINALFILENAME missing)";
    }

    const QString assetQuery =
        "SELECT a.Z_PK, a.ZUUID, a.ZDIRECTORY, a.ZFILENAME, " + originalName + ", a.ZDATECREATED,\n       " +
        optional("ZKIND", "0") + ", " + optional("ZKINDSUBTYPE", "0") + ", " + optional("ZHIDDEN", "0") + ", " +
        optional("ZTRASHEDSTATE", "0") + ",\n       " + optional("ZSAVEDASSETTYPE", "NULL") + ", " +
        optional("ZBUNDLESCOPE", "NULL") + ", " + edited + "\nFROM " + assetTable + " a " + join + "\nORDER BY a.Z_PK";
    db.query(assetQuery, {}, [&](const SQLRow& row) {
        const auto pk = row.integer(0);
        auto uuid = row.text(1);
        auto directory = row.text(2);
        auto filename = row.text(3);
        if (!pk || !uuid || !directory || !filename)
            return;
        LibraryAsset asset;
        asset.pk = *pk;
        asset.uuid = std::move(*uuid);
        asset.directory = std::move(*directory);
        asset.filename = std::move(*filename);
        if (auto name = row.text(4); name && !name->isEmpty())
            asset.originalFilename = std::move(*name);
        asset.dateCreated = row.real(5);
        asset.isVideo = row.integer(6) == 1;
        asset.kindSubtype = row.integer(7).value_or(0);
        asset.isHidden = row.integer(8).value_or(0) != 0;
        asset.isTrashed = row.integer(9).value_or(0) != 0;
        asset.savedAssetType = row.integer(10);
        asset.bundleScope = row.integer(11);
        asset.hasAdjustments = row.integer(12).value_or(0) != 0;
        library.assets.append(std::move(asset));
    });

    const QSet<QString> albumColumns = db.columns("ZGENERICALBUM");
    requireColumns(albumColumns, kRequiredAlbumColumns, "ZGENERICALBUM");
    const QString parent = albumColumns.contains("ZPARENTFOLDER") ? "ZPARENTFOLDER" : "NULL";
    const QString albumTrashed = albumColumns.contains("ZTRASHEDSTATE") ? "ZTRASHEDSTATE" : "0";
    const QString albumQuery = "SELECT Z_PK, ZUUID, ZTITLE, ZKIND, " + parent + ", " + albumTrashed +
                               " FROM ZGENERICALBUM\nWHERE ZKIND IN (" + QString::number(kRegularAlbumKind) + ", " +
                               QString::number(kAlbumFolderKind) + ") ORDER BY Z_PK";
    QSet<int64_t> albumKeys;
    db.query(albumQuery, {}, [&](const SQLRow& row) {
        const auto pk = row.integer(0);
        if (!pk)
            return;
        LibraryAlbum album;
        album.pk = *pk;
        album.uuid = row.text(1).value_or("album-" + QString::number(*pk));
        album.title = row.text(2).value_or("Untitled");
        album.isFolder = row.integer(3) == kAlbumFolderKind;
        album.parentPK = row.integer(4);
        album.isTrashed = row.integer(5).value_or(0) != 0;
        albumKeys.insert(album.pk);
        library.albums.append(std::move(album));
    });

    const JoinTable joinTable = discoverJoinTable(db, entities);
    library.schemaNotes << "Entities: Asset=" + entityText(entities, "Asset") +
                               ", Album=" + entityText(entities, "Album") +
                               ", Folder=" + entityText(entities, "Folder");
    library.schemaNotes << "Album membership table: " + joinTable.table + " (" + joinTable.albumColumn + ", " +
                               joinTable.assetColumn + ")";

    // Shared albums, smart albums and the like share the table with regular albums: only rows of
    // albums that were loaded count.
    db.query("SELECT " + joinTable.albumColumn + ", " + joinTable.assetColumn + " FROM " + joinTable.table, {},
             [&](const SQLRow& row) {
                 const auto album = row.integer(0);
                 const auto asset = row.integer(1);
                 if (!album || !asset || !albumKeys.contains(*album))
                     return;
                 library.membership[*album].append(*asset);
             });
    separateSharedIdentifiers(library.assets, "the items", library.problems);
    separateSharedIdentifiers(library.albums, "the albums", library.problems);
    return library;
}

PhotoLibrary::JoinTable PhotoLibrary::discoverJoinTable(SQLiteDB& db, const QHash<QString, int64_t>& entities)
{
    // The table is named after the Album entity, its asset column after the entity that declares
    // the relationship; both numbers shift between OS releases.
    const auto album = entities.constFind("Album");
    auto asset = entities.constFind("Asset");
    if (asset == entities.cend())
        asset = entities.constFind("GenericAsset");
    if (album != entities.cend() && asset != entities.cend()) {
        const QString number = QString::number(*album);
        JoinTable expected{"Z_" + number + "ASSETS", "Z_" + number + "ALBUMS",
                           "Z_" + QString::number(*asset) + "ASSETS"};
        const QSet<QString> columns = db.columns(expected.table);
        if (columns.contains(expected.albumColumn) && columns.contains(expected.assetColumn))
            return expected;
    }

    // Other relationships also make tables ending in ASSETS (Z_3MEMORIESBEINGCURATEDASSETS,
    // Z_29KEYASSETS): only a table named Z_<n>ASSETS with exactly one album and one asset column fits.
    static const QRegularExpression tableName(QRegularExpression::anchoredPattern(R"(Z_\d+ASSETS)"));
    static const QRegularExpression albumColumn(QRegularExpression::anchoredPattern(R"(Z_\d+ALBUMS)"));
    static const QRegularExpression assetColumn(QRegularExpression::anchoredPattern(R"(Z_\d+ASSETS)"));
    QStringList names;
    db.query("SELECT name FROM sqlite_master WHERE type='table' AND name GLOB 'Z_[0-9]*ASSETS'", {},
             [&](const SQLRow& row) {
                 if (auto name = row.text(0); name && tableName.match(*name).hasMatch())
                     names << *name;
             });
    QList<JoinTable> candidates;
    for (const QString& name : names) {
        QStringList albums;
        QStringList assets;
        for (const QString& column : db.columns(name)) {
            if (albumColumn.match(column).hasMatch())
                albums << column;
            else if (assetColumn.match(column).hasMatch())
                assets << column;
        }
        if (albums.size() == 1 && assets.size() == 1)
            candidates.append({name, albums.first(), assets.first()});
    }
    if (candidates.size() == 1)
        return candidates.first();

    QStringList quoted;
    for (const JoinTable& candidate : candidates)
        quoted << "\"" + candidate.table + "\"";
    throw PhotoLibraryError::unsupportedSchema("could not identify the album membership table (candidates: [" +
                                               quoted.join(", ") + "])");
}
