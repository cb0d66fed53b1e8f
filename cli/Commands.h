#pragma once

#include "Command.h"

#include <memory>
#include <vector>

// Every command of ombrelo-cli, in the order --help lists them.
std::vector<std::unique_ptr<Command>> makeCommands();
