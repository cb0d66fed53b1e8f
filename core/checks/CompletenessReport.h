#pragma once

#include <QString>
#include <QStringList>

class MediaSource;
struct BackupPlan;

// The cross-check of the media files on the device against the library, before any backup:
// library items whose files are not on the device, and files the library does not know.
struct CompletenessReport {
    // The device folders whose camera folders are walked, in this order.
    static inline const QStringList scannedRoots{QStringLiteral("/DCIM"), QStringLiteral("/PhotoData/CPLAssets")};

    int filesOnDevice = 0;
    QStringList unaccountedFiles; // device paths relative to the media root, sorted
    QStringList missingOriginals; // display names, sorted
    int eligibleAssets = 0;
    int uncheckedAssets = 0;

    // Lists two levels below each root, each folder once. A missing root or folder reduces what is
    // checked; any other device failure (MediaSourceError) is thrown.
    static CompletenessReport run(MediaSource& source, const BackupPlan& plan);

    QStringList lines() const;
    bool hasWarnings() const { return !unaccountedFiles.isEmpty() || !missingOriginals.isEmpty(); }

    bool operator==(const CompletenessReport&) const = default;
};
