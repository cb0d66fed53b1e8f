#pragma once

#include "QtPrinters.h"
#include "library/SQLiteDB.h"

#include <QString>
#include <QStringList>

#include <memory>
#include <optional>
#include <string>

// The real Photos databases the reader is tested against live outside the repository, in the
// folder the build setting OMBRELO_CORPUS_DIR names. Tests that read them begin with
// SKIP_WITHOUT_CORPUS(): without the folder they are skipped with one line that says how to run them.
QString corpusFolder();
bool corpusAvailable();
std::string corpusMissing();
#define SKIP_WITHOUT_CORPUS()                                                                                          \
    if (!corpusAvailable())                                                                                            \
    GTEST_SKIP() << corpusMissing()

// The real Photos databases of the corpus, by folder name (osxphotos-13.0.0, …).
QStringList corpusDatabaseNames();

// Copies the Photos database files of `from` (those of `names` that exist) into `to` as writable
// files (opening the originals for writing would fold their log into them); returns the copy's
// Photos.sqlite.
QString copyPhotosDatabase(const QString& from, const QString& to,
                           const QStringList& names = {"Photos.sqlite", "Photos.sqlite-wal", "Photos.sqlite-shm"});
QString copyCorpusDatabase(const QString& name, const QString& folder);

// Creates a small Photos database in the current layout: Z_PRIMARYKEY with Asset=3,
// GenericAlbum=27, Album=28, Folder=36; ZASSET with every column the reader knows;
// ZADDITIONALASSETATTRIBUTES; ZGENERICALBUM; the membership table Z_28ASSETS. No rows.
// Tests reshape it with plain SQL (ALTER TABLE … DROP COLUMN / RENAME) and add rows.
std::unique_ptr<SQLiteDB> createPhotosDatabase(const QString& path);

// An asset row to add, set up in a chain: TestAsset(7, "IMG_0007.HEIC").video().hidden().
struct TestAsset {
    TestAsset(int64_t pk, const QString& filename) : pk(pk), filename(filename) {}
    TestAsset& date(std::optional<double> seconds)
    {
        dateCreated = seconds;
        return *this;
    }
    TestAsset& video()
    {
        kind = 1;
        return *this;
    }
    TestAsset& subtype(int64_t value)
    {
        kindSubtype = value;
        return *this;
    }
    TestAsset& hidden()
    {
        isHidden = true;
        return *this;
    }
    TestAsset& trashed()
    {
        isTrashed = true;
        return *this;
    }
    TestAsset& original(const QString& name)
    {
        originalFilename = name;
        return *this;
    }

    int64_t pk;
    QString filename;
    QString directory = "DCIM/100APPLE";
    std::optional<double> dateCreated = 700000000.0;
    int64_t kind = 0;
    int64_t kindSubtype = 0;
    bool isHidden = false;
    bool isTrashed = false;
    std::optional<QString> originalFilename;
};

// Adds an asset row (uuid "asset-<pk>") and, when it has one, its original-name row.
void addAsset(SQLiteDB& db, const TestAsset& asset);
// Adds a ZGENERICALBUM row (uuid "album-uuid-<pk>").
void addAlbum(SQLiteDB& db, int64_t pk, int64_t kind, const QString& title, std::optional<int64_t> parent = {});
void addMember(SQLiteDB& db, int64_t albumPK, int64_t assetPK);

// Overwrites the first page of a table's or an index's b-tree: the first statement that reads a
// damaged table fails, and SQLite's quick check reports each damaged index.
void damageBtree(const QString& databasePath, const QString& name);
