#include "BackupComparison.h"
#include "CliProcess.h"
#include "FolderSnapshot.h"
#include "PhoneBackup.h"
#include "PhotosDatabases.h"
#include "TmpfsMount.h"
#include "backup/BackupEngine.h"
#include "backup/BackupFolderLock.h"
#include "backup/Manifest.h"
#include "checks/BackupVerifier.h"
#include "library/SQLiteDB.h"

#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QSet>

#include <gtest/gtest.h>

#include <algorithm>
#include <sys/stat.h>

namespace {

const QStringList kBackup{"backup", "--all", "--yes"};

QStringList arguments(const QStringList& head, const QString& dest) { return head + QStringList{dest}; }

// A new folder in `dirs`.
QString newFolder(const TempDir& dirs, const QString& name)
{
    QDir().mkpath(dirs.filePath(name));
    return dirs.filePath(name);
}

// A backup of the whole phone that nothing disturbed, to hold the others against.
QString referenceBackup(const PhoneBackup& phone, const TempDir& dirs)
{
    const QString reference = newFolder(dirs, "reference");
    const ProgramResult run = phone.cli(arguments(kBackup, reference));
    if (run.exitCode != 0)
        throw std::runtime_error(run.describe().toStdString());
    return reference;
}

// What a run that broke off must leave: no temporary folder, no file under the backup folder (the
// manifest aside) that is not a complete copy of a phone file, every recorded file intact.
void expectNothingHalfDone(const QString& dest, const PhoneBackup& phone)
{
    EXPECT_FALSE(QFileInfo::exists(dest + "/" + BackupEngine::tempFolderName));
    QSet<QString> complete;
    for (const FolderSnapshot::Entry& file : FolderSnapshot::take(phone.deviceFolder() + "/media").files)
        complete.insert(file.sha256);
    const FolderSnapshot snapshot = FolderSnapshot::take(dest);
    for (auto it = snapshot.files.cbegin(); it != snapshot.files.cend(); ++it)
        EXPECT_TRUE(it.key().startsWith(Manifest::fileName) || complete.contains(it->sha256))
            << "partial file " << it.key().toStdString();
    const VerificationReport report = BackupVerifier::run(dest);
    EXPECT_TRUE(report.isClean()) << report.lines().join("\n").toStdString();
}

} // namespace

// One backup per folder: a second run into a folder that a run is copying into ends at once,
// before it reads the phone, and the first run is not disturbed. Started together, one of two runs
// copies and the other is refused.
TEST(BackupFaults, OneBackupPerFolderAtATime)
{
    PhoneBackup phone({"--assets", "30", "--seed", "5"});
    TempDir dirs;
    const QString reference = referenceBackup(phone, dirs);
    const QString shared = newFolder(dirs, "shared");

    // A slow phone keeps the first run copying while the others try.
    phone.setFaults({{"bytesPerSecond", 300000}});
    CliProcess first(PhoneBackup::cliPath(), arguments(kBackup, shared), phone.environment());
    ASSERT_TRUE(first.waitForOutput("Copied ", 60000)) << first.finish().describe().toStdString();
    const QString expected =
        "Another backup into this folder is running (process " + QString::number(first.pid()) + ").\n";
    const qsizetype servedBefore = phone.simulator().log().count("FILE_OPEN /PhotoData/Photos.sqlite ");
    QElapsedTimer clock;
    clock.start();
    const ProgramResult second = phone.cli(arguments(kBackup, shared));
    const qint64 secondMs = clock.elapsed();
    EXPECT_EQ(second.exitCode, 3) << second.describe().toStdString();
    EXPECT_EQ(QString::fromUtf8(second.err), expected);
    EXPECT_EQ(second.out, "") << "the refused run must not even read the phone";
    EXPECT_EQ(phone.simulator().log().count("FILE_OPEN /PhotoData/Photos.sqlite "), servedBefore);
    EXPECT_LT(secondMs, 5000);
    // A dry run changes nothing, so it may look at the folder meanwhile.
    const ProgramResult look = phone.cli(arguments({"backup", "--all", "--dry-run"}, shared));
    EXPECT_EQ(look.exitCode, 0) << look.describe().toStdString();
    EXPECT_TRUE(first.isRunning()) << "the phone is throttled so that the first run is still copying";

    const ProgramResult firstEnd = first.finish();
    ASSERT_EQ(firstEnd.exitCode, 0) << firstEnd.describe().toStdString();
    EXPECT_TRUE(firstEnd.lines("ERROR").isEmpty()) << firstEnd.out.toStdString();
    EXPECT_EQ(backupDifferences(reference, shared), QStringList());
    EXPECT_FALSE(QFileInfo::exists(shared + "/" + BackupFolderLock::fileName));

    // Two runs started together into a new folder: exactly one copies. The other is refused, or,
    // when a busy machine held it back until the first had finished, finds nothing left to copy.
    const QString together = newFolder(dirs, "together");
    CliProcess a(PhoneBackup::cliPath(), arguments(kBackup, together), phone.environment());
    CliProcess b(PhoneBackup::cliPath(), arguments(kBackup, together), phone.environment());
    const ProgramResult endA = a.finish();
    const ProgramResult endB = b.finish();
    const bool aCopied = !endA.lines("Copied ").isEmpty();
    const ProgramResult& copier = aCopied ? endA : endB;
    const ProgramResult& other = aCopied ? endB : endA;
    EXPECT_EQ(copier.exitCode, 0) << copier.describe().toStdString();
    EXPECT_FALSE(copier.lines("Copied ").isEmpty()) << copier.describe().toStdString();
    EXPECT_TRUE(other.lines("Copied ").isEmpty()) << other.describe().toStdString();
    if (other.exitCode != 0) {
        EXPECT_EQ(other.exitCode, 3) << other.describe().toStdString();
        EXPECT_EQ(QString::fromUtf8(other.err), "Another backup into this folder is running (process " +
                                                    QString::number((aCopied ? a : b).pid()) + ").\n");
    }
    EXPECT_EQ(backupDifferences(reference, together), QStringList());
}

// Takes all the free space of the disk that holds `filler` but `freeBytes`.
void fillDiskLeaving(const QString& filler, qint64 freeBytes)
{
    QFile file(filler);
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    const QByteArray block(64 * 1024, 'f');
    while (file.write(block) == block.size())
        ;
    file.close();
    ASSERT_TRUE(file.resize(std::max<qint64>(0, file.size() - freeBytes)));
}

// The space the files of a folder take on disk.
qint64 diskUsage(const QString& root)
{
    qint64 bytes = 0;
    QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
    while (it.hasNext()) {
        struct stat info {};
        if (::stat(QFile::encodeName(it.next()).constData(), &info) == 0)
            bytes += qint64(info.st_blocks) * 512;
    }
    return bytes;
}

// A full disk, twice: without room for a large video alone, then full half-way through a backup,
// so that not even the manifest can grow. Each item that cannot be written or recorded fails with
// the system's reason (the video among them the first time), what was recorded is what an
// undisturbed run records, nothing half-written is left, and once space is freed the next run
// completes the backup without changing what was recorded.
TEST(BackupFaults, FullDiskFailsWhatDoesNotFitAndTheRunAfterFreeingSpaceCompletes)
{
    TempDir dirs;
    PhoneBackup phone({"--assets", "30", "--seed", "6"});
    const PhoneAnswerKey::Asset* video = nullptr;
    for (const PhoneAnswerKey::Asset& asset : phone.answerKey().assets)
        if (!video && asset.isVideo && asset.category == "library" && !asset.isHidden && !asset.files.isEmpty())
            video = &asset;
    ASSERT_NE(video, nullptr);
    const qint64 videoBytes = 2000000;
    {
        QFile file(phone.deviceFolder() + "/media" + video->files.first().path);
        ASSERT_TRUE(file.open(QIODevice::Append));
        file.write(QByteArray(videoBytes - file.size(), 'v'));
    }
    const QString reference = referenceBackup(phone, dirs);
    const ManifestRows referenceRows = readManifestRows(reference);
    int videoCopies = 0;
    for (const ManifestRow& row : referenceRows)
        videoCopies += row.assetUUID == video->uuid && row.status == "copied" && row.size == videoBytes;
    ASSERT_GT(videoCopies, 0);
    const qint64 backupBytes = diskUsage(reference);
    TmpfsMount disk(dirs.filePath("disk"), QString::number((backupBytes + 2000000) / 1024) + "k");
    if (!disk.mounted())
        GTEST_SKIP() << "This test needs to mount a tmpfs (as root): " << disk.error().toStdString();

    const struct {
        const char* what;
        qint64 freeBytes;
        bool videoFails;
    } fills[] = {
        {"room for all but the video", backupBytes - videoCopies * videoBytes + videoBytes / 2, true},
        {"room for half the backup", backupBytes / 2, false},
    };
    const QString dest = disk.path() + "/backup";
    for (const auto& fill : fills) {
        SCOPED_TRACE(fill.what);
        QDir(dest).removeRecursively();
        QDir().mkpath(dest);
        fillDiskLeaving(disk.path() + "/filler", fill.freeBytes);
        const ProgramResult full = phone.cli(arguments(kBackup, dest));
        EXPECT_EQ(full.exitCode, 1) << full.describe().toStdString();
        // Downloads run a few items ahead of the one being written, so the items whose downloads
        // were waiting when the disk filled fail with it; each says why.
        const QStringList errors = full.lines("ERROR ");
        ASSERT_FALSE(errors.isEmpty()) << full.describe().toStdString();
        for (const QString& error : errors)
            EXPECT_TRUE(error.contains("No space left on device") || error.contains("database or disk is full"))
                << error.toStdString();
        EXPECT_TRUE(full.out.contains(("\nErrors: " + QString::number(errors.size()) + "\n").toUtf8()))
            << full.out.toStdString();
        if (fill.videoFails) {
            EXPECT_FALSE(full.lines("ERROR " + video->displayName() + ": ").isEmpty()) << full.describe().toStdString();
        }

        expectNothingHalfDone(dest, phone);
        const ManifestRows recorded = readManifestRows(dest);
        EXPECT_GT(recorded.size(), 0) << "some files fit";
        for (const ManifestRow& row : recorded) {
            EXPECT_TRUE(referenceRows.contains(row)) << row.relPath.toStdString();
            EXPECT_TRUE(!fill.videoFails || row.assetUUID != video->uuid) << "the video did not fit";
        }

        ASSERT_TRUE(QFile::remove(disk.path() + "/filler"));
        const ProgramResult after = phone.cli(arguments(kBackup, dest));
        EXPECT_EQ(after.exitCode, 0) << after.describe().toStdString();
        EXPECT_EQ(backupDifferences(reference, dest), QStringList());
        const ManifestRows finalRows = readManifestRows(dest);
        for (const ManifestRow& row : recorded)
            EXPECT_TRUE(finalRows.contains(row)) << "a row recorded before the disk was full changed";
    }
}

// A backup folder that cannot be written into: a clear error at once, and nothing changes.
TEST(BackupFaults, ReadOnlyBackupFolderIsRefusedAndLeftAsItWas)
{
    TempDir dirs;
    TmpfsMount disk(dirs.filePath("disk"), "8m");
    if (!disk.mounted())
        GTEST_SKIP() << "This test needs to mount a tmpfs (as root): " << disk.error().toStdString();
    PhoneBackup phone({"--assets", "20", "--seed", "7"});
    const QString dest = disk.path() + "/backup";
    QDir().mkpath(dest);
    ASSERT_EQ(phone.cli(arguments({"backup", "--folder", "camera-roll", "--yes"}, dest)).exitCode, 0);
    const FolderSnapshot before = FolderSnapshot::take(dest);

    ASSERT_TRUE(disk.setReadOnly(true));
    const ProgramResult readOnly = phone.cli(arguments(kBackup, dest));
    EXPECT_EQ(readOnly.exitCode, 3) << readOnly.describe().toStdString();
    EXPECT_EQ(QString::fromUtf8(readOnly.err),
              QString::fromUtf8("The backup folder \u201c%1\u201d cannot be locked for this run. "
                                "Check that it is writable.\n")
                  .arg(dest));
    EXPECT_EQ(FolderSnapshot::take(dest), before);
    ASSERT_TRUE(disk.setReadOnly(false));
}

// The phone goes wrong between and during runs: the cable is pulled in the middle of a file, then
// the phone is locked, then its media service refuses. Each time the user gets the phone's own
// reason, the folder keeps everything it had, and once the phone is fine the backup completes.
TEST(BackupFaults, PhoneTroubleMidBackupLosesNothing)
{
    PhoneBackup phone({"--assets", "30", "--seed", "8"});
    TempDir dirs;
    const QString reference = referenceBackup(phone, dirs);
    const QString dest = newFolder(dirs, "dest");

    // A read the phone cuts short while calling it a success (as libimobiledevice does after a
    // freeze): the file is not placed and not recorded, so the next run copies it whole.
    const auto library = std::find_if(phone.answerKey().assets.cbegin(), phone.answerKey().assets.cend(),
                                      [](const PhoneAnswerKey::Asset& asset) { return asset.category == "library"; });
    const PhoneAnswerKey::File& cut = library->files.first();
    phone.setFaults({{"failPaths", QJsonObject{{cut.path, QJsonObject{{"endAfterBytes", 1000}}}}}});
    const QString cutShort = newFolder(dirs, "cut short");
    const ProgramResult shortened = phone.cli(arguments(kBackup, cutShort));
    EXPECT_EQ(shortened.exitCode, 1) << shortened.describe().toStdString();
    EXPECT_EQ(shortened.lines("ERROR ").filter(QString("the device sent 1000 of its %1 bytes").arg(cut.size)).size(), 1)
        << shortened.describe().toStdString();
    for (const ManifestRow& row : readManifestRows(cutShort))
        EXPECT_NE(row.sourcePath, cut.path) << row.relPath.toStdString();
    expectNothingHalfDone(cutShort, phone);

    // A few files get through, then the cable is pulled: the items being copied fail with the
    // phone's reason, and after a few in a row the run ends with one line instead of failing every
    // item left, and exits as a failed run.
    phone.setFaults({{"dropAfterBytes", 50000}});
    const ProgramResult pulled = phone.cli(arguments(kBackup, dest));
    EXPECT_EQ(pulled.exitCode, 3) << pulled.describe().toStdString();
    const QStringList errors = pulled.lines("ERROR ");
    ASSERT_FALSE(errors.isEmpty()) << pulled.describe().toStdString();
    EXPECT_LE(errors.size(), 3) << pulled.describe().toStdString();
    EXPECT_TRUE(errors.first().contains(" from device: the connection to the device was lost"))
        << errors.first().toStdString();
    EXPECT_EQ(errors.last(), "ERROR The device stopped responding. Check the cable, unlock it, and run the backup "
                             "again: it carries on where it stopped.");
    EXPECT_TRUE(pulled.out.endsWith(("\nErrors: " + QString::number(errors.size()) + "\n").toUtf8()))
        << pulled.describe().toStdString();
    EXPECT_GT(readManifestRows(dest).size(), 0) << pulled.describe().toStdString();
    expectNothingHalfDone(dest, phone);

    const FolderSnapshot before = FolderSnapshot::take(dest);
    phone.setFaults({{"lockdownError", "PasswordProtected"}});
    const ProgramResult locked = phone.cli(arguments(kBackup, dest));
    EXPECT_EQ(locked.exitCode, 3) << locked.describe().toStdString();
    EXPECT_EQ(locked.err, "The device is locked. Unlock it and try again.\n");
    EXPECT_EQ(FolderSnapshot::take(dest), before);

    phone.setFaults({{"startServiceError", "InvalidService"}});
    const ProgramResult refused = phone.cli(arguments(kBackup, dest));
    EXPECT_EQ(refused.exitCode, 3) << refused.describe().toStdString();
    EXPECT_EQ(refused.err, "The device refused the connection (lockdown error -27).\n");
    EXPECT_EQ(FolderSnapshot::take(dest), before);

    phone.setFaults({});
    const ProgramResult fine = phone.cli(arguments(kBackup, dest));
    EXPECT_EQ(fine.exitCode, 0) << fine.describe().toStdString();
    EXPECT_EQ(backupDifferences(reference, dest), QStringList());
    EXPECT_EQ(phone.cli(arguments(kBackup, cutShort)).exitCode, 0);
    EXPECT_EQ(backupDifferences(reference, cutShort), QStringList());
}

// A manifest that is damaged (random bytes, cut short) or is another program's SQLite database:
// the run stops with a clear error before copying anything, and the file stays as it was.
TEST(BackupFaults, DamagedOrForeignManifestIsReportedAndLeftAlone)
{
    PhoneBackup phone({"--assets", "20", "--seed", "9"});
    TempDir dirs;
    const QByteArray manifest = readFile(referenceBackup(phone, dirs) + "/" + Manifest::fileName);

    QByteArray noise(8192, Qt::Uninitialized);
    QRandomGenerator(3).fillRange(reinterpret_cast<quint32*>(noise.data()), noise.size() / 4);
    const QString foreignPath = dirs.filePath("foreign.sqlite");
    {
        SQLiteDB foreign(foreignPath, false, true);
        foreign.execute("CREATE TABLE notes(id INTEGER PRIMARY KEY, text TEXT)");
        foreign.execute("INSERT INTO notes(text) VALUES('shopping list')");
    }
    const struct {
        const char* what;
        QByteArray content;
        const char* detail; // SQLite's reason, as the error quotes it
    } cases[] = {
        {"random bytes", noise, "(SQLite: file is not a database"},
        {"cut short", manifest.left(manifest.size() / 2), "malformed"},
        {"another program's database", readFile(foreignPath), "(tables notes), not a backup manifest)"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const QString dest = dirs.filePath(c.what);
        writeFile(dest + "/" + Manifest::fileName, c.content);
        const FolderSnapshot before = FolderSnapshot::take(dest);
        const ProgramResult run = phone.cli(arguments(kBackup, dest));
        EXPECT_EQ(run.exitCode, 3) << run.describe().toStdString();
        const QString expected =
            QString::fromUtf8("The manifest \u201c%1\u201d of this backup folder is damaged or is not an Ombrelo "
                              "manifest, so nothing was done; the file was left as it is. (")
                .arg(dest + "/" + Manifest::fileName);
        EXPECT_TRUE(run.err.startsWith(expected.toUtf8())) << run.describe().toStdString();
        EXPECT_TRUE(run.err.contains(c.detail)) << run.describe().toStdString();
        EXPECT_EQ(run.out, "") << "nothing is read from the phone either";
        EXPECT_EQ(FolderSnapshot::take(dest), before);
        EXPECT_EQ(QDir(dest).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                  QStringList{Manifest::fileName});
        EXPECT_EQ(phone.cli({"verify", dest}).exitCode, 3);
        EXPECT_EQ(FolderSnapshot::take(dest), before);
    }
}

// A Photos database that is damaged on the phone: the copy is fetched three times, then the run
// stops with SQLite's integrity-check text, and the backup folder is not touched.
TEST(BackupFaults, DamagedPhotosDatabaseStopsTheRunAfterThreeAttempts)
{
    TempDir dirs;
    const QString folder = dirs.filePath("phone");
    const ProgramResult made = makePhone(folder, {"--assets", "20", "--seed", "10"});
    ASSERT_EQ(made.exitCode, 0) << made.describe().toStdString();
    const QString database = folder + "/media/PhotoData/Photos.sqlite";
    {
        // Fold the log into the file first, so the damage cannot be hidden by a newer page in it.
        SQLiteDB db(database, false, false);
        db.execute("PRAGMA wal_checkpoint(TRUNCATE)");
    }
    damageBtree(database, "ZASSET_ZDATECREATED_INDEX");
    PhoneBackup phone(PhoneBackup::Folder{folder});
    const QString dest = newFolder(dirs, "dest");

    const ProgramResult run = phone.cli(arguments(kBackup, dest));
    EXPECT_EQ(run.exitCode, 3) << run.describe().toStdString();
    // Each failed attempt is logged; the last one's error ends the run.
    EXPECT_TRUE(run.err.contains("failed (attempt 2 of 3): SQLite: copied database failed integrity check: "))
        << run.describe().toStdString();
    EXPECT_TRUE(("\n" + run.err).contains("\nSQLite: copied database failed integrity check: "))
        << run.describe().toStdString();
    EXPECT_EQ(phone.simulator().log().count("FILE_OPEN /PhotoData/Photos.sqlite "), 3);
    EXPECT_EQ(QDir(dest).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot), QStringList());
}

// A damaged library that gives two items, or two albums, the same identifier: every item's files
// and every album's folder are backed up all the same, and both the backup and the tree say so.
TEST(BackupFaults, SharedIdentifiersInADamagedLibraryLoseNothing)
{
    TempDir dirs;
    const QStringList options{"--assets", "40", "--seed", "12", "--generation", "ios17"};
    const QString reference = referenceBackup(PhoneBackup(options), dirs);

    const QString folder = dirs.filePath("phone");
    const ProgramResult made = makePhone(folder, options);
    ASSERT_EQ(made.exitCode, 0) << made.describe().toStdString();
    {
        SQLiteDB db(folder + "/media/PhotoData/Photos.sqlite", false, false);
        db.execute("PRAGMA wal_checkpoint(TRUNCATE)");
        const auto giveTheFirstsIdentifierToTheSecond = [&](const QString& table, const QString& which) {
            const QString nth = "SELECT Z_PK FROM " + table + " WHERE " + which + " ORDER BY Z_PK LIMIT 1 OFFSET %1";
            db.execute("UPDATE " + table + " SET ZUUID = (SELECT ZUUID FROM " + table + " WHERE Z_PK = (" + nth.arg(0) +
                       ")) WHERE Z_PK = (" + nth.arg(1) + ")");
        };
        giveTheFirstsIdentifierToTheSecond("ZASSET", "ZTRASHEDSTATE = 0 AND ZHIDDEN = 0");
        giveTheFirstsIdentifierToTheSecond("ZGENERICALBUM", "ZKIND = 2");
    }
    PhoneBackup phone(PhoneBackup::Folder{folder});
    const QString dest = newFolder(dirs, "dest");

    const ProgramResult run = phone.cli(arguments(kBackup, dest));
    EXPECT_EQ(run.exitCode, 0) << run.describe().toStdString();
    // The same files and folders as the intact phone's backup (only the manifest's keys differ).
    const auto files = [](const QString& root) {
        QStringList files;
        const FolderSnapshot snapshot = FolderSnapshot::take(root);
        for (auto file = snapshot.files.cbegin(); file != snapshot.files.cend(); ++file)
            if (!file.key().startsWith(Manifest::fileName))
                files << file.key() + " " + file->sha256;
        return files;
    };
    EXPECT_EQ(files(dest), files(reference));
    const QStringList warnings = run.lines("WARNING ").filter("the same identifier");
    ASSERT_EQ(warnings.size(), 2) << run.describe().toStdString();
    EXPECT_TRUE(warnings[0].startsWith("WARNING The Photos library gives the items ")) << warnings[0].toStdString();
    EXPECT_TRUE(warnings[1].startsWith("WARNING The Photos library gives the albums ")) << warnings[1].toStdString();

    const ProgramResult tree = phone.cli({"tree", "--dest", dest});
    EXPECT_EQ(tree.lines("WARNING ").filter("the same identifier"), warnings) << tree.describe().toStdString();
}
