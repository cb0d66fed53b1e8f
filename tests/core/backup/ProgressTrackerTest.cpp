#include "backup/ProgressTracker.h"
#include "QtPrinters.h"

#include <gtest/gtest.h>

TEST(ProgressTracker, RateAndTimeLeftFollowTheRecentPace)
{
    int64_t now = 0;
    ProgressTracker tracker([&] { return now; });
    tracker.update({0, 100, "IMG_0001.HEIC", 0});
    EXPECT_EQ(tracker.bytesPerSecond(), 0);
    EXPECT_FALSE(tracker.secondsLeft().has_value());
    EXPECT_EQ(tracker.statusLine(), "0 of 100 items · 0 bytes copied · IMG_0001.HEIC");

    // Ten items and 20 MB in ten seconds: 2 MB/s, 90 items left at one a second.
    for (int i = 1; i <= 10; ++i) {
        now = i * 1000;
        tracker.update({i, 100, "IMG_" + QString::number(i), uint64_t(i) * 2'000'000});
    }
    EXPECT_NEAR(tracker.bytesPerSecond(), 2'000'000, 1);
    EXPECT_EQ(tracker.secondsLeft(), 90);
    EXPECT_EQ(tracker.statusLine(), "10 of 100 items · 20.0 MB copied · 2.0 MB/s · about 2 min left · IMG_10");

    // The link stalls: the rate falls to zero over the rate window, the items' pace stays known.
    now += 10'000;
    tracker.update({10, 100, "IMG_big.MOV", 20'000'000});
    EXPECT_EQ(tracker.bytesPerSecond(), 0);
    ASSERT_TRUE(tracker.secondsLeft().has_value());
    EXPECT_EQ(*tracker.secondsLeft(), 180);

    EXPECT_EQ(ProgressTracker::formatDuration(59), "59 s");
    EXPECT_EQ(ProgressTracker::formatDuration(3 * 3600 + 125), "3 h 2 min");
}
