#include "FolderSnapshot.h"
#include "PhoneBackup.h"
#include "backup/BackupFolderLock.h"
#include "backup/Manifest.h"

#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocale>
#include <QSet>

#include <gtest/gtest.h>

#include <cstdlib>
#include <unistd.h>

// verify on a real backup: clean as made; after a byte is flipped in one file, another is cut
// short and a third deleted, exactly those three are reported. It writes nothing, not even to the
// manifest. Then --repair puts back what is missing from the phone, and only that.
TEST(Verify, FindsDamageAndRepairPutsBackOnlyWhatIsMissing)
{
    PhoneBackup phone({"--assets", "30", "--seed", "41"});
    TempDir dest;
    ASSERT_EQ(phone.cli({"backup", "--all", "--yes", dest.path()}).exitCode, 0);
    const FolderSnapshot original = FolderSnapshot::take(dest.path());
    const ManifestRows rows = readManifestRows(dest.path());
    qint64 bytes = 0;
    QSet<QString> pointedAt; // files that "duplicate" rows also stand for
    for (const ManifestRow& row : rows) {
        if (row.status == "duplicate")
            pointedAt.insert(row.relPath);
        else
            bytes += row.size;
    }

    const ProgramResult clean = phone.cli({"verify", dest.path()});
    EXPECT_EQ(clean.exitCode, 0) << clean.describe().toStdString();
    const QString total = "Verified " + QString::number(rows.size()) + " files (" +
                          QLocale().formattedDataSize(bytes, 1, QLocale::DataSizeSIFormat) + "): ";
    EXPECT_EQ(QString::fromUtf8(clean.out), total + QString::number(rows.size()) + " intact, 0 missing, 0 changed\n");

    QStringList victims; // five copied files of more than one byte from five phone files, no duplicate row
                         // pointing at them
    QHash<QString, QString> sources;
    for (const ManifestRow& row : rows)
        if (row.status == "copied" && row.size > 1 && !pointedAt.contains(row.relPath) &&
            !victims.contains(row.relPath) && !sources.values().contains(row.sourcePath) && victims.size() < 5) {
            victims << row.relPath;
            sources.insert(row.relPath, row.sourcePath);
        }
    ASSERT_EQ(victims.size(), 5);
    const QString flipped = victims[0], truncated = victims[1], deleted = victims[2];
    {
        QFile file(dest.filePath(flipped));
        ASSERT_TRUE(file.open(QIODevice::ReadWrite));
        const qint64 middle = file.size() / 2;
        file.seek(middle);
        const char byte = file.read(1)[0];
        file.seek(middle);
        file.write(QByteArray(1, char(byte ^ 0x01)));
    }
    const qint64 truncatedSize = QFile(dest.filePath(truncated)).size();
    ASSERT_TRUE(QFile(dest.filePath(truncated)).resize(truncatedSize - 1));
    ASSERT_TRUE(QFile::remove(dest.filePath(deleted)));
    // A file whose times changed but not its content is intact.
    QFile touched(dest.filePath(rows.first().relPath));
    ASSERT_TRUE(touched.open(QIODevice::ReadWrite));
    ASSERT_TRUE(touched.setFileTime(QDateTime::currentDateTimeUtc(), QFileDevice::FileModificationTime));
    touched.close();

    const FolderSnapshot before = FolderSnapshot::take(dest.path());
    const ProgramResult damaged = phone.cli({"verify", dest.path()});
    EXPECT_EQ(damaged.exitCode, 1) << damaged.describe().toStdString();
    qint64 deletedSize = 0;
    for (const ManifestRow& row : rows)
        if (row.relPath == deleted)
            deletedSize = row.size;
    const QString flippedLine = "Changed: " + flipped + ": content differs from the recorded SHA-256\n";
    const QString truncatedLine = "Changed: " + truncated + ": size " + QString::number(truncatedSize - 1) +
                                  " bytes, recorded " + QString::number(truncatedSize) + "\n";
    EXPECT_EQ(QString::fromUtf8(damaged.out),
              "Verified " + QString::number(rows.size()) + " files (" +
                  QLocale().formattedDataSize(bytes - deletedSize - 1, 1, QLocale::DataSizeSIFormat) +
                  "): " + QString::number(rows.size() - 3) + " intact, 1 missing, 2 changed\n" + "Missing: " + deleted +
                  "\n" + (flipped < truncated ? flippedLine + truncatedLine : truncatedLine + flippedLine));

    const ProgramResult json = phone.cli({"verify", "--json", dest.path()});
    EXPECT_EQ(json.exitCode, 1);
    const QJsonObject object = QJsonDocument::fromJson(json.out).object();
    EXPECT_EQ(object["files"].toInt(), rows.size());
    EXPECT_EQ(object["intact"].toInt(), rows.size() - 3);
    EXPECT_EQ(object["missing"].toArray(), QJsonArray{deleted});
    EXPECT_EQ(object["changed"].toArray().size(), 2);
    EXPECT_EQ(FolderSnapshot::take(dest.path()), before) << "verify wrote something";

    // Two more files go missing: a link that leads nowhere takes one's name, and the phone's copy of
    // the other is edited. Only the deleted file comes back, as it was; nothing else changes.
    const QString linked = victims[3], editedOnPhone = victims[4];
    ASSERT_TRUE(QFile::remove(dest.filePath(linked)) && QFile::link(dest.filePath("nowhere"), dest.filePath(linked)));
    ASSERT_TRUE(QFile::remove(dest.filePath(editedOnPhone)));
    writeFile(phone.deviceFolder() + "/media" + sources[editedOnPhone], "edited on the phone");
    {
        const BackupFolderLock running(dest.path());
        const ProgramResult busy = phone.cli({"verify", "--repair", dest.path()});
        EXPECT_EQ(busy.exitCode, 3);
        EXPECT_EQ(busy.err,
                  "Another backup into this folder is running (process " + QByteArray::number(getpid()) + ").\n");
    }
    const FolderSnapshot beforeRepair = FolderSnapshot::take(dest.path());
    const ProgramResult repair = phone.cli({"verify", "--repair", dest.path()});
    EXPECT_EQ(repair.exitCode, 1) << repair.describe().toStdString();
    EXPECT_EQ(repair.lines("Restored"),
              QStringList({"Restored 1 of 3 missing files from the device.", "Restored: " + deleted}));
    QStringList notRestored = repair.lines("Not restored: ");
    notRestored.sort();
    QStringList expected{"Not restored: " + linked + ": something else is at that name now, and was left as it is",
                         "Not restored: " + editedOnPhone + ": " + sources[editedOnPhone] +
                             " on the device is no longer the file that was backed up (its SHA-256 differs)"};
    expected.sort();
    EXPECT_EQ(notRestored, expected);
    FolderSnapshot after = FolderSnapshot::take(dest.path());
    const FolderSnapshot::Entry restored = after.files.take(deleted);
    EXPECT_EQ(restored.sha256, original.files[deleted].sha256);
    EXPECT_LT(std::abs(restored.modifiedMs - original.files[deleted].modifiedMs), 2000) << "dated as backed up";
    EXPECT_EQ(after, beforeRepair);
}
