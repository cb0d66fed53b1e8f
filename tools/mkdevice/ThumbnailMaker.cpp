#include "ThumbnailMaker.h"

#include "DeterministicRandom.h"
#include "ImageEncoding.h"
#include "ThumbnailPainter.h"

#include <bit>
#include <cmath>

namespace {

QSize thumbnailSize(int width, int height)
{
    const int side = ThumbnailMaker::kLongSide;
    if (width <= 0 || height <= 0)
        return {side, side * 3 / 4};
    if (width >= height)
        return {side, std::max(1, int(std::lround(double(side) * height / width)))};
    return {std::max(1, int(std::lround(double(side) * width / height))), side};
}

bool keptAs5003(const PhoneAsset& asset, ThumbnailNames names, uint64_t seed)
{
    if (names != ThumbnailNames::mixed)
        return names == ThumbnailNames::only5003;
    return DeterministicRandom(seed ^ (uint64_t(asset.pk) * 0xD1B54A32D192ED03ull)).below(4) == 0;
}

} // namespace

MediaFile ThumbnailMaker::describe(MediaFile file, const PhoneAsset& asset, ThumbnailNames names, uint64_t seed)
{
    file.devicePath = "/PhotoData/Thumbnails/V2/" + asset.directory + "/" + asset.filename + "/" +
                      (keptAs5003(asset, names, seed) ? "5003.JPG" : "5005.JPG");
    const QSize size = thumbnailSize(asset.width, asset.height);
    file.width = size.width();
    file.height = size.height();
    file.showsVideo = asset.isVideo;
    return file;
}

QByteArray ThumbnailMaker::contents(const MediaFile& file)
{
    // The date brings in the seed, so that phones of other seeds show other pictures.
    const int look = int(DeterministicRandom(file.contentKey ^ std::bit_cast<uint64_t>(file.date)).next() %
                         ThumbnailPainter::kLooks);
    const quint64 id =
        quint64(look) | quint64(file.width) << 8 | quint64(file.height) << 24 | quint64(file.showsVideo) << 40;
    auto it = m_encoded.constFind(id);
    if (it == m_encoded.constEnd())
        it = m_encoded.insert(
            id, ImageEncoding::encode(ThumbnailPainter::draw(look, QSize(file.width, file.height), file.showsVideo),
                                      "jpeg", 80));
    return ImageEncoding::withComment(*it, file.contentKey);
}
