#include "BackupComparison.h"
#include "CliProcess.h"
#include "DeviceSimulator.h"
#include "PhoneBackup.h"
#include "backup/BackupEngine.h"
#include "backup/BackupFolderLock.h"
#include "backup/Manifest.h"
#include "checks/BackupVerifier.h"
#include "library/SQLiteDB.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <memory>
#include <stdexcept>

namespace {

const QStringList kBackup{"backup", "--all", "--yes"};

// A phone whose first file a backup copies is made large, and the first file of the next item
// larger still. Served slowly, copying that first item takes seconds: a signal sent once the phone
// starts sending it reaches the run while that item is the one being backed up, and the next
// item's file, fetched ahead meanwhile, would take far longer to arrive.
struct PhoneWithALargeFirstFile {
    PhoneWithALargeFirstFile() : phone({"--assets", "30", "--seed", "21"})
    {
        TempDir scratch;
        const ProgramResult run = phone.cli(kBackup + QStringList{scratch.path()});
        if (run.exitCode != 0)
            throw std::runtime_error(run.describe().toStdString());
        SQLiteDB manifest(scratch.filePath(Manifest::fileName), true, false);
        QString firstAsset;
        manifest.query("SELECT asset_uuid, source_path FROM files ORDER BY rowid", {}, [&](const SQLRow& row) {
            if (firstAsset.isEmpty()) {
                firstAsset = row.text(0).value_or("");
                largeFile = row.text(1).value_or("");
            } else if (nextFile.isEmpty() && row.text(0) != firstAsset) {
                nextFile = row.text(1).value_or("");
            }
        });
        if (largeFile.isEmpty() || nextFile.isEmpty())
            throw std::runtime_error("the phone has too few items");
        enlarge(largeFile, kBytes);
        enlarge(nextFile, kNextBytes);
    }

    // Runs a backup to its end, the phone at full speed.
    ProgramResult cli(const QStringList& arguments)
    {
        phone.setFaults({});
        return phone.cli(arguments);
    }

    // Starts a backup of the slow phone and returns once the phone is sending the large file.
    std::unique_ptr<CliProcess> startAndWaitForTheLargeFile(const QStringList& arguments)
    {
        phone.setFaults({{"bytesPerSecond", kBytesPerSecond}});
        auto run = std::make_unique<CliProcess>(PhoneBackup::cliPath(), arguments, phone.environment());
        const qsizetype logStart = phone.simulator().log().size();
        while (run->runFor(10) && !phone.simulator().log().mid(logStart).contains("FILE_OPEN " + largeFile + " "))
            ;
        return run;
    }

    void enlarge(const QString& devicePath, qint64 bytes)
    {
        QFile file(phone.deviceFolder() + "/media" + devicePath);
        if (!file.open(QIODevice::Append) || file.write(QByteArray(bytes, 'v')) != bytes)
            throw std::runtime_error("cannot enlarge a file of the phone");
    }

    static constexpr qint64 kBytesPerSecond = 2000000;
    static constexpr qint64 kBytes = 12000000;     // six seconds
    static constexpr qint64 kNextBytes = 30000000; // fifteen seconds
    PhoneBackup phone;
    QString largeFile; // device paths
    QString nextFile;
};

// Manifest rows per asset.
QHash<QString, int> rowsPerAsset(const QString& root)
{
    QHash<QString, int> rows;
    for (const ManifestRow& row : readManifestRows(root))
        ++rows[row.assetUUID];
    return rows;
}

QString lastLine(const QByteArray& output) { return QString::fromUtf8(output).trimmed().split('\n').last(); }

} // namespace

// Ctrl-C, or SIGTERM from a service manager, while a large file is being copied: the run abandons
// it and stops within two seconds with its summary and exit code 130, leaving nothing of it, and
// the report says it was cancelled. A second Ctrl-C ends the run at once. Either way every recorded
// file is intact, and the next run completes the same backup.
TEST(BackupInterrupt, CtrlCOrSigtermStopsWithinTwoSecondsASecondAtOnceAndTheNextRunCarriesOn)
{
    PhoneWithALargeFirstFile device;
    TempDir dirs;
    const QString reference = dirs.filePath("reference");
    QDir().mkpath(reference);
    const ProgramResult whole = device.cli(kBackup + QStringList{reference});
    ASSERT_EQ(whole.exitCode, 0) << whole.describe().toStdString();
    const QHash<QString, int> completeRows = rowsPerAsset(reference);

    for (const auto& [name, signal, twice] :
         {std::tuple{"SIGINT", SIGINT, false}, {"SIGTERM", SIGTERM, false}, {"SIGINT twice", SIGINT, true}}) {
        SCOPED_TRACE(name);
        const QString dest = dirs.filePath(name);
        const QString report = dest + ".json";
        QDir().mkpath(dest);
        auto run = device.startAndWaitForTheLargeFile(kBackup + QStringList{"--report", report, dest});
        ASSERT_TRUE(run->isRunning()) << run->finish().describe().toStdString();
        const qsizetype logStart = device.phone.simulator().log().size();
        EXPECT_TRUE(run->runFor(500)) << "the large file was sent before the signal";
        run->signal(signal);
        QElapsedTimer clock;
        clock.start();
        if (twice) {
            run->runFor(50); // two signals sent together would arrive as one
            run->signal(SIGINT);
            const ProgramResult stopped = run->finish(10);
            EXPECT_LT(clock.elapsed(), 1000) << "the large file takes more than a second more";
            EXPECT_EQ(stopped.exitCode, 130) << stopped;
            EXPECT_TRUE(
                stopped.err.endsWith("Stopped at once. The next backup carries on from the last finished file.\n"))
                << stopped;
        } else {
            const ProgramResult stopped = run->finish();
            EXPECT_LT(clock.elapsed(), 2000) << "the large file, which takes six seconds, was waited for";
            EXPECT_TRUE(device.phone.simulator().log().mid(logStart).contains("FILE_READ"))
                << "the large file was not being sent when the run stopped";
            EXPECT_EQ(stopped.exitCode, 130) << stopped;
            EXPECT_EQ(lastLine(stopped.out), "Cancelled before finishing.");
            EXPECT_TRUE(stopped.out.contains("\nFiles copied: ")) << stopped;
            EXPECT_TRUE(stopped.err.contains("Stopping; the file being copied is left for the next backup (press "
                                             "Ctrl-C again to stop at once)..."))
                << stopped;
            EXPECT_FALSE(QFileInfo::exists(dest + "/" + BackupEngine::tempFolderName));
            EXPECT_FALSE(QFileInfo::exists(dest + "/" + BackupFolderLock::fileName));
            const QJsonObject json = QJsonDocument::fromJson(readFile(report)).object();
            EXPECT_EQ(json["exitCode"].toInt(), 130);
            EXPECT_TRUE(json["cancelled"].toBool());
            EXPECT_EQ(json["lines"].toArray().last().toString(), "Cancelled before finishing.");
        }
        // Nothing of the abandoned file is recorded, and what is recorded is whole.
        EXPECT_LT(rowsPerAsset(dest).size(), completeRows.size());
        for (const ManifestRow& row : readManifestRows(dest))
            EXPECT_NE(row.sourcePath, device.largeFile);
        EXPECT_TRUE(BackupVerifier::run(dest).isClean());

        const ProgramResult next = device.cli(kBackup + QStringList{dest});
        EXPECT_EQ(next.exitCode, 0) << next.describe().toStdString();
        EXPECT_EQ(backupDifferences(reference, dest), QStringList());
        EXPECT_FALSE(QFileInfo::exists(dest + "/" + BackupFolderLock::fileName));
    }
}

// backup --wait, as a scheduled job or a udev-started service runs it: it waits for a phone, then
// for it to be unlocked, then backs it up. Ctrl-C while it waits ends it at once.
TEST(BackupWait, WaitsForAPhoneToBeConnectedAndUnlockedThenBacksItUp)
{
    TempDir dirs;
    const QString devices = dirs.filePath("devices");
    const QString dest = dirs.filePath("dest");
    QDir().mkpath(devices);
    QDir().mkpath(dest);
    DeviceSimulator simulator(DeviceSimulator::devicesDir, devices);
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert("USBMUXD_SOCKET_ADDRESS", simulator.socketAddress());
    environment.insert("XDG_CACHE_HOME", dirs.filePath("cache"));

    const QString waiting = "Waiting for an iPhone or iPad to be connected by USB...";
    {
        CliProcess givenUp(PhoneBackup::cliPath(), kBackup + QStringList{"--wait", dest}, environment);
        ASSERT_TRUE(givenUp.waitForOutput(waiting.toUtf8(), 30000)) << givenUp.finish().describe().toStdString();
        givenUp.signal(SIGINT);
        QElapsedTimer clock;
        clock.start();
        const ProgramResult ended = givenUp.finish(10);
        EXPECT_LT(clock.elapsed(), 1000) << "a stop request is answered at once while waiting";
        EXPECT_EQ(ended.exitCode, 130) << ended.describe().toStdString();
        EXPECT_EQ(lastLine(ended.out), "Cancelled before finishing.");
    }

    const QString phone = dirs.filePath("phone");
    const ProgramResult made =
        runProgram(OMBRELO_BIN_DIR "/ombrelo-mkdevice", {phone, "--assets", "10", "--seed", "4"});
    ASSERT_EQ(made.exitCode, 0) << made.describe().toStdString();
    QJsonObject device = QJsonDocument::fromJson(readFile(phone + "/device.json")).object();
    device["faults"] = QJsonObject{{"lockdownError", "PasswordProtected"}};
    writeFile(phone + "/device.json", QJsonDocument(device).toJson());

    CliProcess run(PhoneBackup::cliPath(), kBackup + QStringList{"--wait", dest}, environment);
    ASSERT_TRUE(run.waitForOutput(waiting.toUtf8(), 30000)) << run.finish().describe().toStdString();
    ASSERT_TRUE(QDir().rename(phone, devices + "/phone"));
    const QByteArray locked =
        "Waiting: " + device["udid"].toString().toUtf8() + ": The device is locked. Unlock it and try again.\n";
    ASSERT_TRUE(run.waitForOutput(locked, 30000)) << run.finish().describe().toStdString();
    EXPECT_FALSE(run.out().contains("Reading the Photos database"));

    // Unlocked: written aside and renamed, so the simulator never reads half a file.
    device["faults"] = QJsonObject{};
    writeFile(devices + "/phone/device.json.new", QJsonDocument(device).toJson());
    ASSERT_EQ(std::rename(QFile::encodeName(devices + "/phone/device.json.new").constData(),
                          QFile::encodeName(devices + "/phone/device.json").constData()),
              0);
    const ProgramResult done = run.finish(60);
    EXPECT_EQ(done.exitCode, 0) << done.describe().toStdString();
    EXPECT_TRUE(done.out.startsWith((waiting + "\n").toUtf8() + locked + "Device: ")) << done.out.toStdString();
    EXPECT_TRUE(done.out.contains("\nFiles copied: ")) << done.out.toStdString();
    EXPECT_TRUE(BackupVerifier::run(dest).isClean());
    EXPECT_GT(readManifestRows(dest).size(), 0);
}
