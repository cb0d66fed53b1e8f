#pragma once

#include "library/PhotoLibrary.h"

#include <QString>

// A Photos database file the user names (`--db`), with its -wal and -shm beside it.
namespace PhotosDatabaseFile {

// Reads the library from a private copy. SQLite, opening a database for writing, folds its log
// into it and may delete the log files; the user's files stay exactly as they were (they may even
// be on a phone mounted with ifuse). Throws std::runtime_error with the user's text when the file
// is missing or cannot be copied, and what PhotoLibrary::load throws.
PhotoLibrary read(const QString& path);

} // namespace PhotosDatabaseFile
