#pragma once

#include "BackupRecords.h"
#include "ExistingBackup.h"
#include "Manifest.h"
#include "checks/Compatibility.h"
#include "device/DeviceInfo.h"
#include "library/PhotoLibrary.h"

#include <QString>

#include <functional>
#include <memory>
#include <optional>

class MediaSource;
struct BackupPlan;
struct CompletenessReport;

// The steps of a backup, for every front end: connect to a device, read its library, look at the
// backup folder, plan, make the dry run, copy. The command-line tool and the window drive the same
// steps in the same order; neither knows how any step is done.
//
// Each step may take long and is meant for a worker thread. A session is used by one thread at a
// time, steps one after another; its source may be shared with other readers (a device lets one
// reader at a time through its lock), and stays alive as long as any of them holds it.
class BackupSession {
public:
    // How a run reports to its front end while it works, and how it is asked to stop. Both are
    // called on the thread that runs it.
    struct RunControl {
        std::function<bool()> isCancelled;
        std::function<void(const BackupEvent&)> onEvent;
    };

    // Opens the device with this UDID, or the first one connected by USB. Throws DeviceError.
    void connect(const std::optional<QString>& udid);
    // A source that is not a phone (demo mode, tests), for the device it stands for.
    void useSource(std::shared_ptr<MediaSource> source, const DeviceInfo& device);
    const DeviceInfo& device() const { return m_device; }
    const std::shared_ptr<MediaSource>& source() const { return m_source; }
    // Whether the device's OS release is one this version has been tested against.
    Compatibility::Status compatibility() const;

    // Copies the device's Photos database into the device's cache folder, checks the copy and
    // reads it; the copy made at an earlier connection is read again when the device's database
    // files have not changed since. Throws MediaSourceError, SQLiteError, PhotoLibraryError or
    // DescribedError.
    const PhotoLibrary& readLibrary();
    // Whether readLibrary() used the copy already in the cache.
    bool reusedCachedLibrary() const { return m_reusedCopy; }
    // A library read elsewhere (demo mode, a database file).
    void useLibrary(PhotoLibrary library);
    const PhotoLibrary& library() const { return m_library; }

    // The tree of what can be backed up, keeping the folder names the backup folder already uses.
    BackupPlan plan(const ExistingBackup& existing) const;
    // The device's files against its library. Throws MediaSourceError.
    CompletenessReport checkCompleteness(const BackupPlan& plan) const;

    // Refuses, before the device is read or anything written, a backup folder that is missing, one
    // whose manifest is damaged or another program's, and (forCopying) one another run copies into.
    // Throws DescribedError, BackupFolderBusy.
    static void checkFolder(const QString& root, bool forCopying);

    // Counts what a run would copy. Writes nothing, not even a manifest into a folder without one.
    BackupSummary dryRun(const BackupPlan& plan, const QString& root, const BackupOptions& options,
                         const RunControl& control) const;
    // Copies. Throws only when the run cannot start (see checkFolder; and a temporary folder that
    // cannot be made); every failure of one item is a line of the log and a count of the summary.
    BackupSummary run(const BackupPlan& plan, const QString& root, const BackupOptions& options,
                      const RunControl& control) const;

private:
    BackupSummary runEngine(const BackupPlan& plan, const QString& root, const QString& manifestFolder,
                            Manifest::Access access, const BackupOptions& options, const RunControl& control) const;

    DeviceInfo m_device;
    std::shared_ptr<MediaSource> m_source;
    PhotoLibrary m_library;
    bool m_reusedCopy = false;
};
