#pragma once

#include "backup/BackupRecords.h"
#include "backup/ProgressAggregator.h"

#include <optional>

// Where a backup run stands: counting what would be copied, waiting for the user, copying, done.
struct RunPhase {
    enum class Kind { preparing, ready, running, finished };

    static RunPhase preparing() { return {Kind::preparing, {}, {}}; }
    // The dry run's summary, for the user to confirm.
    static RunPhase ready(const BackupSummary& dryRun) { return {Kind::ready, dryRun, {}}; }
    static RunPhase running(const ProgressReport& progress = {}) { return {Kind::running, {}, progress}; }
    // Done, failed or cancelled, as the summary says; without one when the run failed before it began.
    static RunPhase finished(const std::optional<BackupSummary>& summary) { return {Kind::finished, summary, {}}; }

    Kind kind = Kind::preparing;
    std::optional<BackupSummary> summary; // ready and finished
    ProgressReport progress;              // running: the latest
};
