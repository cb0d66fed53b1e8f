#pragma once

#include "VerificationReport.h"

#include <QString>

#include <functional>

// Checks that every file a backup folder's manifest records is there with its recorded size and
// SHA-256. It only reads: the manifest is opened read-only (a manifest left in the middle of a
// change by a killed run is read from a private copy) and nothing is written in the folder.
class BackupVerifier {
public:
    // Called after each row with (rows done, rows in all).
    using Progress = std::function<void(int done, int total)>;

    // Throws SQLiteError when the manifest cannot be read, std::runtime_error when there is none.
    static VerificationReport run(const QString& root, const Progress& onProgress = {});
};
