#include "PhotosDatabaseWriter.h"

#include "DeterministicRandom.h"
#include "MkdeviceError.h"

#include <QDateTime>
#include <QFile>
#include <QHash>

#include <plist/plist.h>
#include <sqlite3.h>

#include <cmath>
#include <functional>
#include <memory>
#include <variant>

namespace {

// One value to bind: NULL, integer, real, text or blob.
struct Cell {
    std::variant<std::monostate, int64_t, double, QString, QByteArray> value;

    Cell() = default;
    Cell(int64_t v) : value(v) {}
    Cell(int v) : value(int64_t(v)) {}
    Cell(bool v) : value(int64_t(v ? 1 : 0)) {}
    Cell(double v) : value(v) {}
    Cell(const QString& v) : value(v) {}
    Cell(const QByteArray& v) : value(v) {}
    template <class T>
    Cell(const std::optional<T>& v)
    {
        if (v)
            *this = Cell(*v);
    }
};

const Cell null;

struct DatabaseCloser {
    void operator()(sqlite3* db) const { sqlite3_close(db); }
};
struct StatementFinalizer {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using Database = std::unique_ptr<sqlite3, DatabaseCloser>;
using Statement = std::unique_ptr<sqlite3_stmt, StatementFinalizer>;

class Connection {
public:
    Connection(const QString& path) : m_path(path)
    {
        sqlite3* handle = nullptr;
        const int rc = sqlite3_open_v2(QFile::encodeName(path).constData(), &handle,
                                       SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
        m_db.reset(handle);
        if (rc != SQLITE_OK)
            fail("could not be created");
    }

    sqlite3* handle() const { return m_db.get(); }

    [[noreturn]] void fail(const QString& what) const
    {
        throw MkdeviceError::output(QStringLiteral("The Photos database “%1” %2: %3.")
                                        .arg(m_path, what, QString::fromUtf8(sqlite3_errmsg(m_db.get()))));
    }

    void execute(const QString& sql)
    {
        char* message = nullptr;
        if (sqlite3_exec(m_db.get(), sql.toUtf8().constData(), nullptr, nullptr, &message) != SQLITE_OK) {
            const QString text = QString::fromUtf8(message);
            sqlite3_free(message);
            throw MkdeviceError::output(QStringLiteral("The Photos database “%1” could not be written: %2 (in %3).")
                                            .arg(m_path, text, sql.left(80)));
        }
    }

    Statement prepare(const QString& sql)
    {
        sqlite3_stmt* statement = nullptr;
        if (sqlite3_prepare_v2(m_db.get(), sql.toUtf8().constData(), -1, &statement, nullptr) != SQLITE_OK)
            fail("could not be written");
        return Statement(statement);
    }

    void bind(sqlite3_stmt* statement, int index, const Cell& cell)
    {
        const auto& v = cell.value;
        if (const auto* integer = std::get_if<int64_t>(&v)) {
            sqlite3_bind_int64(statement, index, *integer);
        } else if (const auto* real = std::get_if<double>(&v)) {
            sqlite3_bind_double(statement, index, *real);
        } else if (const auto* text = std::get_if<QString>(&v)) {
            const QByteArray utf8 = text->toUtf8();
            sqlite3_bind_text(statement, index, utf8.constData(), int(utf8.size()), SQLITE_TRANSIENT);
        } else if (const auto* blob = std::get_if<QByteArray>(&v)) {
            sqlite3_bind_blob(statement, index, blob->constData(), int(blob->size()), SQLITE_TRANSIENT);
        } else {
            sqlite3_bind_null(statement, index);
        }
    }

    void step(sqlite3_stmt* statement)
    {
        if (sqlite3_step(statement) != SQLITE_DONE)
            fail("could not be written");
        sqlite3_reset(statement);
    }

    void run(sqlite3_stmt* statement, const QList<Cell>& cells)
    {
        for (int i = 0; i < cells.size(); ++i)
            bind(statement, i + 1, cells[i]);
        step(statement);
    }

    void run(const QString& sql, const QList<Cell>& cells)
    {
        Statement statement = prepare(sql);
        run(statement.get(), cells);
    }

private:
    QString m_path;
    Database m_db;
};

// A column of one of our tables: present from one OS major release to another.
template <class Row>
struct Column {
    QString name;
    QString type;
    std::function<Cell(const Row&)> value;
    int firstMajor = 0;
    int lastMajor = 99;
};

template <class Row>
class Table {
public:
    Table(QString name, int major, const QList<Column<Row>>& all) : m_name(std::move(name))
    {
        for (const Column<Row>& column : all) {
            if (major >= column.firstMajor && major <= column.lastMajor)
                m_columns << column;
        }
    }

    QString createStatement() const
    {
        QStringList parts;
        for (const Column<Row>& column : m_columns)
            parts << column.name + " " + column.type;
        return "CREATE TABLE " + m_name + " ( " + parts.join(", ") + " )";
    }

    void insert(Connection& connection, const QList<const Row*>& rows) const
    {
        if (rows.isEmpty())
            return;
        QStringList names;
        QStringList marks;
        for (const Column<Row>& column : m_columns) {
            names << column.name;
            marks << "?";
        }
        Statement statement = connection.prepare("INSERT INTO " + m_name + " (" + names.join(", ") + ") VALUES (" +
                                                 marks.join(", ") + ")");
        for (const Row* row : rows) {
            for (int i = 0; i < m_columns.size(); ++i)
                connection.bind(statement.get(), i + 1, m_columns[i].value(*row));
            connection.step(statement.get());
        }
    }

private:
    QString m_name;
    QList<Column<Row>> m_columns;
};

template <class Row>
Column<Row> always(const QString& name, const QString& type, std::function<Cell(const Row&)> value)
{
    return {name, type, std::move(value)};
}

template <class Row>
Column<Row> from(int firstMajor, const QString& name, const QString& type, std::function<Cell(const Row&)> value)
{
    return {name, type, std::move(value), firstMajor, 99};
}

template <class Row>
Column<Row> until(int lastMajor, const QString& name, const QString& type, std::function<Cell(const Row&)> value)
{
    return {name, type, std::move(value), 0, lastMajor};
}

constexpr const char* kInteger = "INTEGER";
constexpr const char* kTimestamp = "TIMESTAMP";
constexpr const char* kFloat = "FLOAT";
constexpr const char* kVarchar = "VARCHAR";
constexpr const char* kBlob = "BLOB";

// The main file and the log hold different states of some rows: the state written first.
struct AssetRow {
    const PhoneAsset* asset;
    bool trashed; // as written in this batch
};

// Where on earth an item was taken, when the phone knows: stable per item.
double latitudeOf(const PhoneAsset& asset)
{
    const uint64_t h = uint64_t(asset.pk) * 0x9E3779B97F4A7C15ull;
    return h % 5 == 0 ? -180.0 : 35.0 + double(h % 2000) / 100.0 + double(asset.pk % 1000) / 100000.0;
}

double longitudeOf(const PhoneAsset& asset)
{
    const uint64_t h = uint64_t(asset.pk) * 0x9E3779B97F4A7C15ull;
    return h % 5 == 0 ? -180.0 : -10.0 + double((h >> 12) % 3500) / 100.0 + double(asset.pk % 997) / 100000.0;
}

Cell dateCell(const PhoneAsset& asset)
{
    if (!asset.dateCreated)
        return null;
    if (asset.dateStoredAsInteger)
        return Cell(int64_t(*asset.dateCreated));
    return Cell(*asset.dateCreated);
}

// "2024:05:01 09:30:00", as a camera writes its capture time.
Cell exifTimestamp(const std::optional<double>& date)
{
    if (!date)
        return null;
    const int64_t seconds = int64_t(std::floor(*date));
    const int64_t days = seconds >= 0 ? seconds / 86400 : (seconds - 86399) / 86400;
    const int64_t time = seconds - days * 86400;
    const QDate day = QDate(2001, 1, 1).addDays(days);
    return Cell(QString::asprintf("%04d:%02d:%02d %02d:%02d:%02d", day.year(), day.month(), day.day(), int(time / 3600),
                                  int(time / 60 % 60), int(time % 60)));
}

QByteArray metadataPlist(int64_t modelVersion)
{
    plist_t dict = plist_new_dict();
    plist_dict_set_item(dict, "NSPersistenceFrameworkVersion", plist_new_uint(1522));
    plist_dict_set_item(dict, "NSStoreModelVersionHashesVersion", plist_new_uint(3));
    plist_dict_set_item(dict, "NSStoreType", plist_new_string("SQLite"));
    plist_dict_set_item(dict, "PLModelVersion", plist_new_uint(uint64_t(modelVersion)));
    plist_dict_set_item(dict, "_NSAutoVacuumLevel", plist_new_string("2"));
    char* data = nullptr;
    uint32_t length = 0;
    plist_to_bin(dict, &data, &length);
    QByteArray bytes(data, int(length));
    plist_to_bin_free(data);
    plist_free(dict);
    return bytes;
}

} // namespace

PhotosDatabaseWriter::PhotosDatabaseWriter(const Generation& generation, const QString& version, uint64_t seed)
    : m_generation(generation), m_version(version), m_seed(seed)
{
}

void PhotosDatabaseWriter::write(const QString& path, const PhoneContent& content)
{
    const int major = m_generation.major;
    const QList<Entity> entities = m_generation.entities(m_version);
    auto ent = [&](const QString& name) { return entityNamed(entities, name).number; };
    const bool generic = m_generation.hasGenericAsset();
    // The asset column of the membership table is named after the entity that declares the
    // relationship: GenericAsset while it exists, Asset after.
    const int64_t assetRelationEntity = ent(generic ? "GenericAsset" : "Asset");
    const int64_t assetEntity = ent("Asset");
    const int64_t albumEntity = ent("Album");
    const int64_t genericAlbumEntity = ent("GenericAlbum");
    const QString assetTable = m_generation.assetTable();
    const QString joinTable = QString("Z_%1ASSETS").arg(albumEntity);
    const QString joinAlbums = QString("Z_%1ALBUMS").arg(albumEntity);
    const QString joinAssets = QString("Z_%1ASSETS").arg(assetRelationEntity);

    // Counts and member lists, final and as of the checkpoint.
    QHash<int64_t, int64_t> photosIn;
    QHash<int64_t, int64_t> videosIn;
    for (const Membership& m : content.memberships) {
        if (content.assets[m.assetPK - 1].isVideo)
            ++videosIn[m.albumPK];
        else
            ++photosIn[m.albumPK];
    }

    const QList<Column<AssetRow>> assetColumns = {
        always<AssetRow>("Z_PK", "INTEGER PRIMARY KEY", [](const AssetRow& r) { return Cell(r.asset->pk); }),
        always<AssetRow>("Z_ENT", kInteger, [&](const AssetRow&) { return Cell(assetEntity); }),
        always<AssetRow>("Z_OPT", kInteger, [](const AssetRow& r) { return Cell(r.trashed ? 4 : 3); }),
        from<AssetRow>(16, "ZACTIVELIBRARYSCOPEPARTICIPATIONSTATE", kInteger, [](const AssetRow&) { return Cell(0); }),
        from<AssetRow>(18, "ZADJUSTMENTSSTATE", kInteger,
                       [](const AssetRow& r) { return Cell(r.asset->adjustmentsState); }),
        always<AssetRow>("ZAVALANCHEPICKTYPE", kInteger, [](const AssetRow&) { return Cell(0); }),
        from<AssetRow>(15, "ZBUNDLESCOPE", kInteger, [](const AssetRow& r) { return Cell(r.asset->bundleScope); }),
        always<AssetRow>("ZCLOUDDELETESTATE", kInteger, [](const AssetRow&) { return Cell(0); }),
        always<AssetRow>("ZCLOUDLOCALSTATE", kInteger,
                         [](const AssetRow& r) { return Cell(r.asset->cloudAssetGUID ? 1 : 0); }),
        until<AssetRow>(18, "ZCLOUDPLACEHOLDERKIND", kInteger,
                        [](const AssetRow& r) { return Cell(r.asset->onDevice ? 0 : 3); }),
        always<AssetRow>("ZCOMPLETE", kInteger, [](const AssetRow&) { return Cell(1); }),
        always<AssetRow>("ZDEFERREDPROCESSINGNEEDED", kInteger, [](const AssetRow&) { return Cell(0); }),
        until<AssetRow>(13, "ZDEPTHSTATES", kInteger, [](const AssetRow&) { return Cell(0); }),
        from<AssetRow>(14, "ZDEPTHTYPE", kInteger, [](const AssetRow&) { return Cell(0); }),
        from<AssetRow>(16, "ZDUPLICATEASSETVISIBILITYSTATE", kInteger, [](const AssetRow&) { return Cell(0); }),
        always<AssetRow>("ZFAVORITE", kInteger, [](const AssetRow& r) { return Cell(r.asset->isFavorite); }),
        until<AssetRow>(17, "ZHASADJUSTMENTS", kInteger,
                        [](const AssetRow& r) { return Cell(r.asset->hasAdjustments); }),
        from<AssetRow>(15, "ZHDRTYPE", kInteger, [](const AssetRow&) { return Cell(0); }),
        always<AssetRow>("ZHEIGHT", kInteger, [](const AssetRow& r) { return Cell(r.asset->height); }),
        always<AssetRow>("ZHIDDEN", kInteger, [](const AssetRow& r) { return Cell(r.asset->isHidden); }),
        from<AssetRow>(18, "ZISDETECTEDSCREENSHOT", kInteger,
                       [](const AssetRow& r) { return Cell(r.asset->kindSubtype == 10); }),
        from<AssetRow>(18, "ZISRECENTLYSAVED", kInteger, [](const AssetRow&) { return Cell(0); }),
        always<AssetRow>("ZKIND", kInteger, [](const AssetRow& r) { return Cell(r.asset->isVideo ? 1 : 0); }),
        always<AssetRow>("ZKINDSUBTYPE", kInteger, [](const AssetRow& r) { return Cell(r.asset->kindSubtype); }),
        from<AssetRow>(16, "ZLIBRARYSCOPESHARESTATE", kInteger, [](const AssetRow&) { return Cell(0); }),
        always<AssetRow>("ZORIENTATION", kInteger, [](const AssetRow&) { return Cell(1); }),
        always<AssetRow>("ZPLAYBACKSTYLE", kInteger,
                         [](const AssetRow& r) {
                             return Cell(r.asset->isVideo ? 4 : r.asset->isLivePhoto() ? 3 : 1);
                         }),
        always<AssetRow>("ZPLAYBACKVARIATION", kInteger, [](const AssetRow&) { return Cell(0); }),
        always<AssetRow>("ZSAVEDASSETTYPE", kInteger, [](const AssetRow& r) { return Cell(r.asset->savedAssetType); }),
        from<AssetRow>(17, "ZSPATIALTYPE", kInteger, [](const AssetRow&) { return Cell(0); }),
        from<AssetRow>(15, "ZSYNDICATIONSTATE", kInteger, [](const AssetRow&) { return Cell(0); }),
        always<AssetRow>("ZTHUMBNAILINDEX", kInteger, [](const AssetRow& r) { return Cell(r.asset->pk - 1); }),
        always<AssetRow>("ZTRASHEDSTATE", kInteger, [](const AssetRow& r) { return Cell(r.trashed); }),
        from<AssetRow>(15, "ZVIDEODEFERREDPROCESSINGNEEDED", kInteger, [](const AssetRow&) { return Cell(0); }),
        always<AssetRow>("ZVISIBILITYSTATE", kInteger, [](const AssetRow&) { return Cell(0); }),
        always<AssetRow>("ZWIDTH", kInteger, [](const AssetRow& r) { return Cell(r.asset->width); }),
        always<AssetRow>("ZADDITIONALATTRIBUTES", kInteger, [](const AssetRow& r) { return Cell(r.asset->pk); }),
        from<AssetRow>(15, "ZCONVERSATION", kInteger, [](const AssetRow&) { return null; }),
        always<AssetRow>("ZIMPORTSESSION", kInteger, [](const AssetRow& r) { return Cell(r.asset->importSessionPK); }),
        from<AssetRow>(16, "ZLIBRARYSCOPE", kInteger, [](const AssetRow&) { return null; }),
        always<AssetRow>("ZMASTER", kInteger, [](const AssetRow&) { return null; }),
        always<AssetRow>("ZMOMENT", kInteger, [](const AssetRow&) { return null; }),
        always<AssetRow>("ZMOMENTSHARE", kInteger, [](const AssetRow&) { return null; }),
        from<AssetRow>(16, "ZTRASHEDBYPARTICIPANT", kInteger, [](const AssetRow&) { return null; }),
        until<AssetRow>(13, "Z_FOK_IMPORTSESSION", kInteger,
                        [](const AssetRow& r) { return r.asset->importSessionPK ? Cell(r.asset->pk * 1024) : null; }),
        always<AssetRow>(
            "ZADDEDDATE", kTimestamp,
            [](const AssetRow& r) { return r.asset->dateCreated ? Cell(*r.asset->dateCreated + 61.5) : null; }),
        always<AssetRow>("ZADJUSTMENTTIMESTAMP", kTimestamp,
                         [](const AssetRow& r) { return Cell(r.asset->adjustmentTimestamp); }),
        always<AssetRow>("ZCLOUDBATCHPUBLISHDATE", kTimestamp,
                         [](const AssetRow& r) {
                             return r.asset->savedAssetType == 4 && r.asset->dateCreated
                                        ? Cell(*r.asset->dateCreated + 86400.0)
                                        : null;
                         }),
        always<AssetRow>("ZDATECREATED", kTimestamp, [](const AssetRow& r) { return dateCell(*r.asset); }),
        always<AssetRow>("ZDURATION", kFloat, [](const AssetRow& r) { return Cell(r.asset->duration); }),
        from<AssetRow>(17, "ZICONICSCORE", kFloat, [](const AssetRow&) { return Cell(0.0); }),
        always<AssetRow>("ZLATITUDE", kFloat, [](const AssetRow& r) { return Cell(latitudeOf(*r.asset)); }),
        always<AssetRow>("ZLONGITUDE", kFloat, [](const AssetRow& r) { return Cell(longitudeOf(*r.asset)); }),
        always<AssetRow>("ZMODIFICATIONDATE", kTimestamp,
                         [](const AssetRow& r) {
                             return r.asset->adjustmentTimestamp ? Cell(*r.asset->adjustmentTimestamp)
                                                                 : dateCell(*r.asset);
                         }),
        always<AssetRow>("ZSORTTOKEN", kFloat,
                         [](const AssetRow& r) { return Cell(r.asset->dateCreated.value_or(0.0)); }),
        always<AssetRow>("ZTRASHEDDATE", kTimestamp,
                         [](const AssetRow& r) { return r.trashed ? Cell(r.asset->trashedDate) : null; }),
        always<AssetRow>("ZAVALANCHEUUID", kVarchar, [](const AssetRow&) { return null; }),
        from<AssetRow>(18, "ZCAPTURESESSIONIDENTIFIER", kVarchar, [](const AssetRow&) { return null; }),
        always<AssetRow>("ZCLOUDASSETGUID", kVarchar, [](const AssetRow& r) { return Cell(r.asset->cloudAssetGUID); }),
        from<AssetRow>(16, "ZDELETEREASON", kVarchar, [](const AssetRow&) { return null; }),
        always<AssetRow>("ZDIRECTORY", kVarchar, [](const AssetRow& r) { return Cell(r.asset->directory); }),
        always<AssetRow>("ZFILENAME", kVarchar, [](const AssetRow& r) { return Cell(r.asset->filename); }),
        always<AssetRow>("ZMEDIAGROUPUUID", kVarchar, [](const AssetRow& r) { return Cell(r.asset->mediaGroupUUID); }),
        always<AssetRow>("ZUNIFORMTYPEIDENTIFIER", kVarchar,
                         [](const AssetRow& r) { return Cell(r.asset->uniformTypeIdentifier); }),
        always<AssetRow>("ZUUID", kVarchar, [](const AssetRow& r) { return Cell(r.asset->uuid); }),
        from<AssetRow>(18, "ZLOCATIONDATA", kBlob, [](const AssetRow&) { return null; }),
    };

    const QList<Column<PhoneAsset>> attributeColumns = {
        always<PhoneAsset>("Z_PK", "INTEGER PRIMARY KEY", [](const PhoneAsset& a) { return Cell(a.pk); }),
        always<PhoneAsset>("Z_ENT", kInteger,
                           [&](const PhoneAsset&) { return Cell(ent("AdditionalAssetAttributes")); }),
        always<PhoneAsset>("Z_OPT", kInteger, [](const PhoneAsset&) { return Cell(2); }),
        always<PhoneAsset>("ZORIGINALFILESIZE", kInteger, [](const PhoneAsset& a) { return Cell(a.fileSize); }),
        always<PhoneAsset>("ZORIGINALHEIGHT", kInteger, [](const PhoneAsset& a) { return Cell(a.height); }),
        always<PhoneAsset>("ZORIGINALORIENTATION", kInteger, [](const PhoneAsset&) { return Cell(1); }),
        always<PhoneAsset>("ZORIGINALWIDTH", kInteger, [](const PhoneAsset& a) { return Cell(a.width); }),
        always<PhoneAsset>("ZTIMEZONEOFFSET", kInteger, [](const PhoneAsset&) { return Cell(3600); }),
        always<PhoneAsset>("ZASSET", kInteger, [](const PhoneAsset& a) { return Cell(a.pk); }),
        // Up to iOS 13 a to-one relationship into the GenericAsset hierarchy also records the entity.
        until<PhoneAsset>(13, QString("Z%1_ASSET").arg(assetRelationEntity), kInteger,
                          [&](const PhoneAsset&) { return Cell(assetEntity); }),
        always<PhoneAsset>("ZALTERNATEIMPORTIMAGEDATE", kTimestamp, [](const PhoneAsset&) { return null; }),
        until<PhoneAsset>(14, "ZCREATORBUNDLEID", kVarchar,
                          [](const PhoneAsset& a) {
                              return Cell(a.importSessionPK ? QString("com.apple.mobileslideshow")
                                                            : QString("com.apple.camera"));
                          }),
        always<PhoneAsset>("ZEXIFTIMESTAMPSTRING", kVarchar,
                           [](const PhoneAsset& a) { return exifTimestamp(a.dateCreated); }),
        from<PhoneAsset>(15, "ZIMPORTEDBYBUNDLEIDENTIFIER", kVarchar,
                         [](const PhoneAsset& a) {
                             return Cell(a.importSessionPK ? QString("com.apple.mobileslideshow")
                                                           : QString("com.apple.camera"));
                         }),
        from<PhoneAsset>(
            15, "ZIMPORTEDBYDISPLAYNAME", kVarchar,
            [](const PhoneAsset& a) { return Cell(a.importSessionPK ? QString("Photos") : QString("Camera")); }),
        always<PhoneAsset>("ZORIGINALFILENAME", kVarchar, [](const PhoneAsset& a) { return Cell(a.originalFilename); }),
        from<PhoneAsset>(15, "ZSYNDICATIONIDENTIFIER", kVarchar,
                         [](const PhoneAsset& a) {
                             return a.savedAssetType == 12 || a.bundleScope == 3 ? Cell("swy-" + a.uuid.toLower())
                                                                                 : null;
                         }),
        always<PhoneAsset>("ZTIMEZONENAME", kVarchar, [](const PhoneAsset&) { return Cell(QString("GMT+0100")); }),
        always<PhoneAsset>("ZTITLE", kVarchar, [](const PhoneAsset&) { return null; }),
    };

    const QList<Column<PhoneAlbum>> albumColumns = {
        always<PhoneAlbum>("Z_PK", "INTEGER PRIMARY KEY", [](const PhoneAlbum& a) { return Cell(a.pk); }),
        always<PhoneAlbum>("Z_ENT", kInteger, [&](const PhoneAlbum& a) { return Cell(ent(a.entityName)); }),
        always<PhoneAlbum>("Z_OPT", kInteger, [](const PhoneAlbum&) { return Cell(5); }),
        always<PhoneAlbum>("ZCACHEDCOUNT", kInteger,
                           [&](const PhoneAlbum& a) { return Cell(photosIn.value(a.pk) + videosIn.value(a.pk)); }),
        always<PhoneAlbum>("ZCACHEDPHOTOSCOUNT", kInteger,
                           [&](const PhoneAlbum& a) { return Cell(photosIn.value(a.pk)); }),
        always<PhoneAlbum>("ZCACHEDVIDEOSCOUNT", kInteger,
                           [&](const PhoneAlbum& a) { return Cell(videosIn.value(a.pk)); }),
        always<PhoneAlbum>("ZCLOUDDELETESTATE", kInteger, [](const PhoneAlbum&) { return Cell(0); }),
        always<PhoneAlbum>("ZCLOUDLOCALSTATE", kInteger, [](const PhoneAlbum&) { return Cell(1); }),
        always<PhoneAlbum>("ZCUSTOMSORTASCENDING", kInteger, [](const PhoneAlbum&) { return Cell(0); }),
        always<PhoneAlbum>("ZCUSTOMSORTKEY", kInteger, [](const PhoneAlbum& a) { return Cell(a.kind == 2 ? 1 : 0); }),
        always<PhoneAlbum>("ZISPINNED", kInteger, [](const PhoneAlbum&) { return Cell(0); }),
        always<PhoneAlbum>("ZKIND", kInteger, [](const PhoneAlbum& a) { return Cell(a.kind); }),
        always<PhoneAlbum>("ZPENDINGITEMSCOUNT", kInteger, [](const PhoneAlbum&) { return Cell(0); }),
        from<PhoneAlbum>(16, "ZPRIVACYSTATE", kInteger, [](const PhoneAlbum&) { return Cell(0); }),
        always<PhoneAlbum>("ZSYNCEVENTORDERKEY", kInteger, [](const PhoneAlbum&) { return Cell(0); }),
        always<PhoneAlbum>("ZTRASHEDSTATE", kInteger, [](const PhoneAlbum& a) { return Cell(a.isTrashed); }),
        always<PhoneAlbum>("ZCUSTOMKEYASSET", kInteger, [](const PhoneAlbum&) { return null; }),
        until<PhoneAlbum>(13, QString("Z%1_CUSTOMKEYASSET").arg(assetRelationEntity), kInteger,
                          [](const PhoneAlbum&) { return null; }),
        until<PhoneAlbum>(17, "ZKEYASSET", kInteger, [](const PhoneAlbum&) { return null; }),
        until<PhoneAlbum>(13, QString("Z%1_KEYASSET").arg(assetRelationEntity), kInteger,
                          [](const PhoneAlbum&) { return null; }),
        always<PhoneAlbum>("ZPARENTFOLDER", kInteger, [](const PhoneAlbum& a) { return Cell(a.parentPK); }),
        from<PhoneAlbum>(16, "ZSEARCHINDEXREBUILDSTATE", kInteger, [](const PhoneAlbum&) { return Cell(0); }),
        always<PhoneAlbum>("ZCLOUDALBUMSUBTYPE", kInteger,
                           [](const PhoneAlbum& a) { return a.kind == 1505 ? Cell(1) : null; }),
        always<PhoneAlbum>("ZCLOUDMULTIPLECONTRIBUTORSENABLED", kInteger,
                           [](const PhoneAlbum& a) { return a.kind == 1505 ? Cell(1) : null; }),
        always<PhoneAlbum>("ZCLOUDNOTIFICATIONSENABLED", kInteger,
                           [](const PhoneAlbum& a) { return a.kind == 1505 ? Cell(1) : null; }),
        always<PhoneAlbum>("ZCLOUDRELATIONSHIPSTATE", kInteger,
                           [](const PhoneAlbum& a) { return a.kind == 1505 ? Cell(2) : null; }),
        always<PhoneAlbum>("ZHASUNSEENCONTENT", kInteger, [](const PhoneAlbum&) { return Cell(0); }),
        always<PhoneAlbum>("ZISOWNED", kInteger, [](const PhoneAlbum& a) { return a.kind == 1505 ? Cell(0) : null; }),
        always<PhoneAlbum>("ZUNSEENASSETSCOUNT", kInteger, [](const PhoneAlbum&) { return Cell(0); }),
        always<PhoneAlbum>("Z_FOK_PARENTFOLDER", kInteger,
                           [](const PhoneAlbum& a) { return a.parentPK ? Cell(a.pk * 1024) : null; }),
        always<PhoneAlbum>("ZCREATIONDATE", kTimestamp, [](const PhoneAlbum& a) { return Cell(a.creationDate); }),
        always<PhoneAlbum>("ZENDDATE", kTimestamp, [](const PhoneAlbum&) { return null; }),
        always<PhoneAlbum>("ZSTARTDATE", kTimestamp, [](const PhoneAlbum&) { return null; }),
        always<PhoneAlbum>("ZTRASHEDDATE", kTimestamp,
                           [](const PhoneAlbum& a) { return a.isTrashed ? Cell(a.creationDate + 86400.0) : null; }),
        always<PhoneAlbum>("ZCLOUDCREATIONDATE", kTimestamp,
                           [](const PhoneAlbum& a) { return a.kind == 1505 ? Cell(a.creationDate) : null; }),
        always<PhoneAlbum>("ZCLOUDGUID", kVarchar, [](const PhoneAlbum& a) { return Cell(a.cloudGUID); }),
        always<PhoneAlbum>("ZIMPORTSESSIONID", kVarchar,
                           [](const PhoneAlbum& a) { return a.kind == 1506 ? Cell(a.uuid) : null; }),
        from<PhoneAlbum>(15, "ZIMPORTEDBYBUNDLEIDENTIFIER", kVarchar, [](const PhoneAlbum&) { return null; }),
        always<PhoneAlbum>("ZTITLE", kVarchar, [](const PhoneAlbum& a) { return Cell(a.title); }),
        always<PhoneAlbum>("ZUUID", kVarchar, [](const PhoneAlbum& a) { return Cell(a.uuid); }),
        always<PhoneAlbum>("ZCLOUDOWNERFIRSTNAME", kVarchar,
                           [](const PhoneAlbum& a) { return a.kind == 1505 ? Cell(QString("Alex")) : null; }),
        always<PhoneAlbum>("ZCLOUDOWNERFULLNAME", kVarchar,
                           [](const PhoneAlbum& a) { return a.kind == 1505 ? Cell(QString("Alex Doe")) : null; }),
        always<PhoneAlbum>("ZCLOUDPERSONID", kVarchar, [](const PhoneAlbum&) { return null; }),
        always<PhoneAlbum>("ZPUBLICURL", kVarchar, [](const PhoneAlbum&) { return null; }),
        always<PhoneAlbum>("ZCUSTOMQUERYTYPE", kVarchar, [](const PhoneAlbum&) { return null; }),
        always<PhoneAlbum>("ZCLOUDMETADATA", kBlob, [](const PhoneAlbum&) { return null; }),
        always<PhoneAlbum>("ZUSERQUERYDATA", kBlob, [](const PhoneAlbum&) { return null; }),
    };

    const QList<Column<Membership>> joinColumns = {
        always<Membership>(joinAlbums, kInteger, [](const Membership& m) { return Cell(m.albumPK); }),
        always<Membership>(joinAssets, kInteger, [](const Membership& m) { return Cell(m.assetPK); }),
        always<Membership>("Z_FOK_" + joinAssets.mid(2), kInteger, [](const Membership& m) { return Cell(m.order); }),
    };

    const Table<AssetRow> assets(assetTable, major, assetColumns);
    const Table<PhoneAsset> attributes("ZADDITIONALASSETATTRIBUTES", major, attributeColumns);
    const Table<PhoneAlbum> albums("ZGENERICALBUM", major, albumColumns);
    const Table<Membership> join(joinTable, major, joinColumns);

    if (QFile::exists(path))
        throw MkdeviceError::output(QStringLiteral("The Photos database “%1” already exists.").arg(path));
    // SQLite draws random salts for its log; a fixed seed makes the files reproducible.
    DeterministicRandom random(m_seed ^ 0x5107E5ull);
    sqlite3_test_control(SQLITE_TESTCTRL_PRNG_SEED, int(random.below(0x7FFFFFFF)) + 1, nullptr);

    Connection db(path);
    db.execute("PRAGMA page_size = 4096");
    db.execute("PRAGMA auto_vacuum = INCREMENTAL");
    db.execute("PRAGMA journal_mode = OFF"); // the bulk goes straight into the main file
    db.execute("PRAGMA synchronous = OFF");
    db.execute("PRAGMA cache_size = -131072"); // 128 MiB: the bulk goes to the log once, not in spills

    db.execute("BEGIN");
    db.execute("CREATE TABLE Z_PRIMARYKEY (Z_ENT INTEGER PRIMARY KEY, Z_NAME VARCHAR, Z_SUPER INTEGER, Z_MAX INTEGER)");
    db.execute("CREATE TABLE Z_METADATA (Z_VERSION INTEGER PRIMARY KEY, Z_UUID VARCHAR(255), Z_PLIST BLOB)");
    db.execute("CREATE TABLE Z_MODELCACHE (Z_CONTENT BLOB)");
    db.execute(attributes.createStatement());
    db.execute("CREATE INDEX ZADDITIONALASSETATTRIBUTES_ZASSET_INDEX ON ZADDITIONALASSETATTRIBUTES (ZASSET)");
    db.execute(assets.createStatement());
    db.execute(QString("CREATE INDEX %1_ZADDITIONALATTRIBUTES_INDEX ON %1 (ZADDITIONALATTRIBUTES)").arg(assetTable));
    db.execute(QString("CREATE INDEX %1_ZIMPORTSESSION_INDEX ON %1 (ZIMPORTSESSION)").arg(assetTable));
    db.execute(QString("CREATE INDEX %1_ZDATECREATED_INDEX ON %1 (ZDATECREATED)").arg(assetTable));
    db.execute(albums.createStatement());
    db.execute("CREATE INDEX ZGENERICALBUM_ZPARENTFOLDER_INDEX ON ZGENERICALBUM (ZPARENTFOLDER)");
    db.execute(QString("CREATE TABLE %1 ( %2 INTEGER, %3 INTEGER, Z_FOK_%4 INTEGER, PRIMARY KEY (%2, %3) )")
                   .arg(joinTable, joinAlbums, joinAssets, joinAssets.mid(2)));
    db.execute(QString("CREATE INDEX %1_%2_INDEX ON %1 (%2, %3)").arg(joinTable, joinAssets, joinAlbums));
    // Databases migrated from older releases keep index names of the table's earlier names.
    if (albumEntity != 26)
        db.execute(QString("CREATE INDEX Z_26ASSETS_%2_INDEX ON %1 (%2, %3)").arg(joinTable, joinAssets, joinAlbums));

    // Tables whose names also end in ASSETS or ALBUMS, which a careless search for the
    // membership table would pick up.
    const int64_t memoryEntity = ent("Memory");
    const int64_t suggestionEntity = ent("Suggestion");
    const int64_t keywordEntity = ent("Keyword");
    const int64_t albumListEntity = ent("AlbumList");
    const QString curated = QString("Z_%1MEMORIESBEINGCURATEDASSETS").arg(assetRelationEntity);
    db.execute(QString("CREATE TABLE %1 ( Z_%2CURATEDASSETS INTEGER, Z_%3MEMORIESBEINGCURATEDASSETS INTEGER, "
                       "PRIMARY KEY (Z_%2CURATEDASSETS, Z_%3MEMORIESBEINGCURATEDASSETS) )")
                   .arg(curated)
                   .arg(assetRelationEntity)
                   .arg(memoryEntity));
    db.execute(
        QString(
            "CREATE TABLE Z_%1SUGGESTIONSBEINGKEYASSETS ( Z_%1KEYASSETS INTEGER, Z_%2SUGGESTIONSBEINGKEYASSETS INTEGER, "
            "PRIMARY KEY (Z_%1KEYASSETS, Z_%2SUGGESTIONSBEINGKEYASSETS) )")
            .arg(assetRelationEntity)
            .arg(suggestionEntity));
    db.execute(
        QString("CREATE TABLE Z_%1ALBUMLISTS ( Z_%1ALBUMS INTEGER, Z_%2ALBUMLISTS INTEGER, Z_FOK_%1ALBUMS INTEGER, "
                "PRIMARY KEY (Z_%1ALBUMS, Z_%2ALBUMLISTS) )")
            .arg(genericAlbumEntity)
            .arg(albumListEntity));
    db.execute(QString("CREATE TABLE Z_1KEYWORDS ( Z_1ASSETATTRIBUTES INTEGER, Z_%1KEYWORDS INTEGER, "
                       "PRIMARY KEY (Z_1ASSETATTRIBUTES, Z_%1KEYWORDS) )")
                   .arg(keywordEntity));
    if (major >= 18)
        db.execute(QString("CREATE TABLE Z_%1KEYASSETS ( Z_%1ALBUMSBEINGKEYASSETS INTEGER, Z_%2KEYASSETS INTEGER, "
                           "Z_FOK_%2KEYASSETS INTEGER, PRIMARY KEY (Z_%1ALBUMSBEINGKEYASSETS, Z_%2KEYASSETS) )")
                       .arg(genericAlbumEntity)
                       .arg(assetRelationEntity));
    db.execute("CREATE TABLE ZALBUMLIST ( Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER, ZIDENTIFIER INTEGER, "
               "ZNEEDSREORDERINGNUMBER INTEGER, ZUUID VARCHAR )");
    db.execute(
        "CREATE TABLE ZKEYWORD ( Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER, ZTITLE VARCHAR, ZUUID VARCHAR )");
    db.execute("CREATE TABLE ZMEMORY ( Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER, ZCATEGORY INTEGER, "
               "ZCREATIONDATE TIMESTAMP, ZTITLE VARCHAR, ZUUID VARCHAR )");
    db.execute("CREATE TABLE ZMOMENT ( Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER, ZCACHEDCOUNT INTEGER, "
               "ZSTARTDATE TIMESTAMP, ZENDDATE TIMESTAMP, ZTITLE VARCHAR, ZUUID VARCHAR )");
    db.execute(QString("CREATE TABLE %1 ( Z_PK INTEGER PRIMARY KEY, Z_ENT INTEGER, Z_OPT INTEGER, ZSCOPETYPE INTEGER, "
                       "ZTITLE VARCHAR, ZUUID VARCHAR )")
                   .arg(m_generation.hasShareTable() ? "ZSHARE" : "ZMOMENTSHARE"));

    // Rows as of the last checkpoint.
    QList<const PhoneAsset*> olderAssets;
    QList<AssetRow> olderRows;
    QList<const PhoneAsset*> recentAssets;
    QList<AssetRow> recentRows;
    for (const PhoneAsset& asset : content.assets) {
        if (asset.recent) {
            recentAssets << &asset;
            recentRows << AssetRow{&asset, asset.isTrashed};
        } else {
            olderAssets << &asset;
            olderRows << AssetRow{&asset, asset.isTrashed && !asset.trashedRecently};
        }
    }
    auto pointers = [](const auto& list) {
        QList<const std::decay_t<decltype(list.first())>*> result;
        for (const auto& item : list)
            result << &item;
        return result;
    };
    QList<const PhoneAlbum*> olderAlbums;
    QList<const PhoneAlbum*> recentAlbums;
    for (const PhoneAlbum& album : content.albums)
        (album.recent ? recentAlbums : olderAlbums) << &album;
    QList<const Membership*> olderMembers;
    QList<const Membership*> recentMembers;
    for (const Membership& m : content.memberships)
        (m.recent ? recentMembers : olderMembers) << &m;

    attributes.insert(db, olderAssets);
    assets.insert(db, pointers(olderRows));
    albums.insert(db, olderAlbums);
    join.insert(db, olderMembers);

    auto primaryKeys = [&](int64_t assetCount, int64_t albumCount) {
        Statement statement =
            db.prepare("INSERT OR REPLACE INTO Z_PRIMARYKEY (Z_ENT, Z_NAME, Z_SUPER, Z_MAX) VALUES (?, ?, ?, ?)");
        for (const Entity& entity : entities) {
            int64_t max = 0;
            if (entity.name == "AdditionalAssetAttributes" || entity.name == (generic ? "GenericAsset" : "Asset"))
                max = entity.parent.isEmpty() ? assetCount : 0;
            else if (entity.name == "GenericAlbum")
                max = albumCount;
            else if (entity.name == "Memory" || entity.name == "Keyword" || entity.name == "AlbumList")
                max = 2;
            db.run(statement.get(), {entity.number, entity.name, entity.parentNumber, max});
        }
    };
    primaryKeys(olderAssets.size(), olderAlbums.size());

    db.run("INSERT INTO Z_METADATA (Z_VERSION, Z_UUID, Z_PLIST) VALUES (1, ?, ?)",
           {random.uuid(), metadataPlist(m_generation.modelVersionFor(m_version))});
    db.run("INSERT INTO Z_MODELCACHE (Z_CONTENT) VALUES (?)", {random.bytes(256)});
    const int64_t listEntity = albumListEntity;
    for (int i = 1; i <= 2; ++i) {
        db.run("INSERT INTO ZALBUMLIST VALUES (?, ?, 1, ?, 0, ?)", {i, listEntity, i, random.uuid()});
        db.run("INSERT INTO ZKEYWORD VALUES (?, ?, 1, ?, ?)",
               {i, keywordEntity, QString(i == 1 ? "Holiday" : "Work"), random.uuid()});
        db.run("INSERT INTO ZMEMORY VALUES (?, ?, 1, ?, ?, ?, ?)",
               {i, memoryEntity, 1, 700000000.5 + i, QString(i == 1 ? "Summer Together" : "Best of the Year"),
                random.uuid()});
        db.run("INSERT INTO ZMOMENT VALUES (?, ?, 1, 0, ?, ?, NULL, ?)",
               {i, ent("Moment"), 600000000.0 + i * 86400.0, 600003600.0 + i * 86400.0, random.uuid()});
    }
    for (const PhoneAlbum* album : std::as_const(olderAlbums)) {
        if (album->kind == 2 || album->kind == 4000)
            db.run(QString("INSERT INTO Z_%1ALBUMLISTS VALUES (?, 1, ?)").arg(genericAlbumEntity),
                   {album->pk, album->pk * 1024});
    }
    for (int i = 0; i < std::min<qsizetype>(olderAssets.size(), 6); ++i) {
        db.run(QString("INSERT INTO %1 VALUES (?, ?)").arg(curated), {olderAssets[i]->pk, i % 2 + 1});
        db.run(QString("INSERT INTO Z_1KEYWORDS VALUES (?, ?)"), {olderAssets[i]->pk, i % 2 + 1});
    }
    db.execute("COMMIT");

    // Everything so far is in the main file; what follows stays in the log.
    db.execute("PRAGMA journal_mode = WAL");
    db.execute("PRAGMA wal_autocheckpoint = 0");

    db.execute("BEGIN");
    attributes.insert(db, recentAssets);
    assets.insert(db, pointers(recentRows));
    db.execute("COMMIT");

    db.execute("BEGIN");
    albums.insert(db, recentAlbums);
    join.insert(db, recentMembers);
    for (const PhoneAsset& asset : content.assets) {
        if (asset.trashedRecently)
            db.run(QString("UPDATE %1 SET ZTRASHEDSTATE = 1, ZTRASHEDDATE = ?, Z_OPT = Z_OPT + 1 WHERE Z_PK = ?")
                       .arg(assetTable),
                   {asset.trashedDate, asset.pk});
    }
    primaryKeys(content.assets.size(), content.albums.size());
    db.execute("COMMIT");

    // Closing must neither fold the log into the main file nor delete it.
    int off = 0;
    sqlite3_db_config(db.handle(), SQLITE_DBCONFIG_NO_CKPT_ON_CLOSE, 1, &off);
}
