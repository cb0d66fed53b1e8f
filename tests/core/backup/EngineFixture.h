#pragma once

// Shared by the engine's tests: a phone in memory (its files and the library describing them),
// a backup folder with a real manifest, and readers of what a backup left on disk.

#include "FakeMediaSource.h"
#include "FolderSnapshot.h"
#include "QtPrinters.h"
#include "TempDir.h"
#include "backup/BackupEngine.h"
#include "backup/Manifest.h"
#include "checks/BackupVerifier.h"
#include "device/MediaSourceError.h"
#include "library/PhotoLibrary.h"
#include "library/SQLiteDB.h"
#include "plan/BackupPlan.h"

#include <QFile>
#include <QFileInfo>
#include <QMap>

#include <functional>
#include <memory>
#include <ostream>

inline void PrintTo(const SourceComponent& part, std::ostream* out)
{
    *out << rawValue(part.component).toStdString() << " " << part.sourcePath.toStdString() << " ."
         << part.ext.toStdString();
}

// A media source with seams for faults: a hook before every download (the count starts at 1), one
// while a download is under way (its token tells when it is no longer wanted), files that are
// listed but gone when fetched, and a count of directory listings.
class ScriptedSource : public FakeMediaSource {
public:
    std::function<void(const QString& path, const QString& destination, int count)> beforeDownload;
    std::function<void(const QString& path, const DownloadControl& control)> whileDownloading;
    QSet<QString> vanished;
    QHash<QString, int> listings;
    int downloads = 0;

    QStringList listDirectory(const QString& path) override
    {
        listings[path] += 1;
        return FakeMediaSource::listDirectory(path);
    }
    DownloadResult download(const QString& path, const QString& destination,
                            const DownloadControl& control = {}) override
    {
        ++downloads;
        if (beforeDownload)
            beforeDownload(path, destination, downloads);
        if (vanished.contains(path))
            throw MediaSourceError::notFound(path);
        const DownloadResult result = FakeMediaSource::download(path, destination, control);
        if (whileDownloading)
            whileDownloading(path, control);
        return result;
    }
};

// Thrown from a hook to stop a run dead, the way a killed process stops: it is no std::exception,
// so the engine does not catch it as an asset failure.
struct Killed {};

inline constexpr double kJan2024 = 725846400.0; // 2024-01-02 00:00:00 UTC in library seconds

struct TestPhone {
    ScriptedSource source;
    PhotoLibrary library;

    // Adds an asset and its original file; returns its index in library.assets.
    LibraryAsset& addAsset(const QString& uuid, const QString& filename, const QByteArray& content,
                           std::optional<double> date = kJan2024, const QString& directory = "DCIM/100APPLE")
    {
        LibraryAsset asset;
        asset.pk = library.assets.size() + 1;
        asset.uuid = uuid;
        asset.directory = directory;
        asset.filename = filename;
        asset.dateCreated = date;
        asset.isVideo =
            filename.endsWith(".MP4", Qt::CaseInsensitive) || filename.endsWith(".MOV", Qt::CaseInsensitive);
        source.addFile("/" + directory + "/" + filename, content);
        library.assets.append(asset);
        return library.assets.last();
    }
    LibraryAsset& asset(const QString& uuid)
    {
        for (LibraryAsset& a : library.assets)
            if (a.uuid == uuid)
                return a;
        throw std::runtime_error("no such asset");
    }
    int64_t addAlbum(const QString& uuid, const QString& title, std::optional<int64_t> parent = std::nullopt,
                     bool isFolder = false)
    {
        LibraryAlbum album;
        album.pk = 1000 + library.albums.size();
        album.uuid = uuid;
        album.title = title;
        album.isFolder = isFolder;
        album.parentPK = parent;
        library.albums.append(album);
        return album.pk;
    }
    void putInAlbum(int64_t albumPK, const QString& assetUUID)
    {
        library.membership[albumPK].append(asset(assetUUID).pk);
    }
};

// One run's outcome with everything it reported.
struct RunResult {
    BackupSummary summary;
    QStringList log;
    QList<BackupProgress> progress;
};

inline RunResult runEngine(MediaSource& source, const BackupPlan& plan, const QString& root, Manifest& manifest,
                           const BackupOptions& options, std::function<bool()> isCancelled = {},
                           std::function<void(const BackupEvent&)> spy = {})
{
    RunResult result;
    BackupEngine engine(source, plan, root, manifest);
    result.summary = engine.run(
        options, isCancelled ? isCancelled : [] { return false; },
        [&](const BackupEvent& event) {
            if (spy)
                spy(event);
            if (event.kind == BackupEvent::Kind::log)
                result.log << event.line;
            else
                result.progress << event.progress;
        });
    return result;
}

inline BackupOptions options(const QStringList& ids, bool dryRun = false)
{
    BackupOptions o;
    o.nodeIDs = QSet<QString>(ids.begin(), ids.end());
    o.dryRun = dryRun;
    return o;
}

// Everything in a backup folder (FolderSnapshot) but the manifest and its journal.
inline FolderSnapshot backupFolder(const QString& root)
{
    FolderSnapshot snapshot = FolderSnapshot::take(root);
    snapshot.files.remove(Manifest::fileName);
    snapshot.files.remove(Manifest::fileName + "-journal");
    return snapshot;
}

// The manifest's file rows, one text per row in key order. `withStatus` false leaves out how a row
// came about (copied or adopted) and when, which an interrupted run may change.
inline QStringList fileRows(Manifest& manifest, bool withStatus = true)
{
    QStringList rows;
    manifest.db().query("SELECT asset_uuid, dest, component, rel_path, sha256, size, capture_date, source_path, "
                        "status FROM files ORDER BY asset_uuid, dest, component",
                        {}, [&](const SQLRow& row) {
                            QStringList values;
                            for (int c = 0; c < (withStatus ? 9 : 8); ++c)
                                values << row.text(c).value_or("NULL");
                            rows << values.join(" | ");
                        });
    return rows;
}

// The folder and its manifest agree: every recorded file exists with its size and hash, as the
// product's own checker sees it.
inline QStringList inconsistencies(const QString& root)
{
    const VerificationReport report = BackupVerifier::run(root);
    return report.missing + report.changed;
}
