#pragma once

#include "DescribedError.h"

#include <QString>

#include <optional>

// Why the manifest of the backup folder `root` cannot be used, with SQLite's own text in brackets.
QString manifestProblem(const QString& root, const QString& detail);

// Why the folder `given` on the command line cannot be a backup folder (it is missing, or it is a
// file), or nothing when it is a folder.
std::optional<QString> backupFolderProblem(const QString& given);
