#include "CompletenessReport.h"

#include "device/MediaSource.h"
#include "device/MediaSourceError.h"
#include "plan/BackupPlan.h"
#include "plan/FileNaming.h"

#include <QSet>

#include <algorithm>
#include <optional>

namespace {

bool isHiddenEntry(const QString& name) { return name.startsWith(QLatin1Char('.')); }

// The entries of a device folder, or nothing when the folder is not there.
std::optional<QStringList> listIfPresent(MediaSource& source, const QString& path)
{
    try {
        return source.listDirectory(path);
    } catch (const MediaSourceError& error) {
        if (error.kind() == MediaSourceError::Kind::notFound)
            return std::nullopt;
        throw;
    }
}

// Matching by stem, without regard to case, lets an asset's paired and sidecar files (a Live
// Photo's video, an edit's .AAE) count as known.
QString fileKey(const QString& directory, const QString& name)
{
    return directory + QLatin1Char('/') + FileNaming::split(name).stem.toLower();
}

} // namespace

CompletenessReport CompletenessReport::run(MediaSource& source, const BackupPlan& plan)
{
    CompletenessReport report;

    QSet<QString> libraryKeys;
    libraryKeys.reserve(plan.library.assets.size());
    for (const LibraryAsset& asset : plan.library.assets)
        libraryKeys.insert(fileKey(asset.directory, asset.filename));

    QSet<QString> deviceFiles;
    QStringList checkedPrefixes;
    for (const QString& root : scannedRoots) {
        std::optional<QStringList> entries = listIfPresent(source, root);
        if (!entries)
            continue;
        checkedPrefixes << root.mid(1) + QLatin1Char('/');
        entries->sort();
        for (const QString& entry : *entries) {
            if (isHiddenEntry(entry))
                continue;
            const QString folder = root + QLatin1Char('/') + entry;
            const std::optional<QStringList> names = listIfPresent(source, folder);
            if (!names)
                continue;
            const QString folderKey = folder.mid(1);
            for (const QString& name : *names) {
                if (isHiddenEntry(name) || FileNaming::split(name).stem.isEmpty())
                    continue;
                report.filesOnDevice += 1;
                const QString path = folderKey + QLatin1Char('/') + name;
                deviceFiles.insert(path);
                if (!libraryKeys.contains(fileKey(folderKey, name)))
                    report.unaccountedFiles << path;
            }
        }
    }

    for (const LibraryAsset& asset : plan.assetsByUUID) {
        const bool checked = std::any_of(checkedPrefixes.cbegin(), checkedPrefixes.cend(),
                                         [&](const QString& prefix) { return asset.directory.startsWith(prefix); });
        if (!checked) {
            report.uncheckedAssets += 1;
            continue;
        }
        report.eligibleAssets += 1;
        if (!deviceFiles.contains(asset.directory + QLatin1Char('/') + asset.filename))
            report.missingOriginals << asset.displayName();
    }

    report.unaccountedFiles.sort();
    report.missingOriginals.sort();
    return report;
}

QStringList CompletenessReport::lines() const
{
    QStringList lines;
    lines << QStringLiteral("Checked %1 files on the device against %2 library items.")
                 .arg(filesOnDevice)
                 .arg(eligibleAssets);
    if (!missingOriginals.isEmpty())
        lines << QStringLiteral("%1 items aren't stored on the device (probably iCloud only with "
                                "“Optimise iPhone Storage”) and can't be backed up.")
                     .arg(missingOriginals.size());
    if (!unaccountedFiles.isEmpty())
        lines << QStringLiteral("%1 files on the device aren't in the Photos library and won't be backed up.")
                     .arg(unaccountedFiles.size());
    if (uncheckedAssets >= 1)
        lines << QStringLiteral("%1 items are stored in other locations on the device and weren't part of "
                                "this check.")
                     .arg(uncheckedAssets);
    if (!hasWarnings())
        lines << QStringLiteral("Every checked library item was found, and every file is accounted for.");
    return lines;
}
