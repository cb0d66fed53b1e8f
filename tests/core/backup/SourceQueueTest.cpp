#include "backup/SourceQueue.h"
#include "FakeMediaSource.h"
#include "QtPrinters.h"
#include "TempDir.h"
#include "device/MediaSourceError.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>

TEST(SourceQueue, DownloadsInTheOrderAddedAndLeavesNoUnwantedFile)
{
    FakeMediaSource source;
    source.addFile("/a", "aaa");
    source.addFile("/b", "bbb");
    source.addFile("/c", "ccc");
    source.addFile("/e", "eee");
    TempDir dir;
    {
        SourceQueue queue(source, 2);
        const auto a = queue.download("/a", dir.filePath("a"));
        const auto b = queue.download("/b", dir.filePath("b"));
        const auto c = queue.download("/c", dir.filePath("c"));
        const auto missing = queue.download("/missing", dir.filePath("missing"));
        queue.download("/e", dir.filePath("e")); // never taken
        queue.drop(b);

        EXPECT_EQ(queue.takeDownload(a), (DownloadResult{sha256Of("aaa"), 3}));
        EXPECT_EQ(readFile(dir.filePath("a")), "aaa");
        EXPECT_EQ(queue.takeDownload(c)->sha256, sha256Of("ccc"));
        EXPECT_FALSE(QFileInfo::exists(dir.filePath("b"))); // dropped: not fetched, or removed once fetched
        try {
            queue.takeDownload(missing);
            ADD_FAILURE() << "a failed download must throw when taken";
        } catch (const MediaSourceError& error) {
            EXPECT_EQ(error.kind(), MediaSourceError::Kind::notFound);
        }
        // Listings go through the same thread, in their turn.
        EXPECT_EQ(queue.takeListing(queue.list("/")), (QStringList{"a", "b", "c", "e"}));
        EXPECT_THROW(queue.takeListing(queue.list("/nowhere")), MediaSourceError);
    }
    // Taken files belong to the taker; the queue removed the rest.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), (QStringList{"a", "c"}));
}

TEST(SourceQueue, ADownloadWaitedForStartsEvenWhenFinishedOnesAreWaiting)
{
    FakeMediaSource source;
    source.addFile("/a", "aaa");
    source.addFile("/b", "bbb");
    source.addFile("/c", "ccc");
    TempDir dir;
    SourceQueue queue(source, 1);
    const auto a = queue.download("/a", dir.filePath("a"));
    const auto b = queue.download("/b", dir.filePath("b"));
    const auto c = queue.download("/c", dir.filePath("c"));
    // "a" fills the one place for finished downloads, yet "c" is fetched when asked for, and
    // listings never wait for room.
    EXPECT_EQ(queue.takeListing(queue.list("/")).size(), 3);
    EXPECT_EQ(queue.takeDownload(c)->sha256, sha256Of("ccc"));
    EXPECT_EQ(queue.takeDownload(a)->sha256, sha256Of("aaa"));
    EXPECT_EQ(queue.takeDownload(b)->sha256, sha256Of("bbb"));
}
