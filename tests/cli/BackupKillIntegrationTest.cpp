#include "BackupComparison.h"
#include "CliProcess.h"
#include "FolderSnapshot.h"
#include "PhoneBackup.h"
#include "backup/BackupEngine.h"
#include "backup/BackupFolderLock.h"
#include "checks/BackupVerifier.h"
#include "library/SQLiteDB.h"
#include "library/SnapshotFolder.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QRegularExpression>

#include <gtest/gtest.h>

#include <algorithm>
#include <iostream>
#include <map>
#include <random>

namespace {

// What the system says now of the process a "(process N)" in `text` names: a refused run names the
// lock's owner, which should be gone.
QString processNamedIn(const QByteArray& text)
{
    const QRegularExpressionMatch match = QRegularExpression("process (\\d+)").match(QString::fromUtf8(text));
    if (!match.hasMatch())
        return "no process named";
    QFile status("/proc/" + match.captured(1) + "/status");
    if (!status.open(QIODevice::ReadOnly))
        return "process " + match.captured(1) + " no longer exists";
    return "/proc/" + match.captured(1) + "/status:\n" + QString::fromUtf8(status.readAll()).section('\n', 0, 8);
}

// Where a run was when it was killed.
enum class Phase { starting, database, dryRun, copying };

const char* name(Phase phase)
{
    static const char* const names[] = {"connecting", "reading the Photos database", "dry run", "copying"};
    return names[int(phase)];
}

// Told from what the run printed and what the phone served it: the database is read first, the
// dry run then lists the phone's folders, and "Dry run:" is printed when it is over.
Phase phaseOf(const QByteArray& out, const QString& servedToRun)
{
    if (out.contains("Dry run:"))
        return Phase::copying;
    if (servedToRun.contains(" READ_DIR "))
        return Phase::dryRun;
    if (servedToRun.contains("FILE_OPEN /PhotoData/Photos.sqlite"))
        return Phase::database;
    return Phase::starting;
}

qint64 databaseBytes(const QString& deviceFolder)
{
    qint64 bytes = 0;
    for (const char* name : {"Photos.sqlite", "Photos.sqlite-wal", "Photos.sqlite-shm"})
        bytes += QFileInfo(deviceFolder + "/media/PhotoData/" + name).size();
    return bytes;
}

} // namespace

// A backup killed (SIGKILL, no clean-up of any kind) at 50 moments spread over whole runs, and
// resumed each time, ends exactly like a backup that was never interrupted.
TEST(BackupKilled, FiftyTimesAtRandomMomentsThenResumedEqualsAnUninterruptedBackup)
{
    constexpr int kRate = 1000000; // bytes per second: the database alone takes a quarter second
    PhoneBackup phone({"--assets", "60", "--seed", "11"});
    phone.setFaults({{"bytesPerSecond", kRate}});
    const FolderSnapshot phoneBefore = FolderSnapshot::take(phone.deviceFolder());
    TempDir dirs;
    const QString reference = dirs.filePath("reference");
    const QString resumed = dirs.filePath("resumed");
    QDir().mkpath(reference);
    QDir().mkpath(resumed);
    const QStringList backup{"backup", "--all", "--yes"};

    // The uninterrupted backup, timed: until the database is being read, then until copying starts.
    QElapsedTimer clock;
    clock.start();
    CliProcess first(PhoneBackup::cliPath(), backup + QStringList{reference}, phone.environment());
    ASSERT_TRUE(first.waitForOutput("Reading the Photos database...", 60000))
        << first.finish().describe().toStdString();
    const qint64 connectMs = clock.elapsed();
    ASSERT_TRUE(first.waitForOutput("Dry run:", 60000)) << first.finish().describe().toStdString();
    const qint64 copyStartMs = clock.elapsed();
    const ProgramResult uninterrupted = first.finish();
    ASSERT_EQ(uninterrupted.exitCode, 0) << uninterrupted.describe().toStdString();
    const qint64 copyMs = clock.elapsed() - copyStartMs;
    // The throttle makes the database take at least this long, whatever the machine.
    const qint64 fetchMs = databaseBytes(phone.deviceFolder()) * 1000 / kRate;

    // Each row of the manifest is written right after one of these lines.
    const auto rowLines = [](const QByteArray& out) {
        return int(out.count("\nCopied ") + out.count("\nAlready in ") + out.count("\nAlready on disk, recorded: "));
    };
    const int referenceRows = int(readManifestRows(reference).size());
    ASSERT_EQ(rowLines(uninterrupted.out), referenceRows);
    ASSERT_GT(referenceRows, 100);
    const qint64 rowMs = copyMs / referenceRows;

    // 50 kills aimed at each part of a run, in random order; 32 of them spread over the copying: each
    // lets a run record a random number of files, on average its share of what is left, then kills
    // it at a random moment of the next one. So the kills walk through the whole copying, and the
    // last run still has some to do.
    const unsigned seed = 20240501;
    std::mt19937 random(seed);
    std::vector<Phase> aims;
    aims.insert(aims.end(), 5, Phase::starting);
    aims.insert(aims.end(), 8, Phase::database);
    aims.insert(aims.end(), 5, Phase::dryRun);
    aims.insert(aims.end(), 32, Phase::copying);
    std::shuffle(aims.begin(), aims.end(), random);
    const auto upTo = [&](qint64 most) {
        return int(std::uniform_int_distribution<qint64>(0, std::max<qint64>(most, 1))(random));
    };

    constexpr int kLeft = 15;
    int recorded = 0;
    int copyingAimsLeft = int(std::count(aims.begin(), aims.end(), Phase::copying));
    std::map<Phase, int> kills;
    int killCount = 0;
    qint64 lastKilled = 0;
    int endedBeforeTheKill = 0;
    for (size_t attempt = 0; killCount < 50 && attempt < 80; ++attempt) {
        const Phase aim = aims[size_t(killCount)];
        const qsizetype logStart = phone.simulator().log().size();
        // The copy of the database a run made is read again by the next; one aimed at the fetch
        // must find it out of date.
        if (aim == Phase::database)
            QFile::remove(phone.environment().value("XDG_CACHE_HOME") + "/Ombrelo/" + phone.udid() + "/" +
                          SnapshotFolder::recordName);
        CliProcess run(PhoneBackup::cliPath(), backup + QStringList{resumed}, phone.environment());
        switch (aim) {
        case Phase::starting:
            run.runFor(upTo(connectMs));
            break;
        case Phase::database:
            if (run.waitForOutput("Reading the Photos database...", 60000))
                run.runFor(upTo(fetchMs * 9 / 10));
            break;
        case Phase::dryRun:
            while (run.runFor(2) && !phone.simulator().log().mid(logStart).contains(" READ_DIR "))
                ;
            break;
        case Phase::copying:
            if (run.waitForOutput("Dry run:", 60000)) {
                // At least kLeft files stay to be copied after the aimed-for rows: on a busy
                // machine this test watches the run late, and a run that finishes the backup before
                // its kill leaves nothing for the copying aims after it.
                const int left = referenceRows - recorded - kLeft;
                const int rows = upTo(std::min(left, 2 * left / (copyingAimsLeft + 1)));
                while (rowLines(run.out()) < rows && run.runFor(2))
                    ;
                run.runFor(upTo(rowMs));
            }
            break;
        }
        if (!run.kill()) {
            // It ended by itself, quicker than its aim.
            const ProgramResult ended = run.finish();
            ASSERT_EQ(ended.exitCode, 0) << ended.describe().toStdString() << "\nthe run killed before had process id "
                                         << lastKilled << "; " << processNamedIn(ended.err).toStdString();
            ++endedBeforeTheKill;
            continue;
        }
        ++killCount;
        lastKilled = run.pid();
        ++kills[phaseOf(run.out(), phone.simulator().log().mid(logStart))];
        copyingAimsLeft -= aim == Phase::copying;

        // Whatever the moment, every file the manifest records is complete on disk, once the first
        // run got as far as making the manifest's tables.
        if (Manifest::exists(resumed)) {
            try {
                const VerificationReport check = BackupVerifier::run(resumed);
                ASSERT_TRUE(check.isClean()) << "after kill " << killCount << " (" << name(aim) << "):\n"
                                             << check.lines().join("\n").toStdString();
                recorded = check.files;
            } catch (const SQLiteError& error) {
                ASSERT_TRUE(error.message().startsWith("no such table: files")) << error.what();
            }
        }
    }
    ASSERT_EQ(killCount, 50) << endedBeforeTheKill << " runs ended before their kill";

    const ProgramResult last = phone.cli(backup + QStringList{resumed});
    ASSERT_EQ(last.exitCode, 0) << last.describe().toStdString();
    EXPECT_FALSE(QFileInfo::exists(resumed + "/" + BackupEngine::tempFolderName));
    EXPECT_FALSE(QFileInfo::exists(resumed + "/" + BackupFolderLock::fileName));
    const QStringList differences = backupDifferences(reference, resumed);
    EXPECT_TRUE(differences.isEmpty()) << differences.join("\n").toStdString();
    const ProgramResult verify = phone.cli({"verify", resumed});
    EXPECT_EQ(verify.exitCode, 0) << verify.describe().toStdString();
    EXPECT_TRUE(verify.out.contains(" intact, 0 missing, 0 changed")) << verify.out.toStdString();
    EXPECT_EQ(FolderSnapshot::take(phone.deviceFolder()), phoneBefore) << "the phone was changed";

    // Every part of a run was hit: the figures are printed for the reliability notes.
    std::cout << "Killed " << killCount << " times (seed " << seed << "; " << endedBeforeTheKill
              << " more runs ended before their kill):";
    for (const auto& [phase, count] : kills)
        std::cout << " " << count << " " << name(phase) << ";";
    int adopted = 0;
    for (const ManifestRow& row : readManifestRows(resumed))
        adopted += row.status == "adopted";
    std::cout << " " << adopted << " files were found complete under their name after a kill and adopted;"
              << " the last run recorded " << rowLines(last.out) << " of " << referenceRows
              << " files. Uninterrupted run " << (copyStartMs + copyMs) / 1000.0 << " s, whole test "
              << clock.elapsed() / 1000.0 << " s.\n";
    EXPECT_GE(kills[Phase::database], 3);
    EXPECT_GE(kills[Phase::dryRun], 1);
    EXPECT_GE(kills[Phase::copying], 20);
}
