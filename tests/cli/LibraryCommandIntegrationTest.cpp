#include "CliRun.h"
#include "DeviceSimulator.h"
#include "PhotosDatabases.h"
#include "TempDir.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>

#include <gtest/gtest.h>

namespace {

// The media of a phone whose Photos database is a corpus database, log and all.
QMap<QString, QByteArray> photoData(const QString& corpusName, const TempDir& dir)
{
    const QString database = copyCorpusDatabase(corpusName, dir.filePath("corpus-" + corpusName));
    QMap<QString, QByteArray> media;
    for (const QString suffix : {"", "-wal", "-shm"})
        media.insert("/PhotoData/Photos.sqlite" + suffix, readFile(database + suffix));
    return media;
}

TEST(LibraryCommandIntegration, ReadsTheConnectedPhone)
{
    TempDir dir;
    qputenv("XDG_CACHE_HOME", dir.filePath("cache").toUtf8());
    const SimulatedPhone phone = simulatedPhone(1, "Anna's iPhone");
    const SimulatedPhone empty = simulatedPhone(2, "New iPhone");
    DeviceSimulator simulator({writeDeviceFolder(dir.filePath("phone"), phone, photoData("osxphotos-16.0.0-beta", dir)),
                               writeDeviceFolder(dir.filePath("empty"), empty, {{"/DCIM/.keep", ""}})});

    const QString cache = dir.filePath("cache") + "/Ombrelo/" + phone.udid;
    writeFile(cache + "/left-over.txt", "from an earlier run");
    const CliRun first = CliRun::of({"library"});
    EXPECT_EQ(first.code, 0) << first.err.toStdString();
    EXPECT_EQ(first.err, "Copying the Photos database of Anna's iPhone (iPhone15,3, iOS 17.5) into " + cache + "\n");
    // Three assets and two albums of this library are only in its log.
    EXPECT_TRUE(first.out.startsWith("Assets:      13\n")) << first.out.toStdString();
    EXPECT_TRUE(first.out.contains("\nAlbums:      7\nFolders:     3\n")) << first.out.toStdString();
    EXPECT_TRUE(QFileInfo(cache + "/Photos.sqlite").isFile());
    EXPECT_TRUE(QFileInfo::exists(cache + "/left-over.txt")) << "only the copy's own files are replaced";
    for (const QString file : {"Photos.sqlite ", "Photos.sqlite-wal ", "Photos.sqlite-shm "})
        EXPECT_EQ(simulator.log().count("FILE_OPEN /PhotoData/" + file), 1) << file.toStdString();

    const CliRun json = CliRun::of({"library", "--udid", phone.udid, "--json"});
    EXPECT_EQ(json.code, 0) << json.err.toStdString();
    EXPECT_EQ(QJsonDocument::fromJson(json.out.toUtf8())["assets"].toArray().size(), 13);

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
