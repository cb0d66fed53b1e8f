#include "CheckCommand.h"

#include "DeviceLibrary.h"
#include "ErrorText.h"
#include "checks/CompletenessReport.h"
#include "plan/BackupPlan.h"

QString CheckCommand::summary() const
{
    return QStringLiteral("Check that the device holds every library item's file, and nothing unknown.");
}

void CheckCommand::configure(QCommandLineParser& parser) const
{
    parser.setApplicationDescription(summary() +
                                     "\nLists the camera folders of the device and compares them with its Photos "
                                     "library:\nitems stored only in iCloud cannot be backed up, and files the "
                                     "library does not know are not backed up.");
    parser.addOption({"udid", "Check the device with this UDID (default: the first one).", "U"});
}

int CheckCommand::run(const QCommandLineParser& parser, CommandContext& context)
{
    if (!parser.positionalArguments().isEmpty())
        return usageError(context, "check takes no arguments besides its options.");
    std::optional<QString> udid;
    if (parser.isSet("udid"))
        udid = parser.value("udid");
    try {
        BackupSession session;
        DeviceLibrary::open(session, udid, context.out);
        const CompletenessReport report = session.checkCompleteness(session.plan({}));
        for (const QString& line : report.lines())
            context.out << line << "\n";
        return ExitCode::ok;
    } catch (const std::exception& error) {
        context.err << describeError(error) << "\n";
        return ExitCode::failed;
    }
}
