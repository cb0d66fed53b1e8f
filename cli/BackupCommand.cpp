#include "BackupCommand.h"

#include "DeviceLibrary.h"
#include "ErrorText.h"
#include "FolderSelection.h"
#include "InterruptHandler.h"
#include "RunReport.h"
#include "TerminalStatus.h"
#include "backup/BackupSession.h"
#include "backup/ProgressAggregator.h"
#include "plan/BackupPlan.h"

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

namespace {

struct Options {
    QString dest;
    std::optional<QString> udid;
    bool all = false;
    QStringList folders;
    bool includeHidden = false;
    bool dryRunOnly = false;
    bool yes = false;
    bool quiet = false;
    bool wait = false;
    QString reportPath;

    QJsonObject toJson() const
    {
        return {{"dest", dest},
                {"udid", udid ? QJsonValue(*udid) : QJsonValue()},
                {"all", all},
                {"folders", QJsonArray::fromStringList(folders)},
                {"includeHidden", includeHidden},
                {"dryRun", dryRunOnly},
                {"wait", wait}};
    }
};

class BackupRun {
public:
    BackupRun(const Options& options, CommandContext& context)
        : m_options(options), m_context(context), m_report(options.toJson()),
          m_status(context.out, context.outIsTerminal && !options.quiet)
    {
    }

    int execute();

private:
    int finish(int code);
    int fail(const QString& message);
    // Ends a run stopped by Ctrl-C or SIGTERM before it began copying.
    int endCancelled();
    void say(const QString& line, bool isProblem = false);
    bool confirm();
    // The session's run, its lines printed and its progress drawn as they come (a dry run quietly).
    BackupSummary runEngine(const BackupSession& session, const BackupPlan& plan, const BackupOptions& options);

    const Options& m_options;
    CommandContext& m_context;
    RunReport m_report;
    TerminalStatus m_status;
};

void BackupRun::say(const QString& line, bool isProblem)
{
    m_report.addLine(line);
    if (!m_options.quiet || isProblem)
        m_status.printLine(line);
}

int BackupRun::finish(int code)
{
    m_status.clear();
    if (!m_options.reportPath.isEmpty())
        if (auto problem = m_report.write(m_options.reportPath, m_options.dest, code))
            m_context.err << *problem << "\n";
    m_context.out.flush();
    m_context.err.flush();
    return code;
}

int BackupRun::fail(const QString& message)
{
    m_status.clear();
    m_context.err << message << "\n";
    m_report.setFailure(message);
    return finish(ExitCode::failed);
}

bool BackupRun::confirm()
{
    if (m_options.yes || !m_context.inIsTerminal || !m_context.in)
        return true;
    m_context.out << "Start backup? [y/N] ";
    m_context.out.flush();
    const QString answer = m_context.in->readLine().trimmed().toLower();
    return answer == "y" || answer == "yes";
}

BackupSummary BackupRun::runEngine(const BackupSession& session, const BackupPlan& plan, const BackupOptions& options)
{
    // Lines are printed as they come; the status line is redrawn at most ten times a second.
    ProgressAggregator progress([&](const RunUpdate& update) {
        if (update.progress)
            m_status.setStatus(update.progress->statusLine, update.progress->progress.currentName.isEmpty());
    });
    BackupSession::RunControl control;
    control.isCancelled = [] { return InterruptHandler::requested(); };
    control.onEvent = [&](const BackupEvent& event) {
        if (options.dryRun)
            return;
        if (event.kind == BackupEvent::Kind::log)
            say(event.line, event.severity != BackupEvent::Severity::info);
        else
            progress.handle(event);
    };
    return options.dryRun ? session.dryRun(plan, m_options.dest, options, control)
                          : session.run(plan, m_options.dest, options, control);
}

int BackupRun::endCancelled()
{
    m_status.clear();
    const QString line = QStringLiteral("Cancelled before finishing.");
    m_context.out << line << "\n";
    m_report.setCancelled(line);
    return finish(InterruptHandler::exitCode);
}

int BackupRun::execute()
{
    InterruptHandler interrupts;
    const auto cancelled = [] { return InterruptHandler::requested(); };
    const auto sayLine = [this](const QString& line, bool isProblem) { say(line, isProblem); };
    try {
        // A folder another run is backing up into, or one with a damaged manifest, is refused
        // before the phone is even read. The engine itself holds the lock while it copies.
        BackupSession::checkFolder(m_options.dest, !m_options.dryRunOnly);

        if (m_options.wait && !DeviceLibrary::waitForDevice(m_options.udid, sayLine, cancelled))
            return endCancelled();
        BackupSession session;
        DeviceLibrary::open(session, m_options.udid, sayLine);
        const DeviceInfo& info = session.device();
        m_report.setDevice({{"udid", info.udid},
                            {"name", info.name},
                            {"productType", info.productType},
                            {"productVersion", info.productVersion}});
        if (cancelled())
            return endCancelled();

        const BackupPlan plan = session.plan(ExistingBackup::read(m_options.dest));

        BackupOptions options;
        const FolderSelection selection =
            FolderSelection::resolve(plan, m_options.all, m_options.folders, m_options.includeHidden);
        if (!selection.error.isEmpty()) {
            m_context.err << selection.error << "\n";
            m_report.setFailure(selection.error);
            return finish(ExitCode::usage);
        }
        options.nodeIDs = selection.nodeIDs;

        options.dryRun = true;
        const BackupSummary preview = runEngine(session, plan, options);
        if (cancelled())
            return endCancelled();
        say("Dry run:");
        for (const QString& line : preview.lines())
            say("  " + line);
        if (m_options.dryRunOnly) {
            m_report.setSummary(preview);
            return finish(ExitCode::ok);
        }
        const bool confirmed = confirm();
        if (cancelled())
            return endCancelled();
        if (!confirmed) {
            say("Nothing was copied.");
            return finish(ExitCode::ok);
        }

        options.dryRun = false;
        const BackupSummary summary = runEngine(session, plan, options);
        m_status.clear();
        m_report.setSummary(summary);
        for (const QString& line : summary.lines())
            m_context.out << line << "\n";
        if (summary.cancelled)
            return finish(InterruptHandler::exitCode);
        if (summary.deviceStopped)
            return finish(ExitCode::failed);
        return finish(summary.errors.isEmpty() ? ExitCode::ok : ExitCode::runHadErrors);
    } catch (const std::exception& error) {
        return fail(describeError(error));
    }
}

} // namespace

QString BackupCommand::summary() const { return QStringLiteral("Back up the connected iPhone or iPad into a folder."); }

void BackupCommand::configure(QCommandLineParser& parser) const
{
    parser.setApplicationDescription(
        summary() + "\nFirst makes a dry run and prints what it will do; on a terminal it then asks before copying.\n"
                    "Nothing on the device is changed and nothing in the folder is overwritten or deleted. An\n"
                    "interrupted backup carries on where it stopped the next time. Ctrl-C or SIGTERM stops within\n"
                    "a second or two, leaving the file being copied for the next run (exit code 130); a second\n"
                    "Ctrl-C stops at once. One backup at a time runs into a folder: another one started meanwhile\n"
                    "ends at once.\n"
                    "Exit codes: 0 done, 1 done with errors, 2 bad arguments, 3 could not run, 130 cancelled.");
    parser.addPositionalArgument("DEST", "The backup folder (it must exist).");
    parser.addOption({"udid", "Back up the device with this UDID (default: the first one).", "U"});
    parser.addOption({"all", "Back up every folder (Hidden only with --include-hidden)."});
    parser.addOption(
        {"folder", "Back up the folder whose id or path is X (repeatable; see \"ombrelo-cli tree\").", "X"});
    parser.addOption({"include-hidden", "With --all, back up the Hidden folder too."});
    parser.addOption({"dry-run", "Only show what would be copied."});
    parser.addOption({"yes", "Do not ask before copying."});
    parser.addOption({"quiet", "Print only errors, warnings and the summary."});
    parser.addOption({"report", "Write a JSON report of the run to FILE (outside the backup folder).", "FILE"});
    parser.addOption({"wait", "Wait until a device is connected and unlocked, then back it up."});
}

int BackupCommand::run(const QCommandLineParser& parser, CommandContext& context)
{
    const QStringList positional = parser.positionalArguments();
    if (positional.size() != 1)
        return usageError(context, "backup takes exactly one backup folder.");
    Options options;
    options.all = parser.isSet("all");
    options.folders = parser.values("folder");
    if (!options.all && options.folders.isEmpty())
        return usageError(context, "Choose what to back up: --all, or --folder X for each folder.");
    if (options.all && !options.folders.isEmpty())
        return usageError(context, "Use either --all or --folder, not both.");

    if (auto problem = backupFolderProblem(positional.first())) {
        context.err << *problem << "\n";
        return ExitCode::failed;
    }
    options.dest = QFileInfo(positional.first()).absoluteFilePath();
    if (parser.isSet("udid"))
        options.udid = parser.value("udid");
    options.includeHidden = parser.isSet("include-hidden");
    options.dryRunOnly = parser.isSet("dry-run");
    options.yes = parser.isSet("yes");
    options.quiet = parser.isSet("quiet");
    options.wait = parser.isSet("wait");
    options.reportPath = parser.value("report");
    if (!options.reportPath.isEmpty()) {
        options.reportPath = QFileInfo(options.reportPath).absoluteFilePath();
        if (auto refused = RunReport::refusal(options.reportPath, options.dest)) {
            context.err << *refused << "\n";
            return ExitCode::usage;
        }
    }

    BackupRun run(options, context);
    return run.execute();
}
