#pragma once

#include <QString>

#include <exception>
#include <optional>

// The user-facing text of any failure that ends a command: the description of the system's own
// errors, or the message of anything else.
QString describeError(const std::exception& error);

// Why the manifest of the backup folder `root` cannot be used, with SQLite's own text in brackets.
QString manifestProblem(const QString& root, const QString& detail);

// Why the folder `given` on the command line cannot be a backup folder (it is missing, or it is a
// file), or nothing when it is a folder.
std::optional<QString> backupFolderProblem(const QString& given);
