#include "Run.h"

BackupOptions Run::options(bool dryRun) const
{
    BackupOptions options;
    options.nodeIDs = QSet<QString>(nodeIDs.begin(), nodeIDs.end());
    options.onlyAssets = onlyAssets;
    options.dryRun = dryRun;
    return options;
}
