#include "PhotosDatabases.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <stdexcept>

namespace {

SQLValue optionalText(const std::optional<QString>& value) { return value ? SQLValue::text(*value) : SQLValue::null(); }

} // namespace

QString corpusFolder() { return QStringLiteral(OMBRELO_CORPUS_DIR); }

bool corpusAvailable() { return QFileInfo(corpusFolder()).isDir(); }

std::string corpusMissing()
{
    return ("Skipped: this test reads the real Photos databases, and there are none at \u201c" + corpusFolder() +
            "\u201d. Point the build at them with cmake -DOMBRELO_CORPUS_DIR=<folder of the photos-db corpus>.")
        .toStdString();
}

QStringList corpusDatabaseNames() { return QDir(corpusFolder()).entryList({"osxphotos-*"}, QDir::Dirs, QDir::Name); }

QString copyPhotosDatabase(const QString& from, const QString& to, const QStringList& names)
{
    QDir().mkpath(to);
    for (const QString& name : names) {
        if (!QFileInfo::exists(from + "/" + name))
            continue;
        QFile::remove(to + "/" + name);
        if (!QFile::copy(from + "/" + name, to + "/" + name))
            throw std::runtime_error(("cannot copy " + from + "/" + name).toStdString());
        QFile::setPermissions(to + "/" + name, QFile::ReadOwner | QFile::WriteOwner);
    }
    return to + "/Photos.sqlite";
}

QString copyCorpusDatabase(const QString& name, const QString& folder)
{
    return copyPhotosDatabase(corpusFolder() + "/" + name, folder);
}

std::unique_ptr<SQLiteDB> createPhotosDatabase(const QString& path)
{
    auto db = std::make_unique<SQLiteDB>(path, false, true);
    db->execute("CREATE TABLE Z_PRIMARYKEY (Z_ENT INTEGER PRIMARY KEY, Z_NAME VARCHAR, Z_SUPER INTEGER, "
                "Z_MAX INTEGER)");
    db->execute("INSERT INTO Z_PRIMARYKEY VALUES (1, 'AdditionalAssetAttributes', 0, 0), (3, 'Asset', 0, 0), "
                "(27, 'GenericAlbum', 0, 0), (28, 'Album', 27, 0), (36, 'Folder', 27, 0)");
    db->execute("CREATE TABLE ZASSET (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, ZUUID VARCHAR, "
                "ZDIRECTORY VARCHAR, ZFILENAME VARCHAR, ZDATECREATED TIMESTAMP, ZTRASHEDSTATE INTEGER, "
                "ZHIDDEN INTEGER, ZKIND INTEGER, ZKINDSUBTYPE INTEGER, ZSAVEDASSETTYPE INTEGER, "
                "ZBUNDLESCOPE INTEGER, ZADJUSTMENTTIMESTAMP TIMESTAMP, ZHASADJUSTMENTS INTEGER)");
    db->execute("CREATE TABLE ZADDITIONALASSETATTRIBUTES (Z_PK INTEGER PRIMARY KEY, ZASSET INTEGER, "
                "ZORIGINALFILENAME VARCHAR)");
    db->execute("CREATE TABLE ZGENERICALBUM (Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, ZKIND INTEGER, "
                "ZUUID VARCHAR, ZTITLE VARCHAR, ZPARENTFOLDER INTEGER, ZTRASHEDSTATE INTEGER)");
    db->execute("CREATE TABLE Z_28ASSETS (Z_28ALBUMS INTEGER, Z_3ASSETS INTEGER, Z_FOK_3ASSETS INTEGER)");
    return db;
}

void addAsset(SQLiteDB& db, const TestAsset& asset)
{
    db.execute("INSERT INTO ZASSET (Z_PK, Z_ENT, ZUUID, ZDIRECTORY, ZFILENAME, ZDATECREATED, ZTRASHEDSTATE, "
               "ZHIDDEN, ZKIND, ZKINDSUBTYPE, ZSAVEDASSETTYPE, ZBUNDLESCOPE) "
               "VALUES (?, 3, ?, ?, ?, ?, ?, ?, ?, ?, 3, 0)",
               {asset.pk, "asset-" + QString::number(asset.pk), asset.directory, asset.filename,
                asset.dateCreated ? SQLValue::real(*asset.dateCreated) : SQLValue::null(), int(asset.isTrashed),
                int(asset.isHidden), asset.kind, asset.kindSubtype});
    if (asset.originalFilename)
        db.execute("INSERT INTO ZADDITIONALASSETATTRIBUTES (ZASSET, ZORIGINALFILENAME) VALUES (?, ?)",
                   {asset.pk, optionalText(asset.originalFilename)});
}

void addAlbum(SQLiteDB& db, int64_t pk, int64_t kind, const QString& title, std::optional<int64_t> parent)
{
    db.execute(
        "INSERT INTO ZGENERICALBUM (Z_PK, ZKIND, ZUUID, ZTITLE, ZPARENTFOLDER, ZTRASHEDSTATE) "
        "VALUES (?, ?, ?, ?, ?, 0)",
        {pk, kind, "album-uuid-" + QString::number(pk), title, parent ? SQLValue::integer(*parent) : SQLValue::null()});
}

void addMember(SQLiteDB& db, int64_t albumPK, int64_t assetPK)
{
    db.execute("INSERT INTO Z_28ASSETS (Z_28ALBUMS, Z_3ASSETS) VALUES (?, ?)", {albumPK, assetPK});
}

void damageBtree(const QString& databasePath, const QString& name)
{
    int64_t rootPage = 0;
    int64_t pageSize = 0;
    {
        SQLiteDB db(databasePath, true, false);
        db.query("SELECT rootpage FROM sqlite_master WHERE name=?", {name},
                 [&](const SQLRow& row) { rootPage = row.integer(0).value_or(0); });
        db.query("PRAGMA page_size", {}, [&](const SQLRow& row) { pageSize = row.integer(0).value_or(0); });
    }
    if (rootPage < 2 || pageSize <= 0)
        throw std::runtime_error(("no table or index " + name).toStdString());
    QFile file(databasePath);
    if (!file.open(QIODevice::ReadWrite) || !file.seek((rootPage - 1) * pageSize) ||
        file.write(QByteArray(int(pageSize), char(0xA5))) != pageSize)
        throw std::runtime_error(("cannot damage " + databasePath).toStdString());
}
