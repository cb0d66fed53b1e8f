// Builds the backup plan of a synthetic 100,000-item library held in memory and prints how long
// it takes. Usage: PlanBench [assets]
#include "plan/BackupPlan.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QRandomGenerator>

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

PhotoLibrary syntheticLibrary(int assetCount)
{
    QRandomGenerator random(20260501);
    PhotoLibrary library;
    library.assets.reserve(assetCount);
    for (int i = 0; i < assetCount; ++i) {
        LibraryAsset asset;
        asset.pk = 1000 + i;
        asset.uuid = QStringLiteral("%1-4E2B-4C1A-9F00-%2")
                         .arg(random.generate(), 8, 16, QLatin1Char('0'))
                         .arg(i, 12, 10, QLatin1Char('0'));
        asset.directory = QStringLiteral("DCIM/%1APPLE").arg(100 + i / 1000);
        asset.filename = QStringLiteral("IMG_%1.HEIC").arg(i % 10000, 4, 10, QLatin1Char('0'));
        if (i % 50 != 0) // a few undated items
            asset.dateCreated = 600000000.0 + double(random.bounded(200000000));
        asset.isVideo = i % 9 == 4;
        asset.kindSubtype = i % 3 == 0 ? 2 : 0;
        asset.isHidden = i % 97 == 0;
        asset.isTrashed = i % 211 == 0;
        asset.savedAssetType = i % 301 == 0 ? 12 : 3;
        asset.bundleScope = i % 401 == 0 ? 7 : 0;
        asset.hasAdjustments = i % 7 == 2;
        library.assets << asset;
    }

    // 40 folders (10 of them nested one level deeper) holding 400 albums, a tenth at top level.
    constexpr int folderCount = 40;
    constexpr int albumCount = 400;
    int64_t pk = 1;
    for (int f = 0; f < folderCount; ++f, ++pk) {
        const std::optional<int64_t> parent = f >= 30 ? std::optional<int64_t>(1 + f - 30) : std::nullopt;
        library.albums << LibraryAlbum{
            pk, QStringLiteral("FOLDER-%1").arg(f), QStringLiteral("Trips %1").arg(f), true, parent, false};
    }
    for (int a = 0; a < albumCount; ++a, ++pk) {
        const std::optional<int64_t> parent = a % 10 == 0 ? std::nullopt : std::optional<int64_t>(1 + a % folderCount);
        // Titles repeat so that numbering of clashing paths is exercised.
        library.albums << LibraryAlbum{
            pk, QStringLiteral("ALBUM-%1").arg(a), QStringLiteral("Album %1").arg(a % 150), false, parent, a % 97 == 5};
    }

    // Two in five assets belong to one album, one in ten to a second as well.
    for (int i = 0; i < assetCount; ++i) {
        const int64_t assetPK = 1000 + i;
        if (i % 5 < 2)
            library.membership[folderCount + 1 + random.bounded(albumCount)].append(assetPK);
        if (i % 10 == 0)
            library.membership[folderCount + 1 + random.bounded(albumCount)].append(assetPK);
    }
    return library;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int assetCount = argc > 1 ? QString::fromLocal8Bit(argv[1]).toInt() : 100000;
    const PhotoLibrary library = syntheticLibrary(assetCount);

    // A destination that an earlier backup already filled: half the albums keep recorded folders.
    QHash<QString, QString> existing;
    for (const LibraryAlbum& album : library.albums)
        if (!album.isFolder && album.pk % 2 == 0)
            existing.insert(album.uuid, "Albums/Recorded/" + album.title);

    constexpr int runs = 7;
    std::vector<double> times;
    int leaves = 0;
    int placed = 0;
    for (int run = 0; run < runs; ++run) {
        QElapsedTimer timer;
        timer.start();
        const BackupPlan plan(library, run % 2 == 0 ? QHash<QString, QString>() : existing);
        times.push_back(double(timer.nsecsElapsed()) / 1e6);
        leaves = int(plan.allLeaves().size());
        placed = 0;
        for (const BackupNode& node : plan.topLevelNodes())
            placed += node.totalCount();
    }
    std::sort(times.begin(), times.end());
    std::printf("Plan of %d assets, %d albums and folders (%d leaves, %d placements): "
                "median %.1f ms, best %.1f ms, worst %.1f ms over %d builds\n",
                assetCount, int(library.albums.size()), leaves, placed, times[runs / 2], times.front(), times.back(),
                runs);
    std::printf("RESULT plan %.0f ms (target under 1000 ms): %s\n", times[runs / 2],
                times[runs / 2] < 1000 ? "met" : "MISSED");
    return 0;
}
