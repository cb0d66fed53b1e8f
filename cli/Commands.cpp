#include "Commands.h"

#include "BackupCommand.h"
#include "CheckCommand.h"
#include "DevicesCommand.h"
#include "LibraryCommand.h"
#include "LsCommand.h"
#include "PullCommand.h"
#include "TreeCommand.h"
#include "VerifyCommand.h"

std::vector<std::unique_ptr<Command>> makeCommands()
{
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<BackupCommand>());
    commands.push_back(std::make_unique<TreeCommand>());
    commands.push_back(std::make_unique<CheckCommand>());
    commands.push_back(std::make_unique<VerifyCommand>());
    commands.push_back(std::make_unique<DevicesCommand>());
    commands.push_back(std::make_unique<LibraryCommand>());
    commands.push_back(std::make_unique<LsCommand>());
    commands.push_back(std::make_unique<PullCommand>());
    return commands;
}
