#pragma once

#include "DescribedError.h"

#include <QString>

// Why the manifest of the backup folder `root` cannot be used, with SQLite's own text in brackets.
QString manifestProblem(const QString& root, const QString& detail);
