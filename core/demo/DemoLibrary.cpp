#include "DemoLibrary.h"

#include "plan/BackupPlan.h"

#include <QDate>
#include <QDateTime>
#include <QStringList>
#include <QTime>

#include <optional>

namespace {

const QString kJapanAlbumID = QStringLiteral("DEMO-ALBUM-JAPAN-2026");
constexpr int kNotBackedUpInJapan = 16;

struct AssetGroup {
    int count;
    QDate firstDay;
    bool hidden;
    std::optional<int64_t> albumPK;
};

class Generator {
public:
    explicit Generator(PhotoLibrary& library) : m_library(library) {}

    // Capture times are in UTC, so the demo shows the same dates in every time zone.
    void addGroup(const AssetGroup& group)
    {
        const QDateTime first(group.firstDay, QTime(0, 0), Qt::UTC);
        for (int i = 0; i < group.count; ++i) {
            const bool video = i % 9 == 4;
            LibraryAsset asset;
            asset.pk = m_nextPK++;
            asset.uuid = QStringLiteral("DEMO-ASSET-%1").arg(asset.pk);
            asset.directory = QStringLiteral("DCIM/100APPLE");
            asset.filename = QStringLiteral("IMG_%1.%2")
                                 .arg(m_nextPicture % 10000, 4, 10, QLatin1Char('0'))
                                 .arg(video ? QStringLiteral("MOV") : QStringLiteral("HEIC"));
            ++m_nextPicture;
            asset.dateCreated = referenceSecondsFromDate(first.addSecs(qint64(i) * 3 * 3600));
            asset.isVideo = video;
            asset.kindSubtype = !video && i % 3 == 0 ? 2 : 0;
            asset.hasAdjustments = !video && (i - 2) % 7 == 0;
            asset.isHidden = group.hidden;
            asset.savedAssetType = 3;
            if (group.albumPK)
                m_library.membership[*group.albumPK].append(asset.pk);
            m_library.assets.append(asset);
        }
    }

private:
    PhotoLibrary& m_library;
    int64_t m_nextPK = 101;
    int m_nextPicture = 1001;
};

LibraryAlbum makeAlbum(int64_t pk, const QString& uuid, const QString& title, bool isFolder,
                       std::optional<int64_t> parent)
{
    return {pk, uuid, title, isFolder, parent, false};
}

bool manyAlbums() { return qgetenv("OMB_DEMO_MANY_ALBUMS") == "1"; }

} // namespace

PhotoLibrary DemoLibrary::make()
{
    PhotoLibrary library;
    library.albums << makeAlbum(1, "DEMO-FOLDER-HOLIDAYS", "Holidays", true, std::nullopt)
                   << makeAlbum(2, kJapanAlbumID, "Japan 2026", false, 1)
                   << makeAlbum(3, "DEMO-ALBUM-CORNWALL", "Cornwall", false, 1)
                   << makeAlbum(4, "DEMO-ALBUM-FAMILY", "Family", false, std::nullopt)
                   << makeAlbum(5, "DEMO-ALBUM-PETS", "Pets", false, std::nullopt);

    Generator generator(library);
    generator.addGroup({2184, QDate(2024, 1, 2), false, std::nullopt});
    generator.addGroup({38, QDate(2025, 2, 1), true, std::nullopt});
    generator.addGroup({312, QDate(2026, 4, 3), false, 2});
    generator.addGroup({148, QDate(2025, 8, 10), false, 3});
    generator.addGroup({392, QDate(2024, 12, 20), false, 4});
    generator.addGroup({96, QDate(2025, 5, 5), false, 5});

    if (manyAlbums()) {
        static const QStringList titles{"Birthdays", "Beach", "Christmas 2025", "Concerts", "Food",  "Garden",
                                        "Hiking",    "Kids",  "Museums",        "New York", "Paris", "Recipes",
                                        "Road Trip", "Snow",  "Sunsets",        "Wedding"};
        for (int k = 0; k < titles.size(); ++k) {
            const int64_t pk = 10 + k;
            library.albums << makeAlbum(pk, QStringLiteral("DEMO-ALBUM-EXTRA-%1").arg(k + 1), titles[k], false,
                                        std::nullopt);
            generator.addGroup({12, QDate(2025, k % 12 + 1, 3), false, pk});
        }
    }
    return library;
}

QHash<QString, QSet<QString>> DemoLibrary::backedUp(const BackupPlan& plan)
{
    QHash<QString, QSet<QString>> result;
    for (const BackupNode& leaf : plan.allLeaves()) {
        QStringList uuids = leaf.assetUUIDs;
        if (leaf.id == kJapanAlbumID)
            uuids.resize(qMax<qsizetype>(0, uuids.size() - kNotBackedUpInJapan));
        QSet<QString>& set = result[leaf.relativePath];
        for (const QString& uuid : uuids)
            set.insert(uuid);
    }
    return result;
}
