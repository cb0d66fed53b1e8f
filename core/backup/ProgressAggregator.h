#pragma once

#include "BackupRecords.h"

#include <QList>
#include <QString>

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>

// A run's progress as people want to see it: the engine's snapshot, the current rate and the time
// left, and the line a terminal shows.
struct ProgressReport {
    BackupProgress progress;
    double bytesPerSecond = 0;          // over the last few seconds; 0 until there is enough to tell
    std::optional<int64_t> secondsLeft; // from the pace of items over the last minute
    // "12 of 340 items · 48.2 MB copied · 21.3 MB/s · about 3 min left · IMG_0042.MOV (1.2 of 4.0 GB)"
    QString statusLine;
};

// What a front end is told of a run at once: the log lines since the last update, in order, and
// the latest progress when it changed.
struct RunUpdate {
    QList<BackupEvent> lines;
    std::optional<ProgressReport> progress;
};

// Turns a run's raw events, however many, into at most ten updates a second with rate and time
// left: written once, for the terminal line and the window alike, so that a run through a library
// backed up already (thousands of events a second) costs a front end ten updates a second. Used on
// the run's thread: handle() every event, flush() at the end; `deliver` is called on that thread.
class ProgressAggregator {
public:
    using Clock = std::function<int64_t()>; // milliseconds, monotonic
    using Deliver = std::function<void(const RunUpdate&)>;

    static constexpr int64_t intervalMs = 100;

    explicit ProgressAggregator(Deliver deliver, Clock clock = {});

    void handle(const BackupEvent& event);
    // Hands over whatever is still held; the run's closing progress is delivered at once anyway.
    void flush();

    static QString formatDuration(int64_t seconds);

private:
    struct Sample {
        int64_t ms;
        int64_t items;
        uint64_t bytes;
    };

    void deliver(int64_t now);
    ProgressReport report() const;
    double bytesPerSecond() const;
    std::optional<int64_t> secondsLeft() const;
    QString statusLine() const;

    Deliver m_deliver;
    Clock m_clock;
    BackupProgress m_latest;
    bool m_progressChanged = false;
    QList<BackupEvent> m_lines;
    std::optional<int64_t> m_lastDelivery;
    std::deque<Sample> m_samples;
};
