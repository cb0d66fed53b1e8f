#pragma once

#include "BackupRecords.h"
#include "DestinationFolder.h"
#include "Manifest.h"
#include "SourceQueue.h"
#include "device/DownloadResult.h"
#include "library/LibraryAsset.h"
#include "plan/BackupNode.h"
#include "plan/SourceComponent.h"

#include <QDateTime>
#include <QHash>
#include <QList>
#include <QSet>
#include <QString>
#include <QStringList>
#include <QVarLengthArray>

#include <exception>
#include <functional>
#include <memory>
#include <optional>

class MediaSource;
struct BackupPlan;

// Carries out one backup run: every file of every asset of the ticked folders is checked against
// the manifest, downloaded once, and copied into each folder that needs it under a name that never
// replaces anything, with the manifest row written only once the file is complete on disk.
// One engine per run, used from one thread: events and cancellation queries come on the thread that
// called run(). During a run the source is called from a thread of the engine's own, which lists
// folders and downloads files a little ahead, so that the link stays busy while files are written.
// It keeps references to the source, the plan and the manifest, which must outlive it.
class BackupEngine {
public:
    using SourceComponent = ::SourceComponent;

    // The files that make up an asset, and the names found beside it that belong to none of them.
    struct Components {
        QList<SourceComponent> parts;
        QStringList unhandled;
    };

    static inline const QString tempFolderName = QStringLiteral(".ombrelo-tmp");

    BackupEngine(MediaSource& source, const BackupPlan& plan, const QString& root, Manifest& manifest);

    // The whole run. A real run holds the folder's BackupFolderLock from start to end. Throws only
    // when the run cannot start: BackupFolderBusy when another run holds the folder, BackupError
    // when the temporary folder cannot be made, std::runtime_error when the folder cannot be
    // locked. Every failure of a single asset becomes an "ERROR " line and a count in the summary.
    BackupSummary run(const BackupOptions& options, const std::function<bool()>& isCancelled,
                      const std::function<void(const BackupEvent&)>& onEvent);

    // The asset's files on the device; nothing when they are not stored there.
    std::optional<Components> components(const LibraryAsset& asset);
    // The stem every file of the asset is named after in the folder `dest` (relative to the root),
    // reserved in the manifest on first use so that it never changes.
    QString stem(const LibraryAsset& asset, const QString& dest);
    // Sets a file's modification and access times to `date` (a file's birth time cannot be set);
    // returns a warning text when that failed or did not hold to within two seconds.
    std::optional<QString> setDates(const QString& file, const QDateTime& date);

private:
    using EventHandler = std::function<void(const BackupEvent&)>;

    // A listed device folder, ready for asking about one asset: its names grouped by case-folded
    // stem, in ascending order.
    struct FolderIndex {
        QHash<QString, QStringList> namesByStem;
        // The names whose stem equals this file's without regard to case, in ascending order; none
        // when the folder does not hold the file itself.
        const QStringList* siblingsOf(const QString& fileName) const;
    };

    // What was found out about an asset before its turn, so that its downloads could start early:
    // its components (or the failure to list them) and the downloads under way. Used up when the
    // asset's turn comes.
    struct Lookahead {
        struct Download {
            SourceQueue::Ticket ticket = 0;
            QString destination;
        };
        bool hasComponents = false;
        std::optional<Components> components;
        std::exception_ptr componentsFailure;
        QHash<QString, Download> downloads; // by source path
    };

    void lookAhead(const LibraryAsset& asset, const QList<BackupNode>& leaves, const QString& tmp);
    void listAhead(const LibraryAsset& asset);
    void listSoon(const QString& folder);
    static QString adjustmentsFolder(const LibraryAsset& asset, const QString& stem);
    void forget(const QString& assetUUID);
    std::optional<Components> componentsOf(const LibraryAsset& asset);
    // The download of the asset's file: the one begun ahead, or one queued now.
    Lookahead::Download downloadFor(const QString& assetUUID, const SourceComponent& part, const QString& tmp);
    std::optional<QStringList> listing(const QString& directory);
    // The folder of the library's `directory` (no leading "/"); nothing when it is not on the device.
    const FolderIndex* folderIndex(const QString& directory);
    const QHash<QString, QSet<QString>>& knownFilesByDirectory();
    bool backUp(const LibraryAsset& asset, const QList<BackupNode>& leaves, const QString& tmp, bool dryRun,
                BackupSummary& summary, const EventHandler& onEvent);
    void backUpComponent(const LibraryAsset& asset, const SourceComponent& part, const QList<BackupNode>& pending,
                         const QString& tmp, BackupSummary& summary, const EventHandler& onEvent);
    // Which components of an asset the manifest records in one folder: one bit per Component.
    struct RecordedFolder {
        QString dest;
        uint32_t components = 0;
    };
    using RecordedFolders = QVarLengthArray<RecordedFolder, 2>;

    void loadRecorded(const QSet<QString>& dests);
    static void recordIn(RecordedFolders& folders, const QString& dest, uint32_t components);
    bool isRecorded(const QString& asset, const QString& dest, Component component);
    void insertRow(const LibraryAsset& asset, const QString& dest, const SourceComponent& part,
                   const QString& relativePath, const DownloadResult& content, Manifest::Status status);
    std::optional<QString> applyDates(const QString& file, const QDateTime& date);
    bool stopRequested() const;

    MediaSource& m_source;
    const BackupPlan& m_plan;
    DestinationFolder m_root;
    Manifest& m_manifest;
    QHash<QString, std::optional<QStringList>> m_listingCache;
    QHash<QString, FolderIndex> m_folderIndexes;
    QHash<QString, QSet<QString>> m_destStems;
    std::optional<QHash<QString, QSet<QString>>> m_knownFilesByDirectory;
    std::unique_ptr<SourceQueue> m_queue;                  // during a run
    std::function<bool()> m_isCancelled;                   // during a run
    BackupProgress m_current;                              // the progress sent before the current asset
    QHash<QString, SourceQueue::Ticket> m_pendingListings; // listings asked for ahead, by folder
    QHash<QString, Lookahead> m_ahead;                     // by asset UUID
    // The files the manifest records in the run's folders, by asset UUID, read at the start and
    // kept up to date with the rows the run writes. Absent when it could not be read.
    std::optional<QHash<QString, RecordedFolders>> m_recorded;
    QSet<QString> m_recordedFolders;
};
