#include "FakeMediaSource.h"
#include "QtPrinters.h"
#include "TempDir.h"
#include "backup/DownloadQueue.h"
#include "device/MediaSourceError.h"
#include "device/StreamingHasher.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>

namespace {

QString hashOf(const QByteArray& data)
{
    StreamingHasher hasher;
    hasher.update(data.constData(), size_t(data.size()));
    return hasher.finish().sha256;
}

} // namespace

TEST(DownloadQueue, DownloadsInTheOrderAddedAndLeavesNoUnwantedFile)
{
    FakeMediaSource source;
    source.addFile("/a", "aaa");
    source.addFile("/b", "bbb");
    source.addFile("/c", "ccc");
    source.addFile("/e", "eee");
    TempDir dir;
    {
        DownloadQueue queue(source, 2);
        const auto a = queue.add("/a", dir.filePath("a"));
        const auto b = queue.add("/b", dir.filePath("b"));
        const auto c = queue.add("/c", dir.filePath("c"));
        const auto missing = queue.add("/missing", dir.filePath("missing"));
        queue.add("/e", dir.filePath("e")); // never taken
        queue.drop(b);

        EXPECT_EQ(queue.take(a), (DownloadResult{hashOf("aaa"), 3}));
        EXPECT_EQ(readFile(dir.filePath("a")), "aaa");
        EXPECT_EQ(queue.take(c).sha256, hashOf("ccc"));
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("b"))); // dropped: not fetched, or removed once fetched
        try {
            queue.take(missing);
            ADD_FAILURE() << "a failed download must throw when taken";
        } catch (const MediaSourceError& error) {
            EXPECT_EQ(error.kind(), MediaSourceError::Kind::notFound);
        }
    }
    // Taken files belong to the taker; the queue removed the rest.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), (QStringList{"a", "c"}));
}

TEST(DownloadQueue, ADownloadWaitedForStartsEvenWhenFinishedOnesAreWaiting)
{
    FakeMediaSource source;
    source.addFile("/a", "aaa");
    source.addFile("/b", "bbb");
    source.addFile("/c", "ccc");
    TempDir dir;
    DownloadQueue queue(source, 1);
    const auto a = queue.add("/a", dir.filePath("a"));
    const auto b = queue.add("/b", dir.filePath("b"));
    const auto c = queue.add("/c", dir.filePath("c"));
    // "a" fills the one place for finished downloads, yet "c" is fetched when asked for.
    EXPECT_EQ(queue.take(c).sha256, hashOf("ccc"));
    EXPECT_EQ(queue.take(a).sha256, hashOf("aaa"));
    EXPECT_EQ(queue.take(b).sha256, hashOf("bbb"));
}
