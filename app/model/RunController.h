#pragma once

#include "BackupFolderCache.h"
#include "CancelFlag.h"
#include "Run.h"
#include "plan/BackupPlan.h"

#include <QObject>
#include <QString>

#include <functional>
#include <memory>
#include <optional>
#include <utility>

class BackupSession;
class Platform;
class QThreadPool;

// The backup run behind the sheet: its dry run and real run on a worker thread, their log lines
// and progress brought to the GUI thread through the core's aggregator (a few updates a second,
// however many items the run passes), cancelling, and what waits for the engine to stop.
class RunController : public QObject {
    Q_OBJECT
public:
    // What a run copies from, what it follows, and where to.
    struct Engine {
        std::shared_ptr<BackupSession> session;
        BackupPlan plan;
        QString destination;
    };

    // A real run reads the backup folder again when it ends and keeps what it holds in `folders`.
    RunController(QThreadPool& pool, Platform& platform, BackupFolderCache& folders, QObject* parent = nullptr);
    ~RunController() override;

    const std::optional<Run>& run() const { return m_run; }
    const std::shared_ptr<CancelFlag>& cancelFlag() const { return m_flag; }
    // Whether the real copy is under way.
    bool isRunning() const { return m_run && m_run->phase.kind == RunPhase::Kind::running; }
    // Whether an engine (a dry run or a real one) is still working.
    bool engineBusy() const { return m_engines > 0; }

    // Shows a run (the sheet opens), or none (it closes; a dry run under way is called off).
    void show(std::optional<Run> run);
    // Runs the engine for the current run. The real run shows its progress and keeps the main
    // window open until the engine has returned.
    void perform(bool dryRun, const Engine& engine);
    void cancel() { m_flag->cancel(); }
    // Called once, in order, when the engine has next returned.
    void whenStopped(std::function<void()> handler) { m_stopHandlers.append(std::move(handler)); }

signals:
    void runChanged();
    void cancelFlagChanged();
    // The engine has returned and the stop handlers have been called.
    void engineFinished();

private:
    struct Outcome {
        std::optional<BackupSummary> summary;
        QString error;
        std::optional<BackupFolderCache::Reading> folder; // after a real run
    };

    void applyUpdate(const QUuid& runID, const RunUpdate& update);
    void finish(const QUuid& runID, bool dryRun, const Outcome& outcome);

    QThreadPool& m_pool;
    Platform& m_platform;
    BackupFolderCache& m_folders;
    std::optional<Run> m_run;
    std::shared_ptr<CancelFlag> m_flag = std::make_shared<CancelFlag>();
    QList<std::function<void()>> m_stopHandlers;
    int m_engines = 0;
    QUuid m_engineRun; // the run whose engine is working
};
