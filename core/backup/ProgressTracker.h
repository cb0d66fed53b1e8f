#pragma once

#include "BackupRecords.h"

#include <QString>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>

// Turns the engine's raw progress snapshots into what people want to see: items done, bytes
// copied, the current rate and the time left. Written once and shared by every front end.
class ProgressTracker {
public:
    using Clock = std::function<int64_t()>; // milliseconds, monotonic

    explicit ProgressTracker(Clock clock = {});

    void update(const BackupProgress& progress);

    const BackupProgress& latest() const { return m_latest; }
    // Bytes per second over the last few seconds; 0 until there is enough to tell.
    double bytesPerSecond() const;
    // Estimated seconds left, from the pace of items over the last minute; absent until known.
    std::optional<int64_t> secondsLeft() const;
    // "12 of 340 items · 48.2 MB copied · 21.3 MB/s · about 3 min left · IMG_0042.HEIC"
    QString statusLine() const;

    static QString formatDuration(int64_t seconds);

private:
    struct Sample {
        int64_t ms;
        int64_t items;
        uint64_t bytes;
    };

    Clock m_clock;
    BackupProgress m_latest;
    std::deque<Sample> m_samples;
};
