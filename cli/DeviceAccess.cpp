#include "DeviceAccess.h"

#include "DescribedError.h"

#include <stdexcept>

int runWithDevice(CommandContext& context, const std::function<int()>& work)
{
    try {
        return work();
    } catch (const std::exception& error) {
        context.err << describeError(error) << "\n";
    }
    return ExitCode::failed;
}

QCommandLineOption udidOption()
{
    return {"udid", "Use the device with this udid (default: the first device connected by USB).", "UDID"};
}

std::optional<QString> chosenUdid(const QCommandLineParser& parser)
{
    if (!parser.isSet("udid"))
        return std::nullopt;
    return parser.value("udid");
}
