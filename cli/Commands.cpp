#include "Commands.h"

#include "DevicesCommand.h"
#include "LsCommand.h"
#include "PullCommand.h"
#include "VerifyCommand.h"

std::vector<std::unique_ptr<Command>> makeCommands()
{
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<DevicesCommand>());
    commands.push_back(std::make_unique<LsCommand>());
    commands.push_back(std::make_unique<PullCommand>());
    commands.push_back(std::make_unique<VerifyCommand>());
    return commands;
}
