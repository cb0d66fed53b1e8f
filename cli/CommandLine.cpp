#include "CommandLine.h"

#include "Commands.h"
#include "Version.h"

CommandLine::CommandLine() : m_commands(makeCommands()) {}

QString CommandLine::usage() const
{
    QString text = "Usage: ombrelo-cli [--help] [--version] <command> [options]\n\n"
                   "Backs up the photos and videos of a USB-connected iPhone or iPad into a folder,\n"
                   "with the device's albums as folders.\n\nCommands:\n";
    for (const auto& command : m_commands)
        text += "  " + command->name().leftJustified(10) + " " + command->summary() + "\n";
    text += "\nRun \"ombrelo-cli <command> --help\" for a command's options.\n";
    return text;
}

Command* CommandLine::find(const QString& name) const
{
    for (const auto& command : m_commands)
        if (command->name() == name)
            return command.get();
    return nullptr;
}

int CommandLine::run(const QStringList& arguments, CommandContext& context)
{
    if (arguments.isEmpty()) {
        context.err << "ombrelo-cli: a command is needed.\n" << usage();
        return ExitCode::usage;
    }
    const QString first = arguments.first();
    if (first == "--help" || first == "-h" || first == "help") {
        context.out << usage();
        return ExitCode::ok;
    }
    if (first == "--version") {
        context.out << "ombrelo-cli " << ombrelo::kVersion << "\n";
        return ExitCode::ok;
    }
    Command* command = find(first);
    if (!command) {
        const QString what = first.startsWith('-') ? "unknown option" : "unknown command";
        context.err << "ombrelo-cli: " << what << " \"" << first << "\".\n" << usage();
        return ExitCode::usage;
    }
    return command->execute(arguments.mid(1), context);
}
