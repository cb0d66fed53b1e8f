#include "BackupVerifier.h"

#include "backup/Manifest.h"
#include "device/StreamingHasher.h"
#include "library/SQLiteDB.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <stdexcept>

using Row = BackupVerifier::RecordedFile;

std::vector<Row> BackupVerifier::recordedFiles(const QString& root)
{
    const QString path = QDir(root).filePath(Manifest::fileName);
    if (!Manifest::exists(root))
        throw std::runtime_error(QString::fromUtf8("There is no Ombrelo backup in \u201c%1\u201d: it has no %2 file.")
                                     .arg(QDir::toNativeSeparators(root), Manifest::fileName)
                                     .toStdString());
    // A pipe would hang the read, a link would lead it elsewhere.
    Manifest::requirePlainFiles(root);
    const QString journal = path + Manifest::journalSuffix;
    // A run killed in the middle of recording a file leaves the manifest's rollback journal
    // behind, and SQLite must roll it back before the manifest can be read. That is a write, so it
    // happens on a private copy: the backup folder itself is only ever read.
    QTemporaryDir copy;
    QString readable = path;
    if (QFileInfo(journal).size() > 0) {
        readable = copy.filePath(Manifest::fileName);
        if (!copy.isValid() || !QFile::copy(path, readable) ||
            !QFile::copy(journal, readable + Manifest::journalSuffix))
            throw std::runtime_error(QString::fromUtf8("The manifest \u201c%1\u201d, left in the middle of a change, "
                                                       "could not be copied aside to be read.")
                                         .arg(QDir::toNativeSeparators(path))
                                         .toStdString());
    }
    SQLiteDB db(readable, readable == path, false);
    std::vector<Row> rows;
    db.query("SELECT rel_path, sha256, size, status, source_path, capture_date FROM files ORDER BY rel_path", {},
             [&](const SQLRow& row) {
                 rows.push_back({row.text(0).value_or(QString()), row.text(1).value_or(QString()),
                                 row.integer(2).value_or(0), row.text(3).value_or(QString()),
                                 row.text(4).value_or(QString()), row.text(5)});
             });
    return rows;
}

namespace {

// A recorded path is only followed when it stays inside the backup folder.
bool isInsideRoot(const QString& relPath)
{
    if (relPath.isEmpty() || QDir::isAbsolutePath(relPath))
        return false;
    return !relPath.split('/').contains("..");
}

} // namespace

VerificationReport BackupVerifier::run(const QString& root, const Progress& onProgress)
{
    const std::vector<Row> rows = recordedFiles(root);
    const QDir dir(root);
    VerificationReport report;
    int done = 0;
    for (const Row& row : rows) {
        ++report.files;
        const QString file = dir.filePath(row.relPath);
        if (!isInsideRoot(row.relPath)) {
            report.changed << row.relPath + ": the recorded path leaves the backup folder and was not followed";
        } else if (!QFileInfo(file).isFile()) {
            report.missing << row.relPath;
        } else if (row.status == Manifest::rawValue(Manifest::Status::duplicate)) {
            // A duplicate row points at the earlier file with the same content: it only has to exist.
            ++report.intact;
        } else {
            try {
                const DownloadResult actual = sha256OfFile(file);
                report.bytes += actual.size;
                if (actual.size != uint64_t(row.size))
                    report.changed << row.relPath + ": size " + QString::number(actual.size) + " bytes, recorded " +
                                          QString::number(row.size);
                else if (actual.sha256 != row.sha256)
                    report.changed << row.relPath + ": content differs from the recorded SHA-256";
                else
                    ++report.intact;
            } catch (const std::runtime_error& error) {
                report.changed << row.relPath + ": could not be read (" + QString::fromUtf8(error.what()) + ")";
            }
        }
        if (onProgress)
            onProgress(++done, int(rows.size()));
    }
    return report;
}
