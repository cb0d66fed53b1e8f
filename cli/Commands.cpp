#include "Commands.h"

#include "VerifyCommand.h"

std::vector<std::unique_ptr<Command>> makeCommands()
{
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<VerifyCommand>());
    return commands;
}
