#pragma once

#include <QHash>
#include <QString>

#include <cstdint>
#include <optional>

// A regular album (kind 2) or an album folder (kind 4000) of the device's library.
struct LibraryAlbum {
    int64_t pk = 0;
    QString uuid;
    QString title;
    bool isFolder = false;
    std::optional<int64_t> parentPK;
    bool isTrashed = false;

    const QString& id() const { return uuid; }
    bool operator==(const LibraryAlbum&) const = default;
};

inline size_t qHash(const LibraryAlbum& album, size_t seed = 0)
{
    return qHashMulti(seed, album.pk, album.uuid, album.title);
}
