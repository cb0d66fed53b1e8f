#include "LsCommand.h"

#include "DeviceAccess.h"
#include "device/AFCDevice.h"

void LsCommand::configure(QCommandLineParser& parser) const
{
    parser.addPositionalArgument("DEVICE_PATH", "An absolute folder path on the device, such as /DCIM.");
    parser.addOption(udidOption());
}

int LsCommand::run(const QCommandLineParser& parser, CommandContext& context)
{
    const QStringList arguments = parser.positionalArguments();
    if (arguments.size() != 1)
        return usageError(context, "one DEVICE_PATH is needed.");
    return runWithDevice(context, [&] {
        AFCDevice device(chosenUdid(parser));
        for (const QString& entry : device.listDirectory(arguments.first()))
            context.out << entry << "\n";
        return ExitCode::ok;
    });
}
