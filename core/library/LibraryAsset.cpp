#include "LibraryAsset.h"

#include <QTimeZone>

#include <cmath>

QString LibraryAsset::sourcePath() const { return "/" + directory + "/" + filename; }

QString LibraryAsset::thumbnailPath() const
{
    return "/PhotoData/Thumbnails/V2/" + directory + "/" + filename + "/5005.JPG";
}

std::optional<QDateTime> LibraryAsset::captureDate() const
{
    // The range of ext4 and XFS time stamps, the file systems a backup most often lands on: a
    // date outside it (the year 3,914,000 is in a real library) would be clamped or refused for
    // every file of the item.
    static const QDateTime earliest(QDate(1901, 12, 14), QTime(0, 0), Qt::UTC);
    static const QDateTime latest(QDate(2446, 5, 10), QTime(0, 0), Qt::UTC);
    if (!dateCreated || !std::isfinite(*dateCreated) || std::abs(*dateCreated) > 1e12)
        return std::nullopt;
    const QDateTime date = dateFromReferenceSeconds(*dateCreated);
    if (!date.isValid() || date < earliest || date >= latest)
        return std::nullopt;
    return date;
}

QDateTime dateFromReferenceSeconds(double seconds)
{
    const double unixMs = std::round((seconds + kReferenceDateOffset) * 1000.0);
    return QDateTime::fromMSecsSinceEpoch(qint64(unixMs), Qt::UTC);
}

double referenceSecondsFromDate(const QDateTime& date)
{
    return double(date.toMSecsSinceEpoch()) / 1000.0 - kReferenceDateOffset;
}

size_t qHash(const LibraryAsset& asset, size_t seed)
{
    return qHashMulti(seed, asset.pk, asset.uuid, asset.directory, asset.filename);
}
