#include "backup/ProgressAggregator.h"
#include "QtPrinters.h"

#include <gtest/gtest.h>

namespace {

BackupEvent progress(int64_t done, int64_t total, const QString& name, uint64_t bytes)
{
    return BackupEvent::makeProgress({done, total, name, bytes, 0, 0, bytes});
}

} // namespace

// Thousands of events a second reach a front end as at most ten updates a second, every log line
// among them once and in order, the closing progress at once.
TEST(ProgressAggregator, ThrottlesToTenUpdatesASecondAndLosesNoLine)
{
    int64_t now = 0;
    QList<RunUpdate> updates;
    QStringList received;
    ProgressAggregator aggregator(
        [&](const RunUpdate& update) {
            updates.append(update);
            for (const BackupEvent& line : update.lines)
                received.append(line.line);
        },
        [&] { return now; });

    QStringList sent;
    for (int i = 0; i < 5000; ++i) { // two seconds of a run through a library backed up already
        now = i * 2 / 5;
        aggregator.handle(progress(i, 5000, "IMG_" + QString::number(i), 0));
        sent.append("Already backed up: " + QString::number(i));
        aggregator.handle(BackupEvent::makeLog(sent.last()));
    }
    aggregator.handle(progress(5000, 5000, QString(), 0));
    EXPECT_LE(updates.size(), 2 * 10 + 2);
    ASSERT_TRUE(updates.last().progress.has_value());
    EXPECT_EQ(updates.last().progress->progress.assetsDone, 5000) << "the closing progress is not held back";

    aggregator.flush();
    EXPECT_EQ(received, sent);
}

TEST(ProgressAggregator, RateAndTimeLeftFollowTheRecentPace)
{
    int64_t now = 0;
    std::optional<ProgressReport> latest;
    ProgressAggregator aggregator([&](const RunUpdate& update) { latest = update.progress.value_or(*latest); },
                                  [&] { return now; });
    aggregator.handle(progress(0, 100, "IMG_0001.HEIC", 0));
    EXPECT_EQ(latest->bytesPerSecond, 0);
    EXPECT_FALSE(latest->secondsLeft.has_value());
    EXPECT_EQ(latest->statusLine, "0 of 100 items · 0 bytes copied · IMG_0001.HEIC");

    // Ten items and 20 MB in ten seconds: 2 MB/s, 90 items left at one a second.
    for (int i = 1; i <= 10; ++i) {
        now = i * 1000;
        aggregator.handle(progress(i, 100, "IMG_" + QString::number(i), uint64_t(i) * 2'000'000));
    }
    EXPECT_NEAR(latest->bytesPerSecond, 2'000'000, 1);
    EXPECT_EQ(latest->secondsLeft, 90);
    EXPECT_EQ(latest->statusLine, "10 of 100 items · 20.0 MB copied · 2.0 MB/s · about 2 min left · IMG_10");

    // A large video streams: the rate follows its bytes, the line shows how far the file has come.
    now += 5000;
    aggregator.handle(
        BackupEvent::makeProgress({10, 100, "IMG_big.MOV", 20'000'000, 1'500'000'000, 4'000'000'000, 1'520'000'000}));
    EXPECT_GT(latest->bytesPerSecond, 100'000'000);
    EXPECT_TRUE(latest->statusLine.endsWith("IMG_big.MOV (1.5 GB of 4.0 GB)")) << qPrintable(latest->statusLine);

    EXPECT_EQ(ProgressAggregator::formatDuration(59), "59 s");
    EXPECT_EQ(ProgressAggregator::formatDuration(3 * 3600 + 125), "3 h 2 min");
}
