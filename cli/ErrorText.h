#pragma once

#include <QString>

#include <exception>

// The user-facing text of any failure that ends a command: the description of the system's own
// errors, or the message of anything else.
QString describeError(const std::exception& error);

// Why the manifest of the backup folder `root` cannot be used, with SQLite's own text in brackets.
QString manifestProblem(const QString& root, const QString& detail);
