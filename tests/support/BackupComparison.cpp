#include "BackupComparison.h"

#include "FolderSnapshot.h"
#include "PhoneBackup.h"
#include "backup/Manifest.h"
#include "library/SQLiteDB.h"

#include <QDir>
#include <QSet>

namespace {

QStringList tableRows(const QString& root, const QString& sql)
{
    SQLiteDB db(QDir(root).filePath(Manifest::fileName), true, false);
    QStringList rows;
    db.query(sql, {}, [&](const SQLRow& row) {
        rows << row.text(0).value_or("∅") + " | " + row.text(1).value_or("∅") + " | " + row.text(2).value_or("∅");
    });
    return rows;
}

QString describe(const ManifestRow& row)
{
    return row.assetUUID + " " + row.dest + " " + row.component + " → " + row.relPath + " (" + row.status + ")";
}

} // namespace

QStringList backupDifferences(const QString& expectedRoot, const QString& actualRoot)
{
    QStringList differences;

    ManifestRows expectedRows = readManifestRows(expectedRoot);
    ManifestRows actualRows = readManifestRows(actualRoot);
    QSet<QString> undated; // files whose modification time is the time they were copied
    for (ManifestRows* rows : {&expectedRows, &actualRows})
        for (ManifestRow& row : *rows) {
            if (row.status == "adopted")
                row.status = "copied";
            if (!row.captureDate)
                undated.insert(row.relPath);
        }
    for (const ManifestRow& row : std::as_const(expectedRows))
        if (!actualRows.contains(row))
            differences << "row missing: " + describe(row);
    for (const ManifestRow& row : std::as_const(actualRows))
        if (!expectedRows.contains(row))
            differences << "row not expected: " + describe(row);

    for (const QString& sql : {QStringLiteral("SELECT asset_uuid, dest, stem FROM placements ORDER BY 1, 2"),
                               QStringLiteral("SELECT album_uuid, rel_path, title FROM albums ORDER BY 1")}) {
        const QStringList expected = tableRows(expectedRoot, sql);
        const QStringList actual = tableRows(actualRoot, sql);
        if (expected != actual)
            differences << "differs: " + sql + "\n  expected: " + expected.join("; ") +
                               "\n  actual:   " + actual.join("; ");
    }

    FolderSnapshot expectedFiles = FolderSnapshot::take(expectedRoot);
    FolderSnapshot actualFiles = FolderSnapshot::take(actualRoot);
    for (FolderSnapshot* snapshot : {&expectedFiles, &actualFiles})
        snapshot->files.remove(Manifest::fileName);
    for (auto it = expectedFiles.files.cbegin(); it != expectedFiles.files.cend(); ++it) {
        const auto found = actualFiles.files.constFind(it.key());
        if (found == actualFiles.files.cend())
            differences << "file missing: " + it.key();
        else if (found->sha256 != it->sha256 || found->size != it->size)
            differences << "content differs: " + it.key();
        else if (!undated.contains(it.key()) && found->modifiedMs != it->modifiedMs)
            differences << "modification time differs: " + it.key();
    }
    for (auto it = actualFiles.files.cbegin(); it != actualFiles.files.cend(); ++it)
        if (!expectedFiles.files.contains(it.key()))
            differences << "file not expected: " + it.key();
    for (auto it = expectedFiles.others.cbegin(); it != expectedFiles.others.cend(); ++it)
        if (actualFiles.others.value(it.key()) != it.value())
            differences << it.value() + " missing: " + it.key();
    for (auto it = actualFiles.others.cbegin(); it != actualFiles.others.cend(); ++it)
        if (!expectedFiles.others.contains(it.key()))
            differences << it.value() + " not expected: " + it.key();
    return differences;
}
