#pragma once

#include "VerificationReport.h"

#include <QString>

#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

// Checks that every file a backup folder's manifest records is there with its recorded size and
// SHA-256. It only reads: the manifest is opened read-only (a manifest left in the middle of a
// change by a killed run is read from a private copy) and nothing is written in the folder.
class BackupVerifier {
public:
    // Called after each row with (rows done, rows in all).
    using Progress = std::function<void(int done, int total)>;

    // One row of the manifest's files.
    struct RecordedFile {
        QString relPath;
        QString sha256;
        int64_t size = 0;
        QString status;
        QString sourcePath;                 // on the device
        std::optional<QString> captureDate; // as the manifest writes dates
    };

    // Throws SQLiteError when the manifest cannot be read, BackupFolderError when it or its journal
    // is not a plain file, std::runtime_error when there is none.
    static VerificationReport run(const QString& root, const Progress& onProgress = {});
    // Every file the manifest records, ordered by path; throws as run() does.
    static std::vector<RecordedFile> recordedFiles(const QString& root);
};
