#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <cstdint>
#include <optional>

enum class FileFormat { jpeg, heic, png, mov, aae, adjustments, thumbnail, configuration };

// One file of the phone's media tree.
struct MediaFile {
    // The backup component this file is for its asset ("original", "live-video", …); empty for
    // files that are no component (thumbnails, files the library does not know).
    QString component;
    QString devicePath; // absolute on the device: "/DCIM/100APPLE/IMG_0001.HEIC"
    FileFormat format = FileFormat::jpeg;
    // Files with the same key have the same bytes (a picture imported twice). For the thumbnail
    // configuration: the thumbnail format it names (5005 or 5003).
    uint64_t contentKey = 0;
    int64_t sparseSize = 0; // its size with --files sparse
    int width = 0;
    int height = 0;
    double duration = 0;
    double date = 0;         // seconds since 2001-01-01, the file's modification time
    bool showsVideo = false; // a thumbnail of a video

    // Filled in when the file is written and the answer key wants them.
    std::optional<QByteArray> sha256;
    std::optional<int64_t> size;
};

// Why the backup leaves an item out, or that it backs it up ("library").
enum class AssetCategory { library, trashed, sharedWithYou, sharedAlbum, otherLibrary, iCloudOnly };

QString categoryName(AssetCategory category);

struct PhoneAsset {
    int64_t pk = 0;
    QString uuid;
    QString directory; // relative to the media root: "DCIM/100APPLE"
    QString filename;
    std::optional<QString> originalFilename; // a present but empty name is written as ""
    std::optional<double> dateCreated;
    bool dateStoredAsInteger = false;
    bool isVideo = false;
    int64_t kindSubtype = 0;
    bool isHidden = false;
    bool isTrashed = false;
    std::optional<int64_t> savedAssetType;
    std::optional<int64_t> bundleScope; // absent where the generation has no such column
    bool hasAdjustments = false;
    std::optional<double> adjustmentTimestamp;
    int64_t adjustmentsState = 0;
    bool isFavorite = false;
    bool onDevice = true; // false: only in iCloud, the database row has no file
    int width = 0;
    int height = 0;
    double duration = 0;
    QString uniformTypeIdentifier;
    std::optional<QString> mediaGroupUUID; // pairs a Live Photo's still and video
    std::optional<QString> cloudAssetGUID;
    std::optional<int64_t> importSessionPK;
    int64_t fileSize = 0; // of the original, as the database records it

    // Written only to the log, after the last checkpoint.
    bool recent = false;
    // In the main file not trashed; moved to Recently Deleted by a change only in the log.
    bool trashedRecently = false;
    std::optional<double> trashedDate;

    QList<MediaFile> files; // components, original first
    std::optional<MediaFile> thumbnail;

    bool isLivePhoto() const { return kindSubtype == 2; }
    QString stem() const;
    AssetCategory category() const;
};

// A row of ZGENERICALBUM: user albums and folders, and the built-in kinds beside them.
struct PhoneAlbum {
    int64_t pk = 0;
    int64_t kind = 2;
    QString entityName; // "Album", "Folder", "FetchingAlbum", …
    QString uuid;
    std::optional<QString> title;
    std::optional<int64_t> parentPK;
    bool isTrashed = false;
    double creationDate = 0;
    std::optional<QString> cloudGUID;
    bool recent = false; // written only to the log

    bool isFolder() const { return kind == 4000; }
};

struct Membership {
    int64_t albumPK = 0;
    int64_t assetPK = 0;
    int64_t order = 0; // Z_FOK_ value
    bool recent = false;
};

// Everything the phone holds, decided before anything is written.
struct PhoneContent {
    QList<PhoneAsset> assets; // by pk, from 1
    QList<PhoneAlbum> albums; // by pk, from 1
    QList<Membership> memberships;
    QList<MediaFile> unknownFiles; // files in the media folders that the library does not know
    QList<MediaFile> otherFiles;   // further files of a phone (thumbnail configuration)
};
