#include "CliRun.h"
#include "DeviceSimulator.h"
#include "PhoneBackup.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

// `library` copies the phone's database, with the log that holds its latest changes, into the
// phone's cache folder (emptied first) and reads it there.
TEST(LibraryCommandIntegration, ReadsTheConnectedPhone)
{
    TempDir dir;
    qputenv("XDG_CACHE_HOME", dir.filePath("cache").toUtf8());
    const QString phone = dir.filePath("phone");
    ASSERT_EQ(
        makePhone(phone, {"--assets", "40", "--files", "none", "--answer-key", dir.filePath("key.json")}).exitCode, 0);
    const PhoneAnswerKey key = PhoneAnswerKey::read(dir.filePath("key.json"));
    const QJsonObject device = QJsonDocument::fromJson(readFile(phone + "/device.json")).object();
    const SimulatedPhone empty = simulatedPhone(2, "New iPhone");
    DeviceSimulator simulator({phone, writeDeviceFolder(dir.filePath("empty"), empty, {{"/DCIM/.keep", ""}})});

    const QString cache = dir.filePath("cache") + "/Ombrelo/" + device["udid"].toString();
    writeFile(cache + "/left-over.txt", "from an earlier run");
    const CliRun first = CliRun::of({"library"});
    EXPECT_EQ(first.code, 0) << first.err.toStdString();
    EXPECT_EQ(first.err, QString("Copying the Photos database of %1 (%2, iOS %3) into %4\n")
                             .arg(device["name"].toString(), device["productType"].toString(),
                                  device["productVersion"].toString(), cache));
    int albums = 0, folders = 0;
    for (const PhoneAnswerKey::Album& album : key.albums) {
        albums += album.kind == 2;
        folders += album.kind == 4000;
    }
    EXPECT_TRUE(first.out.startsWith(QString("Assets:      %1\n").arg(key.assets.size()))) << first.out.toStdString();
    EXPECT_TRUE(first.out.contains(QString("\nAlbums:      %1\nFolders:     %2\n").arg(albums).arg(folders)))
        << first.out.toStdString();
    EXPECT_TRUE(QFileInfo(cache + "/Photos.sqlite").isFile());
    EXPECT_TRUE(QFileInfo::exists(cache + "/left-over.txt")) << "only the copy's own files are replaced";
    for (const QString file : {"Photos.sqlite ", "Photos.sqlite-wal ", "Photos.sqlite-shm "})
        EXPECT_EQ(simulator.log().count("FILE_OPEN /PhotoData/" + file), 1) << file.toStdString();

    const CliRun json = CliRun::of({"library", "--udid", device["udid"].toString(), "--json"});
    EXPECT_EQ(json.code, 0) << json.err.toStdString();
    EXPECT_EQ(QJsonDocument::fromJson(json.out.toUtf8())["assets"].toArray().size(), key.assets.size());

    const CliRun missing = CliRun::of({"library", "--udid", empty.udid});
    EXPECT_EQ(missing.code, 3);
    EXPECT_EQ(missing.out, "");
    EXPECT_TRUE(missing.err.endsWith("\nNot found on device: /PhotoData/Photos.sqlite\n")) << missing.err.toStdString();

    const CliRun unknown = CliRun::of({"library", "--udid", simulatedUdid(9)});
    EXPECT_EQ(unknown.code, 3);
    EXPECT_EQ(unknown.err, "Could not connect to the device: device " + simulatedUdid(9) + " not found\n");
    qunsetenv("XDG_CACHE_HOME");
}

} // namespace
