#pragma once

// What the model tests share: a desktop that answers as told and never blocks, waiting on the
// event loop, and a folder with the model's settings, its cache folder, a backup folder and phones
// that are plugged in and out by moving them into and out of what a simulated USB service serves.

#include "AppModel.h"
#include "DeviceSimulator.h"
#include "PhoneBackup.h"
#include "Platform.h"
#include "TempDir.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QDir>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTimer>

#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>

using namespace std::chrono_literals;

// Records what the model asks of the desktop and answers as the test says.
class FakePlatform : public Platform {
public:
    std::optional<QString> folderAnswer;
    AlertButton alertAnswer = AlertButton::first;
    bool sheetStaysAttached = false;
    QList<FolderRequest> folderRequests;
    QList<AlertRequest> alerts;
    QStringList revealed;
    QList<bool> closable;
    int sheetLooks = 0;
    int terminations = 0;

    std::optional<QString> chooseFolder(const FolderRequest& request) override
    {
        folderRequests << request;
        return folderAnswer;
    }
    AlertButton ask(const AlertRequest& request) override
    {
        alerts << request;
        return alertAnswer;
    }
    void revealInFileManager(const QString& path) override { revealed << path; }
    void setWindowsClosable(bool flag) override { closable << flag; }
    bool sheetAttached() override { return ++sheetLooks, sheetStaysAttached; }
    void terminate() override { ++terminations; }
};

// Sets an environment variable for as long as it lives.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const QByteArray& value) : m_name(name), m_old(qgetenv(name)) { qputenv(name, value); }
    ~ScopedEnv() { m_old.isNull() ? qunsetenv(m_name) : qputenv(m_name, m_old); }

private:
    const char* m_name;
    QByteArray m_old;
};

// Runs the event loop until the condition holds; false when it did not within the time.
inline bool waitFor(const std::function<bool()>& condition, int timeoutMs = 30000)
{
    const QDeadlineTimer deadline(timeoutMs);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QEventLoop loop;
        QTimer::singleShot(5, &loop, &QEventLoop::quit);
        loop.exec();
    }
    return true;
}

struct ModelSetup {
    TempDir dir;
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};
    FakePlatform platform;
    QString devices = dir.filePath("devices");
    QString parked = dir.filePath("parked");
    QString backup = dir.filePath("backup");
    std::unique_ptr<DeviceSimulator> simulator;
    std::unique_ptr<AppModel> app; // goes before the simulator

    ModelSetup()
    {
        qputenv("XDG_CACHE_HOME", dir.filePath("cache").toUtf8());
        for (const QString& folder : {devices, parked, backup})
            QDir().mkpath(folder);
    }
    std::unique_ptr<AppModel> model(std::chrono::milliseconds pollInterval = 150ms)
    {
        return std::make_unique<AppModel>(AppModel::Setup{&platform, &settings, pollInterval});
    }

    // Writes an unplugged phone with ombrelo-mkdevice (a dozen items in two albums, iOS 17, and
    // these options) and returns its UDID.
    QString make(const QString& folder, int seed, const QString& name, const QStringList& options = {})
    {
        const ProgramResult made =
            makePhone(parked + "/" + folder, QStringList{"--generation", "ios17", "--assets", "12", "--albums", "2",
                                                         "--seed", QString::number(seed), "--name", name} +
                                                 options);
        if (made.exitCode != 0)
            throw std::runtime_error(made.describe().toStdString());
        return QJsonDocument::fromJson(readFile(at(folder) + "/device.json")).object().value("udid").toString();
    }
    QString at(const QString& folder) const { return (QDir(devices).exists(folder) ? devices : parked) + "/" + folder; }
    void plug(const QString& folder) { QDir().rename(parked + "/" + folder, devices + "/" + folder); }
    void unplug(const QString& folder) { QDir().rename(devices + "/" + folder, parked + "/" + folder); }
    void serve() { simulator = std::make_unique<DeviceSimulator>(DeviceSimulator::devicesDir, devices); }
    void setFaults(const QString& folder, const QJsonObject& faults) const { setDeviceFaults(at(folder), faults); }

    // One phone plugged in and loaded, with the backup folder chosen.
    bool connected(const QStringList& options = {})
    {
        make("phone", 3, "Test iPhone", options);
        plug("phone");
        serve();
        app = model();
        platform.folderAnswer = backup;
        app->chooseDestination();
        return loaded();
    }
    bool loaded()
    {
        return waitFor([&] { return app->libraryState() == LibraryState::loaded(); });
    }
    // Slows the phone's link, so that a run can be caught copying.
    bool slowLink(const QString& folder = "phone")
    {
        setFaults(folder, {{"bytesPerSecond", 300000}});
        return waitFor([&] { return simulator->log().contains("device.json changed"); });
    }
    RunPhase::Kind phase() const { return app->run() ? app->run()->phase.kind : RunPhase::Kind::preparing; }
    bool reaches(RunPhase::Kind kind)
    {
        return waitFor([&] { return app->run() && phase() == kind; }, 60000);
    }
    // Starts a backup of everything and confirms it once the dry run is done.
    bool confirmRun()
    {
        app->startBackup(true);
        if (!reaches(RunPhase::Kind::ready))
            return false;
        app->perform(false);
        return true;
    }
    // ... and waits until it has copied something.
    bool startCopying()
    {
        return confirmRun() && waitFor([&] { return app->run()->phase.progress.progress.assetsDone > 0; });
    }
    bool backUp() { return confirmRun() && reaches(RunPhase::Kind::finished); }
    // ombrelo-cli verify of the backup folder: 0 when every recorded file is there, whole.
    int verify() const { return runProgram(OMBRELO_BIN_DIR "/ombrelo-cli", {"verify", backup}).exitCode; }
};

// Lets every worker of the model return and applies what they delivered.
inline void settle(AppModel& model)
{
    for (int round = 0; round < 3; ++round) {
        model.waitForWorkers();
        QCoreApplication::processEvents();
    }
}
