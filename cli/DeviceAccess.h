#pragma once

#include "Command.h"

#include <QCommandLineParser>
#include <QString>

#include <functional>
#include <optional>

// Runs a command's device work, turning device, media and local file failures into their
// description on stderr and ExitCode::failed.
int runWithDevice(CommandContext& context, const std::function<int()>& work);

// The --udid option shared by the commands that open a device, and its value.
QCommandLineOption udidOption();
std::optional<QString> chosenUdid(const QCommandLineParser& parser);
