#include "DemoPresets.h"

#include "backup/ProgressAggregator.h"
#include "plan/BackupNode.h"

namespace {

constexpr uint64_t kBytesPerPhoto = 2'400'000;

BackupSummary summary(const DemoPresets::RunFacts& facts, bool dryRun)
{
    BackupSummary summary;
    summary.isDryRun = dryRun;
    summary.filesToCopy = dryRun ? facts.toCopy : 0;
    summary.filesCopied = dryRun ? 0 : facts.toCopy;
    summary.bytesCopied = dryRun ? 0 : kBytesPerPhoto * uint64_t(facts.toCopy);
    summary.filesAlreadyBackedUp = facts.alreadyBackedUp;
    return summary;
}

// Half-way through, at a steady pace: the core's aggregator makes the figures and the status line.
ProgressReport halfWay(const DemoPresets::RunFacts& facts)
{
    int64_t now = 0;
    ProgressReport latest;
    ProgressAggregator aggregator(
        [&latest](const RunUpdate& update) {
            if (update.progress)
                latest = *update.progress;
        },
        [&now] { return now; });
    BackupProgress progress;
    progress.assetsTotal = facts.toCopy;
    progress.currentName = facts.currentName;
    aggregator.handle(BackupEvent::makeProgress(progress));
    now = 8000;
    progress.assetsDone = facts.toCopy / 2;
    progress.bytesCopied = kBytesPerPhoto * uint64_t(progress.assetsDone);
    aggregator.handle(BackupEvent::makeProgress(progress));
    aggregator.flush();
    return latest;
}

} // namespace

std::optional<PhotoChoice> DemoPresets::choice(const BackupNode& album)
{
    if (qEnvironmentVariable("OMB_DEMO_CHOICE") != "1")
        return std::nullopt;
    PhotoChoice choice{PhotoChoice::Mode::allExcept, {}};
    for (qsizetype i = 3; i < album.assetUUIDs.size(); i += 4)
        choice.uuids.insert(album.assetUUIDs[i]);
    return choice;
}

std::optional<Run> DemoPresets::run(const RunFacts& facts)
{
    const QString phase = qEnvironmentVariable("OMB_DEMO_RUN");
    Run run;
    run.nodeIDs = facts.leafIDs;
    run.title = Run::backUpAllTitle;
    if (phase == "preparing") {
        run.phase = RunPhase::preparing();
    } else if (phase == "ready") {
        run.phase = RunPhase::ready(summary(facts, true));
    } else if (phase == "running" || phase == "finished") {
        const bool finished = phase == "finished";
        run.log << "Backing up to " + facts.destination;
        for (int i = 0; i < (finished ? facts.toCopy : facts.toCopy / 2); ++i)
            run.log << QStringLiteral("Copied Albums/Holidays/Japan 2026/IMG_%1.HEIC").arg(1300 + i, 4, 10, QChar('0'));
        run.phase = RunPhase::running(halfWay(facts));
        if (finished) {
            const BackupSummary done = summary(facts, false);
            run.phase = RunPhase::finished(done);
            for (const QString& line : done.lines())
                run.log << "  " + line;
        }
    } else {
        return std::nullopt;
    }
    return run;
}
