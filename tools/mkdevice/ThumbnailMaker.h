#pragma once

#include "MkdeviceOptions.h"
#include "PhoneContent.h"

#include <QByteArray>
#include <QHash>

// Each item's ready-made thumbnail, as the Photos app keeps it: where it lies and its bytes.
// A thumbnail is a JPEG of 480 pixels on its long side in its item's proportions, showing one of
// ThumbnailPainter's pictures, chosen from the item and the seed. Each picture is encoded once
// per run and then copied, with the item's own comment segment, so a hundred thousand
// thumbnails cost little more than writing them.
class ThumbnailMaker {
public:
    static constexpr int kLongSide = 480;

    // `file` with the thumbnail's path, size and kind filled in for this item.
    static MediaFile describe(MediaFile file, const PhoneAsset& asset, ThumbnailNames names, uint64_t seed);

    QByteArray contents(const MediaFile& file);

private:
    QHash<quint64, QByteArray> m_encoded;
};
