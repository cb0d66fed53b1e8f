#include "ExistingBackup.h"

#include "Manifest.h"
#include "library/SQLiteError.h"
#include "plan/BackupNode.h"

ExistingBackup ExistingBackup::read(const QString& root)
{
    if (!Manifest::exists(root))
        return {};
    try {
        Manifest manifest(root, Manifest::Access::readOnly);
        ExistingBackup existing;
        existing.albumPaths = manifest.albumPaths();
        existing.fileCount = manifest.fileCount();
        existing.backedUp = manifest.backedUpAssetsByFolder();
        return existing;
    } catch (const SQLiteError&) {
        return {};
    }
}

int ExistingBackup::backedUpCount(const BackupNode& node) const
{
    int count = 0;
    for (const BackupNode& leaf : node.leaves()) {
        const auto recorded = backedUp.constFind(leaf.relativePath);
        if (recorded == backedUp.cend())
            continue;
        for (const QString& uuid : leaf.assetUUIDs)
            count += recorded->contains(uuid) ? 1 : 0;
    }
    return count;
}
