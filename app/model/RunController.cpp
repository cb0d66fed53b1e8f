#include "RunController.h"

#include "Background.h"
#include "DescribedError.h"
#include "Platform.h"
#include "backup/BackupSession.h"
#include "backup/ProgressAggregator.h"

#include <exception>

RunController::RunController(QThreadPool& pool, Platform& platform, BackupFolderCache& folders, QObject* parent)
    : QObject(parent), m_pool(pool), m_platform(platform), m_folders(folders)
{
}

// An engine still working stops at its next check; the pool's owner waits for it.
RunController::~RunController() { m_flag->cancel(); }

void RunController::show(std::optional<Run> run)
{
    if (!run && !m_run)
        return;
    if (!run && engineBusy() && !isRunning())
        m_flag->cancel();
    m_run = std::move(run);
    emit runChanged();
}

void RunController::perform(bool dryRun, const Engine& engine)
{
    // The dry run counts while the run is prepared, the real run starts once it is confirmed: a
    // second click starts nothing.
    const RunPhase::Kind expected = dryRun ? RunPhase::Kind::preparing : RunPhase::Kind::ready;
    if (!m_run || m_run->phase.kind != expected || m_engineRun == m_run->id)
        return;
    m_engineRun = m_run->id;
    m_flag = std::make_shared<CancelFlag>();
    emit cancelFlagChanged();
    if (!dryRun) {
        m_run->phase = RunPhase::running();
        m_run->log << "Backing up to " + engine.destination;
        m_platform.setWindowsClosable(false);
        emit runChanged();
    }
    ++m_engines;
    const QUuid runID = m_run->id;
    const BackupOptions options = m_run->options(dryRun);
    const QPointer<RunController> guard(this);
    runInBackground(
        m_pool, this,
        [guard, runID, options, engine, flag = m_flag] {
            // One queued call per update, never one per event: a re-run passes 100,000 items.
            ProgressAggregator aggregator([guard, runID](const RunUpdate& update) {
                onGuiThread(guard, [runID, update](RunController& runs) { runs.applyUpdate(runID, update); });
            });
            const BackupSession::RunControl control{
                [flag] { return flag->isCancelled(); },
                [&aggregator](const BackupEvent& event) { aggregator.handle(event); }};
            Outcome outcome;
            try {
                // As the command line does: a folder another run copies into is refused before the
                // user is asked to confirm.
                if (options.dryRun)
                    BackupSession::checkFolder(engine.destination, true);
                outcome.summary = options.dryRun
                                      ? engine.session->dryRun(engine.plan, engine.destination, options, control)
                                      : engine.session->run(engine.plan, engine.destination, options, control);
            } catch (const std::exception& error) {
                outcome.error = describeError(error);
            }
            aggregator.flush();
            // Read here rather than on the GUI thread when the run is closed.
            if (!options.dryRun && !flag->isCancelled()) {
                try {
                    outcome.folder = BackupFolderCache::readNow(engine.destination);
                } catch (const std::exception&) {
                }
            }
            return outcome;
        },
        [runID, dryRun](RunController& runs, const Outcome& outcome) { runs.finish(runID, dryRun, outcome); });
}

void RunController::applyUpdate(const QUuid& runID, const RunUpdate& update)
{
    if (!m_run || m_run->id != runID)
        return;
    for (const BackupEvent& line : update.lines)
        m_run->log << line.line;
    if (update.progress && isRunning())
        m_run->phase.progress = *update.progress;
    emit runChanged();
}

void RunController::finish(const QUuid& runID, bool dryRun, const Outcome& outcome)
{
    --m_engines;
    if (outcome.folder)
        m_folders.keep(*outcome.folder);
    if (m_engineRun == runID)
        m_engineRun = QUuid();
    if (m_run && m_run->id == runID) {
        if (!outcome.summary) {
            m_run->log << outcome.error;
            m_run->phase = RunPhase::finished(std::nullopt);
        } else if (dryRun) {
            m_run->phase = RunPhase::ready(*outcome.summary);
        } else {
            m_run->phase = RunPhase::finished(outcome.summary);
            for (const QString& line : outcome.summary->lines())
                m_run->log << "  " + line;
        }
        emit runChanged();
    }
    if (!dryRun)
        m_platform.setWindowsClosable(true);
    const QList<std::function<void()>> handlers = std::exchange(m_stopHandlers, {});
    for (const std::function<void()>& handler : handlers)
        handler();
    emit engineFinished();
}
