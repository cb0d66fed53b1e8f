#pragma once

#include "Command.h"

#include <QStringList>

#include <memory>
#include <vector>

// The ombrelo-cli dispatcher: global options, then one command with its own arguments.
class CommandLine {
public:
    CommandLine();

    // `arguments` excludes the program name. Returns the process exit code.
    int run(const QStringList& arguments, CommandContext& context);
    QString usage() const;

private:
    Command* find(const QString& name) const;

    std::vector<std::unique_ptr<Command>> m_commands;
};
