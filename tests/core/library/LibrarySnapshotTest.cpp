#include "library/LibrarySnapshot.h"
#include "FakeMediaSource.h"
#include "PhotosDatabases.h"
#include "TempDir.h"
#include "device/MediaSourceError.h"
#include "device/StreamingHasher.h"

#include <QDir>
#include <QFile>

#include <gtest/gtest.h>

#include <algorithm>

namespace {

const QString kPrefix = "copied database failed integrity check: ";

// A device whose downloads can fail, or serve other bytes, on a chosen call; counts every call.
class ScriptedSource : public FakeMediaSource {
public:
    void failOnCall(const QString& path, int call, const MediaSourceError& error)
    {
        m_errors.insert({path, call}, error);
    }
    void serveOnCall(const QString& path, int call, const QByteArray& content)
    {
        m_content.insert({path, call}, content);
    }
    int calls(const QString& path) const { return m_calls.value(path); }

    DownloadResult download(const QString& path, const QString& destination,
                            const DownloadControl& control = {}) override
    {
        const int call = ++m_calls[path];
        if (const auto error = m_errors.constFind({path, call}); error != m_errors.cend())
            throw *error;
        if (const auto content = m_content.constFind({path, call}); content != m_content.cend()) {
            writeFile(destination, *content);
            return sha256OfFile(destination);
        }
        return FakeMediaSource::download(path, destination, control);
    }

private:
    QHash<QString, int> m_calls;
    QHash<std::pair<QString, int>, MediaSourceError> m_errors;
    QHash<std::pair<QString, int>, QByteArray> m_content;
};

// Puts the given files of a corpus database into the device's /PhotoData folder.
void serveCorpus(FakeMediaSource& device, const QString& name, const QStringList& files, const TempDir& scratch)
{
    const QString copy = copyCorpusDatabase(name, scratch.filePath("corpus-" + name));
    for (const QString& file : files)
        device.addFile("/PhotoData/" + file, readFile(QFileInfo(copy).dir().filePath(file)));
}

// A copy of a real database with some of its pages overwritten.
QByteArray damagedCopy(const TempDir& scratch)
{
    const QString copy = copyCorpusDatabase("osxphotos-13.0.0", scratch.filePath("damaged"));
    for (const char* index :
         {"ZASSET_ZADDITIONALATTRIBUTES_INDEX", "ZASSET_ZCONVERSATION_INDEX", "ZGENERICALBUM_ZPARENTFOLDER_INDEX"})
        damageBtree(copy, index);
    return readFile(copy);
}

// Every row SQLite's quick check reports for a file (damaged pages are listed together in one row).
QStringList quickCheck(const QString& path)
{
    QStringList lines;
    SQLiteDB db(path, true, false);
    db.query("PRAGMA quick_check", {}, [&](const SQLRow& row) { lines << row.text(0).value_or(QString()); });
    return lines;
}

TEST(LibrarySnapshot, FetchWithoutLogFiles)
{
    SKIP_WITHOUT_CORPUS();
    TempDir scratch;
    ScriptedSource device;
    serveCorpus(device, "osxphotos-13.0.0", {"Photos.sqlite"}, scratch);
    const PhotoLibrary library = LibrarySnapshot::fetch(device, scratch.filePath("copy"), 3);
    EXPECT_EQ(library.assets.size(), 16);
    EXPECT_EQ(device.calls("/PhotoData/Photos.sqlite"), 1);
    EXPECT_EQ(device.calls("/PhotoData/Photos.sqlite-shm"), 0) << "a log file the device lacks is not asked for";
}

TEST(LibrarySnapshot, FetchFailsAfterTheLastAttempt)
{
    SKIP_WITHOUT_CORPUS();
    TempDir scratch;
    ScriptedSource empty;
    try {
        LibrarySnapshot::fetch(empty, scratch.filePath("copy"), 3);
        FAIL() << "a device without a database cannot be read";
    } catch (const MediaSourceError& error) {
        EXPECT_EQ(error.description(), "Not found on device: /PhotoData/Photos.sqlite");
    }
    EXPECT_EQ(empty.calls("/PhotoData/Photos.sqlite"), 3);
    EXPECT_EQ(empty.calls("/PhotoData/Photos.sqlite-wal"), 0);

    // A log that exists but cannot be read is a failure, unlike a missing one.
    ScriptedSource unreadable;
    serveCorpus(unreadable, "osxphotos-13.0.0", LibrarySnapshot::deviceFiles(), scratch);
    unreadable.failPath("/PhotoData/Photos.sqlite-wal", "read failed, afc error 7");
    try {
        LibrarySnapshot::fetch(unreadable, scratch.filePath("copy"), 2);
        FAIL() << "an unreadable log must fail the fetch";
    } catch (const MediaSourceError& error) {
        EXPECT_EQ(error.description(),
                  "Could not read /PhotoData/Photos.sqlite-wal from device: read failed, afc error 7");
    }
}

TEST(LibrarySnapshot, FetchTriesAgainFromTheStart)
{
    SKIP_WITHOUT_CORPUS();
    TempDir scratch;
    ScriptedSource device;
    serveCorpus(device, "osxphotos-26.1", LibrarySnapshot::deviceFiles(), scratch);
    device.failOnCall("/PhotoData/Photos.sqlite-wal", 1,
                      MediaSourceError::readFailed("/PhotoData/Photos.sqlite-wal", "read failed, afc error 10"));
    EXPECT_EQ(LibrarySnapshot::fetch(device, scratch.filePath("copy"), 3).assets.size(), 16);
    EXPECT_EQ(device.calls("/PhotoData/Photos.sqlite"), 2);
    EXPECT_EQ(device.calls("/PhotoData/Photos.sqlite-wal"), 2);

    // The device was writing its database while the first copy was taken.
    ScriptedSource busy;
    serveCorpus(busy, "osxphotos-13.0.0", {"Photos.sqlite"}, scratch);
    busy.serveOnCall("/PhotoData/Photos.sqlite", 1, damagedCopy(scratch));
    EXPECT_EQ(LibrarySnapshot::fetch(busy, scratch.filePath("copy"), 2).assets.size(), 16);
    EXPECT_EQ(busy.calls("/PhotoData/Photos.sqlite"), 2);
}

TEST(LibrarySnapshot, IntegrityCheckReportsTheLastProblem)
{
    SKIP_WITHOUT_CORPUS();
    TempDir scratch;
    const QString intact = copyCorpusDatabase("osxphotos-15.4.1", scratch.filePath("intact"));
    EXPECT_NO_THROW(LibrarySnapshot::checkIntegrity(intact));

    const QString damaged = scratch.filePath("damaged.sqlite");
    writeFile(damaged, damagedCopy(scratch));
    const QStringList problems = quickCheck(damaged);
    ASSERT_FALSE(problems.isEmpty());
    ASSERT_TRUE(problems.last().contains("Page ")) << problems.last().toStdString();
    try {
        LibrarySnapshot::checkIntegrity(damaged);
        FAIL() << "a damaged copy must fail the check";
    } catch (const SQLiteError& error) {
        EXPECT_EQ(error.description(), "SQLite: " + kPrefix + problems.last());
    }
}

TEST(LibrarySnapshotDeathTest, FetchNeedsAnAttempt)
{
    TempDir scratch;
    FakeMediaSource device;
    EXPECT_DEATH(LibrarySnapshot::fetch(device, scratch.filePath("copy"), 0), "at least one");
}

} // namespace
