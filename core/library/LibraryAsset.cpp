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
    if (!dateCreated)
        return std::nullopt;
    return dateFromReferenceSeconds(*dateCreated);
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
