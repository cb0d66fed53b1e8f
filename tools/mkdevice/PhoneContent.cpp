#include "PhoneContent.h"

QString categoryName(AssetCategory category)
{
    switch (category) {
    case AssetCategory::library:
        return "library";
    case AssetCategory::trashed:
        return "trashed";
    case AssetCategory::sharedWithYou:
        return "sharedWithYou";
    case AssetCategory::sharedAlbum:
        return "sharedAlbum";
    case AssetCategory::otherLibrary:
        return "otherLibrary";
    case AssetCategory::iCloudOnly:
        return "iCloudOnly";
    }
    return {};
}

QString PhoneAsset::stem() const
{
    const qsizetype dot = filename.lastIndexOf('.');
    return dot > 0 ? filename.left(dot) : filename;
}

// The same tests, in the same order, as the backup's eligibility rules; an eligible item whose
// original is not on the device is only in iCloud.
AssetCategory PhoneAsset::category() const
{
    if (isTrashed)
        return AssetCategory::trashed;
    if (savedAssetType == 12 || bundleScope == 3)
        return AssetCategory::sharedWithYou;
    if (directory.startsWith("PhotoData/PhotoCloudSharingData"))
        return AssetCategory::sharedAlbum;
    if (bundleScope && *bundleScope != 0)
        return AssetCategory::otherLibrary;
    if (!onDevice)
        return AssetCategory::iCloudOnly;
    return AssetCategory::library;
}
