#include "CliRun.h"
#include "FolderSnapshot.h"
#include "PhoneBackup.h"
#include "TmpfsMount.h"
#include "backup/BackupFolderLock.h"
#include "backup/Manifest.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <functional>
#include <sys/stat.h>

// The backup's own files in a backup folder — the manifest, its journal, the lock and Qt's guard
// beside it — planted as links (to another backup's manifest, to new files outside), named pipes
// and folders. Every command that opens them refuses at once with one sentence, and nothing
// changes anywhere: not in the folder, not outside it, not in the other backup. The same for a file
// given as the backup folder and a disk too full to take the lock.
TEST(BackupFolderGuards, OwnFilesThatAreNotPlainFilesAreRefusedBeforeAnythingIsWritten)
{
    PhoneBackup phone({"--assets", "12", "--seed", "12"});
    TempDir dirs;
    const QString reference = dirs.filePath("reference");
    QDir().mkpath(reference);
    ASSERT_EQ(phone.cli({"backup", "--all", "--yes", reference}).exitCode, 0);
    const QString outside = dirs.filePath("outside");
    QDir().mkpath(outside);
    const QString journal = Manifest::fileName + Manifest::journalSuffix;
    const QString lock = BackupFolderLock::fileName;

    using Make = std::function<void(const QString&)>;
    const auto linkTo = [](const QString& target) -> Make {
        return [target](const QString& at) { QFile::link(target, at); };
    };
    const Make pipe = [](const QString& at) { ::mkfifo(QFile::encodeName(at).constData(), 0644); };
    const Make folder = [](const QString& at) { QDir().mkpath(at); };
    const QString aLink = "a link to another place";
    const struct {
        const char* what;
        QString name;
        Make make;
        QString is;
    } cases[] = {
        {"manifest linked to another backup's", Manifest::fileName, linkTo(reference + "/" + Manifest::fileName),
         aLink},
        {"manifest linked to a new file outside", Manifest::fileName, linkTo(outside + "/new.sqlite"), aLink},
        {"manifest a named pipe", Manifest::fileName, pipe, "a named pipe"},
        {"journal linked to a new file outside", journal, linkTo(outside + "/journal"), aLink},
        {"journal a named pipe", journal, pipe, "a named pipe"},
        {"journal a folder", journal, folder, "a folder"},
        {"lock a folder", lock, folder, "a folder"},
        {"lock linked outside", lock, linkTo(outside + "/lock"), aLink},
        {"lock's guard linked outside", lock + ".rmlock", linkTo(outside + "/guard"), aLink},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.what);
        const QString dest = dirs.filePath(c.what);
        QDir().mkpath(dest);
        if (c.name == journal) {
            const Manifest empty(dest); // a backup with nothing in it yet, which a run writes into
        }
        c.make(dest + "/" + c.name);
        const FolderSnapshot before = FolderSnapshot::take(dirs.path());
        const QString refusal = QString::fromUtf8("\u201c%1\u201d, where the backup keeps a file of its own, is %2, so "
                                                  "nothing was done and it was left as it is. Move it out of the "
                                                  "backup folder, then try again.\n")
                                    .arg(dest + "/" + c.name, c.is);
        QList<QStringList> commands{{"backup", "--all", "--yes", dest}};
        if (!c.name.startsWith(lock))
            commands << QStringList{"verify", dest} << QStringList{"tree", "--demo", "--dest", dest};
        for (const QStringList& command : commands) {
            const ProgramResult run = phone.cli(command, 20);
            EXPECT_EQ(run.exitCode, 3) << command.first().toStdString() << run.describe().toStdString();
            EXPECT_EQ(QString::fromUtf8(run.err), refusal) << command.first().toStdString();
        }
        EXPECT_EQ(FolderSnapshot::take(dirs.path()), before);
    }

    const QString file = dirs.filePath("a file");
    writeFile(file, "not a folder");
    for (const QStringList& command :
         {QStringList{"backup", "--all", file}, {"verify", file}, {"tree", "--demo", "--dest", file}}) {
        const CliRun run = CliRun::of(command);
        EXPECT_EQ(run.code, 3);
        EXPECT_EQ(run.err, QString::fromUtf8("\u201c%1\u201d is a file, not a folder. Give the path of the backup "
                                             "folder instead.\n")
                               .arg(file));
    }

    TmpfsMount disk(dirs.filePath("disk"), "256k");
    if (!disk.mounted())
        GTEST_SKIP() << "A full disk needs a tmpfs (as root): " << disk.error().toStdString();
    const QString full = disk.path() + "/backup";
    QDir().mkpath(full);
    {
        QFile filler(disk.path() + "/filler");
        ASSERT_TRUE(filler.open(QIODevice::WriteOnly));
        while (filler.write(QByteArray(4096, 'f')) == 4096 && filler.flush())
            ;
    }
    const ProgramResult run = phone.cli({"backup", "--all", "--yes", full});
    EXPECT_EQ(run.exitCode, 3) << run.describe().toStdString();
    EXPECT_EQ(QString::fromUtf8(run.err),
              QString::fromUtf8("The disk of the backup folder \u201c%1\u201d is full, so "
                                "nothing was done. Free some space on it, then try again.\n")
                  .arg(full));
    EXPECT_TRUE(QDir(full).isEmpty(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot));
}

// A report that would land inside the backup folder (a photo, the manifest, a link from outside to
// a photo, a path through "..") is refused before anything is done, and the folder is left as it is.
TEST(BackupFolderGuards, AReportIsNeverWrittenInsideTheBackupFolder)
{
    TempDir dirs;
    const QString dest = dirs.filePath("backup");
    const QString photo = dest + "/Camera Roll/IMG_0954.HEIC";
    writeFile(photo, "a photo");
    writeFile(dest + "/" + Manifest::fileName, "a manifest");
    QFile::link(photo, dirs.filePath("report.json"));
    QDir().mkpath(dirs.filePath("elsewhere"));
    const FolderSnapshot before = FolderSnapshot::take(dest);
    for (const QString& report : {photo, dest + "/" + Manifest::fileName, dirs.filePath("report.json"),
                                  dirs.filePath("elsewhere/../backup/new.json")}) {
        SCOPED_TRACE(report.toStdString());
        const CliRun run = CliRun::of({"backup", "--all", "--yes", "--report", report, dest});
        EXPECT_EQ(run.code, 2);
        EXPECT_EQ(run.err, QString::fromUtf8("The report \u201c%1\u201d would be written inside the backup folder "
                                             "\u201c%2\u201d, where it could replace a backed-up file. Give a path "
                                             "outside the backup folder.\n")
                               .arg(QFileInfo(report).absoluteFilePath(), dest));
        EXPECT_EQ(FolderSnapshot::take(dest), before);
    }
}
