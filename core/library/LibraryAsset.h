#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>

#include <cstdint>
#include <optional>

// One photo or video of the device's library, as read from its Photos database.
struct LibraryAsset {
    int64_t pk = 0;
    QString uuid;
    QString directory;
    QString filename;
    std::optional<QString> originalFilename;
    // Seconds since 2001-01-01 00:00:00 UTC, exactly as stored (sub-second precision kept).
    std::optional<double> dateCreated;
    bool isVideo = false;
    int64_t kindSubtype = 0;
    bool isHidden = false;
    bool isTrashed = false;
    std::optional<int64_t> savedAssetType;
    std::optional<int64_t> bundleScope;
    bool hasAdjustments = false;

    const QString& id() const { return uuid; }
    const QString& displayName() const { return originalFilename ? *originalFilename : filename; }
    bool isLivePhoto() const { return kindSubtype == 2; }
    QString sourcePath() const;
    QString thumbnailPath() const;
    // The capture date as a point in time, when the library knows it and a file can carry it
    // (1902 to 2446).
    std::optional<QDateTime> captureDate() const;

    bool operator==(const LibraryAsset&) const = default;
};

// Seconds between 1970-01-01 and the library's reference date 2001-01-01 (UTC).
inline constexpr double kReferenceDateOffset = 978307200.0;

QDateTime dateFromReferenceSeconds(double seconds);
double referenceSecondsFromDate(const QDateTime& date);

size_t qHash(const LibraryAsset& asset, size_t seed = 0);
