#pragma once

#include <QHash>
#include <QSet>
#include <QString>
#include <QStringList>

#include <cstdint>
#include <variant>

// What one run is to do. Every field is given by the caller.
struct BackupOptions {
    QSet<QString> nodeIDs;
    bool dryRun = false;
    // Per leaf id, the only assets of that leaf that take part; a leaf not listed takes part whole.
    QHash<QString, QSet<QString>> onlyAssets;
};

// A snapshot sent before each asset, while a file of it streams from the device (a few times a
// second), and once at the end of a run.
struct BackupProgress {
    int64_t assetsDone = 0;
    int64_t assetsTotal = 0;
    QString currentName;
    uint64_t bytesCopied = 0;
    // The file of the current asset that is streaming from the device: bytes so far and its size
    // (both 0 between files).
    uint64_t fileBytesDone = 0;
    uint64_t fileBytesTotal = 0;
    // Bytes of the run streamed from the device so far, the files fetched ahead included.
    uint64_t bytesDone = 0;
};

// What the engine hands to its listener: a progress snapshot or a line of the run log.
// A log line keeps its wording whole: one that reports a failure begins "ERROR ", one that reports a
// problem worth a look "WARNING "; its severity says the same, so that no listener needs to read it
// back out of the text. `assetUUID` names the asset the line is about, when there is one.
struct BackupEvent {
    enum class Kind { progress, log };
    enum class Severity { info, warning, error };

    static BackupEvent makeProgress(const BackupProgress& progress)
    {
        return {Kind::progress, progress, {}, Severity::info, {}};
    }
    static BackupEvent makeLog(const QString& line, const QString& assetUUID = {})
    {
        return {Kind::log, {}, line, Severity::info, assetUUID};
    }
    // "WARNING " + text
    static BackupEvent makeWarning(const QString& text, const QString& assetUUID = {})
    {
        return {Kind::log, {}, QStringLiteral("WARNING ") + text, Severity::warning, assetUUID};
    }
    // "ERROR " + text
    static BackupEvent makeError(const QString& text, const QString& assetUUID = {})
    {
        return {Kind::log, {}, QStringLiteral("ERROR ") + text, Severity::error, assetUUID};
    }

    Kind kind = Kind::log;
    BackupProgress progress;
    QString line;
    Severity severity = Severity::info;
    QString assetUUID;
};

// The outcome of a run.
struct BackupSummary {
    int filesCopied = 0;
    uint64_t bytesCopied = 0;
    int filesAlreadyBackedUp = 0;
    int duplicatesDiscarded = 0;
    int filesAdopted = 0;
    int filesToCopy = 0;
    QStringList assetsNotOnDevice;
    QStringList dateWarnings;
    QStringList errors;
    bool cancelled = false;
    bool isDryRun = false;
    // The run ended early because the device stopped answering (its line is among the errors).
    bool deviceStopped = false;

    // The summary shown to the user after a run; always at least two lines.
    QStringList lines() const;
};

// A byte count as a file manager shows it (decimal units).
QString formatByteCount(uint64_t bytes);
