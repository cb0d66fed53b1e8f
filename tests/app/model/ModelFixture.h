#pragma once

// What the model tests share: a desktop that answers as told and never blocks, waiting on the
// event loop for a condition, and a model with settings and a cache folder of its own.

#include "AppModel.h"
#include "Platform.h"
#include "RunProgram.h"
#include "TempDir.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSettings>
#include <QTimer>

#include <chrono>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>

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
    bool sheetAttached() override
    {
        ++sheetLooks;
        return sheetStaysAttached;
    }
    void terminate() override { ++terminations; }
};

// Sets an environment variable for as long as it lives.
class ScopedEnv {
public:
    ScopedEnv(const char* name, const QByteArray& value)
        : m_name(name), m_had(qEnvironmentVariableIsSet(name)), m_old(qgetenv(name))
    {
        qputenv(name, value);
    }
    ~ScopedEnv()
    {
        if (m_had)
            qputenv(m_name, m_old);
        else
            qunsetenv(m_name);
    }
    ScopedEnv(const ScopedEnv&) = delete;
    ScopedEnv& operator=(const ScopedEnv&) = delete;

private:
    const char* m_name;
    bool m_had;
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

// Lets every worker of the model return and applies what they delivered.
inline void settle(AppModel& model)
{
    for (int round = 0; round < 3; ++round) {
        model.waitForWorkers();
        QCoreApplication::processEvents();
    }
}

// A folder for the test, with the model's settings file and cache folder in it.
struct ModelSetup {
    TempDir dir;
    QSettings settings{dir.filePath("settings.ini"), QSettings::IniFormat};
    FakePlatform platform;

    ModelSetup() { qputenv("XDG_CACHE_HOME", dir.filePath("cache").toUtf8()); }

    std::unique_ptr<AppModel> model(std::chrono::milliseconds pollInterval = std::chrono::milliseconds(150))
    {
        return std::make_unique<AppModel>(AppModel::Setup{&platform, &settings, pollInterval});
    }
};

// Writes a phone with ombrelo-mkdevice (a dozen items in two albums, the iOS 17 layout) and returns
// its UDID.
inline QString makePhone(const QString& folder, int seed, const QString& name)
{
    const ProgramResult made =
        runProgram(OMBRELO_BIN_DIR "/ombrelo-mkdevice", {folder, "--generation", "ios17", "--assets", "12", "--albums",
                                                         "2", "--seed", QString::number(seed), "--name", name});
    if (made.exitCode != 0)
        throw std::runtime_error(made.describe().toStdString());
    return QJsonDocument::fromJson(readFile(folder + "/device.json")).object().value("udid").toString();
}

// Replaces the faults of a phone's device.json; the simulator applies them from its next listing.
inline void setFaults(const QString& folder, const QJsonObject& faults)
{
    QJsonObject device = QJsonDocument::fromJson(readFile(folder + "/device.json")).object();
    device.insert("faults", faults);
    writeFile(folder + "/device.json.new", QJsonDocument(device).toJson());
    // Renamed over the old one, so the simulator never reads half a file.
    if (std::rename(QFile::encodeName(folder + "/device.json.new").constData(),
                    QFile::encodeName(folder + "/device.json").constData()) != 0)
        throw std::runtime_error("cannot replace device.json");
}
