#include "BackupEngine.h"

#include "BackupError.h"
#include "BackupFolderLock.h"
#include "DescribedError.h"
#include "device/MediaSource.h"
#include "device/MediaSourceError.h"
#include "device/StreamingHasher.h"
#include "library/SQLiteError.h"
#include "plan/BackupPlan.h"
#include "plan/FileNaming.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QStringBuilder>
#include <QUuid>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <sys/stat.h>

namespace {

QString freshName() { return QUuid::createUuid().toString(QUuid::WithoutBraces); }

// Thrown inside an asset when a stop is asked for in the middle of it; the run ends there.
struct RunStopped {};

const QString kDeviceStopped = QStringLiteral("The device stopped responding. Check the cable, unlock it, and run the "
                                              "backup again: it carries on where it stopped.");
// After this many items in a row fail because the connection to the device failed, it is gone.
constexpr int kLinkFailuresToGiveUp = 3;

// Whether an item's failure means the device is gone: it stopped answering, or the link to it
// failed for the last few items in a row (counted in `linkFailures`).
bool deviceIsGone(const std::exception& error, int& linkFailures)
{
    const auto* media = dynamic_cast<const MediaSourceError*>(&error);
    if (media && media->kind() == MediaSourceError::Kind::deviceStopped)
        return true;
    if (!media || media->kind() != MediaSourceError::Kind::linkLost) {
        linkFailures = 0;
        return false;
    }
    return ++linkFailures >= kLinkFailuresToGiveUp;
}

// Whether a name beside an asset's file could be one of its files: a live video or a sidecar
// (an extension as FileNaming::split cuts it, any case).
bool isSiblingKind(const QString& name)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    if (dot <= 0)
        return false;
    const QStringView ext = QStringView(name).mid(dot + 1);
    return ext.compare(u"MOV", Qt::CaseInsensitive) == 0 || ext.compare(u"AAE", Qt::CaseInsensitive) == 0;
}

// A file name's stem (as FileNaming::split cuts it), case-folded: how names beside an asset are matched.
QString foldedStem(const QString& name)
{
    const qsizetype dot = name.lastIndexOf(u'.');
    return (dot <= 0 ? name : name.left(dot)).toCaseFolded();
}

// The leaves an asset's files go to: one per folder path, and only paths that stay inside the
// backup folder; `onUnsafe`, when given, hears of each of the others.
QList<BackupNode> targetsOf(const QList<BackupNode>& leaves,
                            const std::function<void(const BackupNode&)>& onUnsafe = {})
{
    QList<BackupNode> targets;
    for (const BackupNode& leaf : leaves) {
        if (!DestinationFolder::isSafeRelativePath(leaf.relativePath)) {
            if (onUnsafe)
                onUnsafe(leaf);
            continue;
        }
        if (std::none_of(targets.cbegin(), targets.cend(),
                         [&](const BackupNode& target) { return target.relativePath == leaf.relativePath; }))
            targets.append(leaf);
    }
    return targets;
}

// Removes a file of the engine's own (a download or a copy waiting for its name) when the scope
// ends, however it ends. A file that is already gone is not an error.
class OwnFile {
public:
    OwnFile() = default;
    explicit OwnFile(const QString& path) : m_path(path) {}
    OwnFile(const OwnFile&) = delete;
    OwnFile& operator=(const OwnFile&) = delete;
    ~OwnFile() { reset(); }

    void reset(const QString& path = {})
    {
        if (!m_path.isEmpty())
            QFile::remove(m_path);
        m_path = path;
    }
    const QString& path() const { return m_path; }
    bool isEmpty() const { return m_path.isEmpty(); }

private:
    QString m_path;
};

void removeTemporaryFolder(const QString& path)
{
    const QFileInfo info(path);
    // A link is removed itself; what it points at is never touched.
    if (info.isSymLink() || (info.exists() && !info.isDir()))
        QFile::remove(path);
    else if (info.exists())
        QDir(path).removeRecursively();
}

// Numbering stops somewhere, so that a file system that answers strangely cannot keep a run busy.
constexpr int kMaxNameAttempts = 10000;

// Assets looked at ahead of their turn, so that their downloads can start early, and the finished
// downloads allowed to wait in the temporary folder: enough to keep the link busy while a file is
// copied, synced and recorded (more when it goes into several folders), few enough to take little
// room and to fetch little in vain when a run is cancelled.
constexpr int64_t kLookahead = 8;
constexpr int kReadyDownloads = 4;
// Assets whose edits folder is listed ahead: with everything backed up already, listing those
// folders is most of the time a run takes, and the next ones are listed while lines are sent.
constexpr int64_t kListingLookahead = 32;

const QString kFileRowInsert = QStringLiteral("INSERT OR IGNORE INTO files VALUES(?,?,?,?,?,?,?,?,?,?)");
const QString kFileRowSelect = QStringLiteral("SELECT 1 FROM files WHERE asset_uuid=? AND dest=? AND component=?");
const QString kFileRowKeys = QStringLiteral("SELECT asset_uuid, dest, component FROM files ORDER BY asset_uuid");

} // namespace

BackupEngine::BackupEngine(MediaSource& source, const BackupPlan& plan, const QString& root, Manifest& manifest)
    : m_source(source), m_plan(plan), m_root(root), m_manifest(manifest)
{
}

BackupSummary BackupEngine::run(const BackupOptions& options, const std::function<bool()>& isCancelled,
                                const EventHandler& onEvent)
{
    BackupSummary summary;
    summary.isDryRun = options.dryRun;
    const auto send = [&](const BackupEvent& event) {
        if (onEvent)
            onEvent(event);
    };

    // The work list: each asset once, with every leaf it goes to, in order of first appearance.
    QStringList ids(options.nodeIDs.cbegin(), options.nodeIDs.cend());
    ids.sort();
    QList<BackupNode> leaves; // every leaf of the run, once
    // The assets in order; none for a UUID the plan does not know, which still counts in the total.
    std::vector<const LibraryAsset*> order;
    QHash<const LibraryAsset*, qsizetype> position; // an asset's place in `order`
    QHash<QString, qsizetype> unknownPosition;
    std::vector<std::pair<qsizetype, int>> placed; // (place in `order`, index in `leaves`)
    QSet<QString> leavesSeen;
    QSet<QString> dests;
    for (const QString& id : ids) {
        const auto node = m_plan.node(id);
        if (!node)
            continue;
        for (const BackupNode& leaf : node->leaves()) {
            if (leavesSeen.contains(leaf.id))
                continue;
            leavesSeen.insert(leaf.id);
            dests.insert(leaf.relativePath);
            const int leafIndex = int(leaves.size());
            leaves.append(leaf);
            const auto allowed = options.onlyAssets.constFind(leaf.id);
            for (const QString& uuid : leaf.assetUUIDs) {
                if (allowed != options.onlyAssets.cend() && !allowed->contains(uuid))
                    continue;
                const auto known = m_plan.assetsByUUID.constFind(uuid);
                const LibraryAsset* asset = known == m_plan.assetsByUUID.cend() ? nullptr : &*known;
                // Keyed by the asset itself where there is one: no text to hash and compare.
                qsizetype at = asset ? position.value(asset, -1) : unknownPosition.value(uuid, -1);
                if (at < 0) {
                    at = qsizetype(order.size());
                    order.push_back(asset);
                    if (asset)
                        position.insert(asset, at);
                    else
                        unknownPosition.insert(uuid, at);
                }
                placed.push_back({at, leafIndex});
            }
        }
    }
    position.clear();
    unknownPosition.clear();
    // Grouped by asset, each asset's leaves in the order they were met.
    std::stable_sort(placed.begin(), placed.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<size_t> firstPlaced(size_t(order.size()) + 1, placed.size());
    for (size_t k = placed.size(); k-- > 0;)
        firstPlaced[size_t(placed[k].first)] = k;
    const auto leavesOf = [&](int64_t i) {
        QList<BackupNode> result;
        for (size_t k = firstPlaced[size_t(i)]; k < placed.size() && placed[k].first == i; ++k)
            result.append(leaves[placed[k].second]);
        return result;
    };

    // What the manifest records for these folders, read at once rather than file by file.
    loadRecorded(dests);

    const QString tmp = m_root.root() + '/' + tempFolderName;
    // One real run per folder: another run's downloads in the temporary folder are not ours to
    // delete. A missing root (a drive not connected) is reported by the temporary folder below.
    std::optional<BackupFolderLock> lock;
    if (!options.dryRun && QFileInfo(m_root.root()).isDir())
        lock.emplace(m_root.root());
    if (!options.dryRun) {
        removeTemporaryFolder(tmp);
        // Made inside the existing root only: a missing root (a drive not connected) is never created.
        if (::mkdir(QFile::encodeName(tmp).constData(), 0777) != 0) {
            const int error = errno;
            const QFileInfo info(tmp);
            if (error != EEXIST || info.isSymLink() || !info.isDir())
                throw BackupError::temporaryFolder(tmp, QString::fromLocal8Bit(std::strerror(error)));
        }
    }

    const auto total = int64_t(order.size());
    m_queue = std::make_unique<SourceQueue>(m_source, kReadyDownloads);
    m_isCancelled = isCancelled;
    // The source thread ends with the run, however the run ends (and before the folder's lock goes);
    // a run that ends normally stops it after the loop already.
    const auto stopQueue = qScopeGuard([this] {
        m_ahead.clear();
        m_pendingListings.clear();
        m_queue.reset();
    });
    int linkFailures = 0; // assets failed in a row because the connection to the device failed
    int64_t lookedAt = 0; // assets before this index have been looked at ahead of their turn
    int64_t listedAt = 0; // and their folders listed ahead
    for (int64_t i = 0; i < total; ++i) {
        if (isCancelled && isCancelled()) {
            summary.cancelled = true;
            break;
        }
        if (!order[size_t(i)])
            continue;
        const LibraryAsset& asset = *order[size_t(i)];
        m_current = {i, total, asset.displayName(), summary.bytesCopied, 0, 0, m_queue->bytesStreamed()};
        send(BackupEvent::makeProgress(m_current));
        for (; listedAt <= std::min(i + kListingLookahead, total - 1); ++listedAt)
            if (const LibraryAsset* next = order[size_t(listedAt)])
                listAhead(*next);
        // This asset's downloads are queued first, then those of the next few.
        for (; !options.dryRun && lookedAt <= std::min(i + kLookahead, total - 1); ++lookedAt)
            if (const LibraryAsset* next = order[size_t(lookedAt)])
                lookAhead(*next, leavesOf(lookedAt), tmp);
        try {
            backUp(asset, leavesOf(i), tmp, options.dryRun, summary, send);
            linkFailures = 0;
        } catch (const RunStopped&) {
            summary.cancelled = true;
            break;
        } catch (const std::exception& error) {
            if (deviceIsGone(error, linkFailures)) {
                // One line for the run rather than one failure per remaining item.
                summary.errors.append(kDeviceStopped);
                summary.deviceStopped = true;
                send(BackupEvent::makeError(kDeviceStopped));
                break;
            }
            const QString text = asset.displayName() + ": " + describeError(error);
            summary.errors.append(text);
            send(BackupEvent::makeError(text, asset.uuid));
        }
        forget(asset.uuid);
    }
    // Downloads begun for assets a cancelled run did not reach are thrown away.
    const uint64_t streamed = m_queue->bytesStreamed();
    m_ahead.clear();
    m_pendingListings.clear();
    m_queue.reset();
    // A cancelled run reports nothing done, whatever it finished.
    send(BackupEvent::makeProgress(
        {summary.cancelled ? 0 : total, total, QString(), summary.bytesCopied, 0, 0, streamed}));

    if (!options.dryRun)
        removeTemporaryFolder(tmp);
    return summary;
}

bool BackupEngine::backUp(const LibraryAsset& asset, const QList<BackupNode>& leaves, const QString& tmp, bool dryRun,
                          BackupSummary& summary, const EventHandler& onEvent)
{
    const QString& name = asset.displayName();
    const auto log = [&](const QString& line) { onEvent(BackupEvent::makeLog(line, asset.uuid)); };
    const auto fail = [&](const QString& text) {
        summary.errors.append(name % u": " % text);
        onEvent(BackupEvent::makeError(name % u": " % text, asset.uuid));
    };

    // A folder path that would lead outside the backup folder (it may come from a manifest) is
    // refused here, before anything is read or written for it.
    const QList<BackupNode> targets = targetsOf(
        leaves, [&](const BackupNode& leaf) { fail(BackupError::unsafeFolder(leaf.relativePath).description()); });
    if (targets.isEmpty())
        return false;

    const auto found = componentsOf(asset);
    if (!found) {
        summary.assetsNotOnDevice.append(name);
        log(u"Not on device, skipped: " % name % u" (" % asset.directory % u'/' % asset.filename % u')');
        return false;
    }
    for (const QString& extra : found->unhandled)
        fail(u"unexpected extra file not backed up: " % extra);

    bool anyPending = false;
    for (const SourceComponent& part : found->parts) {
        QList<BackupNode> pending;
        for (const BackupNode& leaf : targets) {
            if (isRecorded(asset.uuid, leaf.relativePath, part.component)) {
                summary.filesAlreadyBackedUp += 1;
                log(u"Already backed up: " % leaf.relativePath % u' ' % rawValue(part.component) % u" of " % name %
                    u" (" % part.sourcePath % u')');
            } else {
                pending.append(leaf);
            }
        }
        if (pending.isEmpty())
            continue;
        anyPending = true;
        if (dryRun) {
            summary.filesToCopy += 1;
            continue;
        }
        backUpComponent(asset, part, pending, tmp, summary, onEvent);
    }
    return anyPending;
}

void BackupEngine::backUpComponent(const LibraryAsset& asset, const SourceComponent& part,
                                   const QList<BackupNode>& pending, const QString& tmp, BackupSummary& summary,
                                   const EventHandler& onEvent)
{
    const QString name = asset.displayName();
    const auto log = [&](const QString& line) { onEvent(BackupEvent::makeLog(line, asset.uuid)); };

    const Lookahead::Download fetched = downloadFor(asset.uuid, part, tmp);
    OwnFile download(fetched.destination);
    DownloadResult content;
    try {
        // While the file streams, the listener hears how far it has come, and a stop abandons it.
        const auto downloaded = m_queue->takeDownload(fetched.ticket, [&](const SourceQueue::Progress& progress) {
            BackupProgress now = m_current;
            now.bytesCopied = summary.bytesCopied;
            now.fileBytesDone = progress.done;
            now.fileBytesTotal = progress.total;
            now.bytesDone = m_queue->bytesStreamed();
            onEvent(BackupEvent::makeProgress(now));
            return !stopRequested();
        });
        if (!downloaded)
            throw RunStopped{};
        content = *downloaded;
    } catch (const MediaSourceError& error) {
        if (error.kind() != MediaSourceError::Kind::notFound || part.component == Component::original)
            throw;
        log("Missing on device, skipped: " + part.sourcePath);
        return;
    }

    const auto date = asset.captureDate();
    for (qsizetype k = 0; k < pending.size(); ++k) {
        // Each folder's copy is whole and recorded; a stop between them leaves the rest to the next run.
        if (k > 0 && stopRequested())
            throw RunStopped{};
        const BackupNode& leaf = pending[k];
        const QString& dest = leaf.relativePath;

        if (const auto existing = m_manifest.path(content.sha256, dest)) {
            insertRow(asset, dest, part, *existing, content, Manifest::Status::duplicate);
            summary.duplicatesDiscarded += 1;
            log("Already in " + dest + " as " + *existing + ": " + name);
            continue;
        }

        if (leaf.kind == BackupNode::Kind::album)
            m_manifest.recordAlbum(leaf.id, dest, leaf.title);
        const QString stemText = stem(asset, dest);
        const QString folder = m_root.makeFolder(dest);
        const QString firstName = part.fileName(stemText);
        const FileNaming::Parts numbered = FileNaming::split(firstName);
        // The download itself goes to the last folder; every earlier folder gets a copy of it.
        const bool lastFolder = k == pending.size() - 1;

        QString fileName = firstName;
        int n = 2;
        OwnFile copy;   // a complete copy of the download waiting for its name
        OwnFile beside; // the same, staged in the target folder when that is on another drive
        QString ready;  // the complete file to be named: the download, `copy` or `beside`
        std::optional<QString> dateProblem;
        std::optional<Manifest::Status> status;
        for (int attempts = 1; !status; ++attempts) {
            if (attempts > kMaxNameAttempts)
                throw BackupError::write(folder + '/' + firstName, "too many files of that name are in the way");
            if (!DestinationFolder::isSafeFileName(fileName))
                throw BackupError::unsafeName(fileName);
            const QString target = folder + '/' + fileName;
            const auto entry = DestinationFolder::entryAt(target);
            if (entry == DestinationFolder::Entry::file && sha256OfFile(target) == content) {
                status = Manifest::Status::adopted;
                break;
            }
            if (entry == DestinationFolder::Entry::none) {
                if (ready.isEmpty()) {
                    if (lastFolder) {
                        ready = download.path();
                    } else {
                        copy.reset(tmp + '/' + freshName());
                        DestinationFolder::copyFile(download.path(), copy.path());
                        ready = copy.path();
                    }
                    if (date)
                        dateProblem = applyDates(ready, *date);
                    DestinationFolder::syncFile(ready);
                }
                const auto placement = DestinationFolder::placeExclusively(ready, target);
                if (placement == DestinationFolder::Placement::placed) {
                    status = Manifest::Status::copied;
                    break;
                }
                if (placement == DestinationFolder::Placement::otherFileSystem) {
                    // The folder is on another drive than the temporary folder: stage the copy
                    // beside the target instead, under a hidden name of the backup's own.
                    beside.reset(folder + "/.ombrelo-part-" + freshName());
                    DestinationFolder::copyFile(ready, beside.path());
                    ready = beside.path();
                    if (date)
                        dateProblem = applyDates(ready, *date);
                    DestinationFolder::syncFile(ready);
                    continue;
                }
                continue; // something appeared under the name meanwhile: look at it again
            }
            fileName = FileNaming::join(numbered.stem + " (" + QString::number(n) + ")", numbered.ext);
            ++n;
        }

        const QString relativePath = dest + '/' + fileName;
        if (*status == Manifest::Status::adopted) {
            summary.filesAdopted += 1;
            log("Already on disk, recorded: " + relativePath);
        } else {
            // The name is now the file's; the entry must reach the disk before the row does.
            DestinationFolder::syncFolder(folder);
            if (dateProblem) {
                const QString warning = fileName + ": " + *dateProblem;
                summary.dateWarnings.append(warning);
                onEvent(BackupEvent::makeWarning(warning, asset.uuid));
            }
            summary.filesCopied += 1;
            summary.bytesCopied += content.size;
            log("Copied " + relativePath);
        }
        // Written only now that the file is complete under its final name.
        insertRow(asset, dest, part, relativePath, content, *status);
    }
}

void BackupEngine::lookAhead(const LibraryAsset& asset, const QList<BackupNode>& leaves, const QString& tmp)
{
    Lookahead& ahead = m_ahead[asset.uuid];
    const QList<BackupNode> targets = targetsOf(leaves);
    if (targets.isEmpty())
        return; // nothing is read for an asset with nowhere to go

    try {
        ahead.components = components(asset);
    } catch (const std::exception&) {
        ahead.componentsFailure = std::current_exception();
    }
    ahead.hasComponents = true;
    if (!ahead.components)
        return;
    try {
        for (const SourceComponent& part : std::as_const(ahead.components->parts)) {
            bool pending = false;
            for (const BackupNode& leaf : std::as_const(targets)) {
                pending = pending || !isRecorded(asset.uuid, leaf.relativePath, part.component);
            }
            if (pending) {
                const QString destination = tmp + '/' + freshName();
                ahead.downloads.insert(part.sourcePath, {m_queue->download(part.sourcePath, destination), destination});
            }
        }
    } catch (const std::exception&) {
        // Nothing more is fetched early; the look-up fails again in its place, failing the asset.
    }
}

void BackupEngine::forget(const QString& assetUUID)
{
    const auto ahead = m_ahead.find(assetUUID);
    if (ahead == m_ahead.end())
        return;
    // Downloads the asset did not use, because an earlier file of it failed.
    for (const Lookahead::Download& download : std::as_const(ahead->downloads))
        m_queue->drop(download.ticket);
    m_ahead.erase(ahead);
}

std::optional<BackupEngine::Components> BackupEngine::componentsOf(const LibraryAsset& asset)
{
    const auto ahead = m_ahead.constFind(asset.uuid);
    if (ahead == m_ahead.cend() || !ahead->hasComponents)
        return components(asset);
    if (ahead->componentsFailure)
        std::rethrow_exception(ahead->componentsFailure);
    return ahead->components;
}

BackupEngine::Lookahead::Download BackupEngine::downloadFor(const QString& assetUUID, const SourceComponent& part,
                                                            const QString& tmp)
{
    const auto ahead = m_ahead.find(assetUUID);
    if (ahead != m_ahead.end()) {
        if (const auto early = ahead->downloads.constFind(part.sourcePath); early != ahead->downloads.cend()) {
            const Lookahead::Download download = *early;
            ahead->downloads.erase(early);
            return download;
        }
    }
    const QString destination = tmp + '/' + freshName();
    return {m_queue->download(part.sourcePath, destination), destination};
}

void BackupEngine::loadRecorded(const QSet<QString>& dests)
{
    // The rows are compared as the database holds them, UTF-8, and converted only when they change.
    static const auto rawComponents = [] {
        QList<QPair<QByteArray, Component>> raw;
        for (Component component : allComponents())
            raw.append({rawValue(component).toUtf8(), component});
        return raw;
    }();
    try {
        QHash<QByteArray, QString> folders;
        for (const QString& dest : dests)
            folders.insert(dest.toUtf8(), dest);
        QHash<QString, RecordedFolders> recorded;
        QByteArray lastUuid, lastDest;
        const QString* folder = nullptr;
        RecordedFolders current; // the rows of `lastUuid`, which come together
        const auto keep = [&] {
            if (current.isEmpty())
                return;
            RecordedFolders& entry = recorded[QString::fromUtf8(lastUuid)];
            for (const RecordedFolder& row : std::as_const(current))
                recordIn(entry, row.dest, row.components);
            current.clear();
        };
        // One pass over the primary key's index, which holds the three columns in asset order: far
        // fewer pages than one look-up per file or folder, whose rows lie all over the table.
        m_manifest.db().query(kFileRowKeys, {}, [&](const SQLRow& row) {
            if (const QByteArrayView uuid = row.utf8(0); uuid != lastUuid || lastUuid.isNull()) {
                keep();
                lastUuid = uuid.toByteArray();
            }
            if (const QByteArrayView dest = row.utf8(1); dest != lastDest || lastDest.isNull()) {
                lastDest = dest.toByteArray();
                const auto found = folders.constFind(lastDest);
                folder = found == folders.cend() ? nullptr : &*found;
            }
            if (!folder)
                return;
            const QByteArrayView component = row.utf8(2);
            for (const auto& [raw, value] : rawComponents)
                if (component == raw)
                    recordIn(current, *folder, 1u << int(value));
        });
        keep();
        m_recorded = std::move(recorded);
        m_recordedFolders = dests;
    } catch (const SQLiteError&) {
        // Each file is then looked up on its own, so that a failure fails its asset only.
    }
}

void BackupEngine::recordIn(RecordedFolders& folders, const QString& dest, uint32_t components)
{
    for (RecordedFolder& folder : folders)
        if (folder.dest == dest) {
            folder.components |= components;
            return;
        }
    folders.append({dest, components});
}

bool BackupEngine::isRecorded(const QString& asset, const QString& dest, Component component)
{
    if (m_recorded && m_recordedFolders.contains(dest)) {
        const auto folders = m_recorded->constFind(asset);
        if (folders != m_recorded->cend())
            for (const RecordedFolder& folder : *folders)
                if (folder.dest == dest)
                    return folder.components & (1u << int(component));
        return false;
    }
    bool found = false;
    m_manifest.db().query(kFileRowSelect, {asset, dest, rawValue(component)}, [&](const SQLRow&) { found = true; });
    return found;
}

void BackupEngine::insertRow(const LibraryAsset& asset, const QString& dest, const SourceComponent& part,
                             const QString& relativePath, const DownloadResult& content, Manifest::Status status)
{
    const auto date = asset.captureDate();
    m_manifest.db().execute(kFileRowInsert,
                            {asset.uuid, dest, rawValue(part.component), relativePath, content.sha256,
                             SQLValue::integer(int64_t(content.size)),
                             date ? SQLValue::text(m_manifest.formatDate(*date)) : SQLValue::null(), part.sourcePath,
                             Manifest::rawValue(status), m_manifest.formatDate(QDateTime::currentDateTimeUtc())});
    if (m_recorded)
        recordIn((*m_recorded)[asset.uuid], dest, 1u << int(part.component));
}

std::optional<QStringList> BackupEngine::listing(const QString& directory)
{
    const auto cached = m_listingCache.constFind(directory);
    if (cached != m_listingCache.cend())
        return *cached;
    std::optional<QStringList> names;
    try {
        if (!m_queue) {
            names = m_source.listDirectory(directory);
        } else {
            const auto pending = m_pendingListings.find(directory);
            const SourceQueue::Ticket ticket = pending != m_pendingListings.end() ? *pending : m_queue->list(directory);
            if (pending != m_pendingListings.end())
                m_pendingListings.erase(pending);
            names = m_queue->takeListing(ticket);
        }
    } catch (const MediaSourceError& error) {
        if (error.kind() != MediaSourceError::Kind::notFound)
            throw;
    }
    m_listingCache.insert(directory, names);
    return names;
}

// Asks for the folders an asset's components() will list, well before its turn: a listing asked
// for only then would wait behind every download queued before it, and so would the whole run.
void BackupEngine::listAhead(const LibraryAsset& asset)
{
    const auto index = m_folderIndexes.constFind(asset.directory);
    const bool indexed = index != m_folderIndexes.cend();
    if (!indexed)
        listSoon(u'/' + asset.directory);
    // components() looks at the edits only when the asset's own folder holds its file; before that
    // folder is listed, they are listed in case it does.
    if (asset.hasAdjustments && (!indexed || index->siblingsOf(asset.filename)))
        listSoon(adjustmentsFolder(asset, FileNaming::split(asset.filename).stem));
}

void BackupEngine::listSoon(const QString& folder)
{
    if (!m_listingCache.contains(folder) && !m_pendingListings.contains(folder))
        m_pendingListings.insert(folder, m_queue->list(folder));
}

QString BackupEngine::adjustmentsFolder(const LibraryAsset& asset, const QString& stem)
{
    return u"/PhotoData/Mutations/" % asset.directory % u'/' % stem % u"/Adjustments";
}

const QStringList* BackupEngine::FolderIndex::siblingsOf(const QString& fileName) const
{
    const auto siblings = namesByStem.constFind(foldedStem(fileName));
    return siblings != namesByStem.cend() && siblings->contains(fileName) ? &*siblings : nullptr;
}

const BackupEngine::FolderIndex* BackupEngine::folderIndex(const QString& directory)
{
    auto found = m_folderIndexes.constFind(directory);
    if (found == m_folderIndexes.cend()) {
        const auto names = listing(u'/' + directory);
        if (!names)
            return nullptr;
        QStringList sorted = *names;
        sorted.sort();
        FolderIndex index;
        for (const QString& name : std::as_const(sorted))
            index.namesByStem[foldedStem(name)].append(name);
        found = m_folderIndexes.insert(directory, std::move(index));
    }
    return &*found; // valid until the next folder is indexed
}

const QHash<QString, QSet<QString>>& BackupEngine::knownFilesByDirectory()
{
    if (!m_knownFilesByDirectory) {
        // Only a sibling that could be a live video or a sidecar is ever looked up here.
        QHash<QString, QSet<QString>> known;
        for (const LibraryAsset& asset : m_plan.library.assets)
            if (isSiblingKind(asset.filename))
                known[asset.directory].insert(asset.filename);
        m_knownFilesByDirectory = std::move(known);
    }
    return *m_knownFilesByDirectory;
}

std::optional<BackupEngine::Components> BackupEngine::components(const LibraryAsset& asset)
{
    const FolderIndex* index = folderIndex(asset.directory);
    const QStringList* siblings = index ? index->siblingsOf(asset.filename) : nullptr;
    if (!siblings)
        return std::nullopt;

    const QString directory = u'/' + asset.directory;
    const FileNaming::Parts original = FileNaming::split(asset.filename);
    Components result;
    result.parts.append({Component::original, directory % u'/' % asset.filename, original.ext});
    // One file of each kind at most; a second one is reported, never copied.
    const auto add = [&](Component component, const QString& path, const QString& fileName) {
        for (const SourceComponent& part : std::as_const(result.parts))
            if (part.component == component) {
                result.unhandled.append(fileName);
                return;
            }
        result.parts.append({component, path, FileNaming::split(fileName).ext});
    };

    if (siblings->size() > 1) {
        static const QSet<QString> none;
        const auto knownHere = knownFilesByDirectory().constFind(asset.directory);
        const QSet<QString>& known = knownHere == knownFilesByDirectory().cend() ? none : *knownHere;
        for (const QString& sibling : *siblings) {
            if (sibling == asset.filename || !isSiblingKind(sibling) || known.contains(sibling))
                continue;
            if (sibling.endsWith(u".MOV", Qt::CaseInsensitive) && !asset.isVideo)
                add(Component::liveVideo, directory % u'/' % sibling, sibling);
            else if (sibling.endsWith(u".AAE", Qt::CaseInsensitive))
                add(Component::aae, directory % u'/' % sibling, sibling);
        }
    }

    if (asset.hasAdjustments) {
        const QString folder = adjustmentsFolder(asset, original.stem);
        QStringList edits = listing(folder).value_or(QStringList());
        edits.sort();
        for (const QString& edit : std::as_const(edits)) {
            const QString path = folder % u'/' % edit;
            const FileNaming::Parts parts = FileNaming::split(edit);
            if (edit == u"Adjustments.plist") {
                add(Component::adjustments, path, edit);
            } else if (parts.stem == u"FullSizeRender") {
                const bool isMovie = parts.ext.toLower() == u"mov";
                if (asset.isVideo)
                    add(isMovie ? Component::edited : Component::editedStill, path, edit);
                else
                    add(isMovie ? Component::editedLiveVideo : Component::edited, path, edit);
            } else {
                result.unhandled.append(edit);
            }
        }
    }
    return result;
}

QString BackupEngine::stem(const LibraryAsset& asset, const QString& dest)
{
    if (auto recorded = m_manifest.stem(asset.uuid, dest))
        return *recorded;

    auto taken = m_destStems.find(dest);
    if (taken == m_destStems.end()) {
        QSet<QString> stems = m_manifest.stems(dest);
        // Files already in the folder, from this program or any other, take their stems too.
        if (DestinationFolder::isSafeRelativePath(dest)) {
            const QDir folder(m_root.root() + '/' + dest);
            const QStringList present =
                folder.entryList(QDir::AllEntries | QDir::Hidden | QDir::System | QDir::NoDotAndDotDot);
            for (const QString& fileName : present) {
                QString s = FileNaming::split(fileName).stem.toLower();
                if (s.endsWith(".aae"))
                    s.chop(4);
                if (s.endsWith("_edited"))
                    s.chop(7);
                stems.insert(s);
            }
        }
        taken = m_destStems.insert(dest, stems);
    }

    const QString base = FileNaming::safeName(FileNaming::split(asset.displayName()).stem, 120);
    QString candidate = base;
    for (int n = 2; taken->contains(candidate.toLower()); ++n)
        candidate = base + " (" + QString::number(n) + ")";
    taken->insert(candidate.toLower());
    m_manifest.reserveStem(asset.uuid, dest, candidate);
    return candidate;
}

bool BackupEngine::stopRequested() const { return m_isCancelled && m_isCancelled(); }

std::optional<QString> BackupEngine::setDates(const QString& file, const QDateTime& date)
{
    if (auto problem = applyDates(file, date))
        return QFileInfo(file).fileName() + ": " + *problem;
    return std::nullopt;
}

std::optional<QString> BackupEngine::applyDates(const QString& file, const QDateTime& date)
{
    QFile handle(file);
    if (!handle.open(QIODevice::ReadOnly))
        return handle.errorString();
    if (!handle.setFileTime(date, QFileDevice::FileModificationTime) ||
        !handle.setFileTime(date, QFileDevice::FileAccessTime))
        return handle.errorString();
    handle.close();
    // Coarse time stamps (two seconds on FAT) are fine; anything further off is reported.
    const QDateTime kept = QFileInfo(file).lastModified();
    if (!kept.isValid() || std::llabs(kept.msecsTo(date)) >= 2000)
        return QStringLiteral("the file system kept different dates than the capture date");
    return std::nullopt;
}
