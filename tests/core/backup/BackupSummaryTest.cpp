#include "QtPrinters.h"
#include "backup/BackupRecords.h"

#include <gtest/gtest.h>

TEST(BackupSummary, EveryLineInOrderWithCancelledLast)
{
    BackupSummary empty;
    EXPECT_EQ(empty.lines(), (QStringList{"Files copied: 0 (0 bytes)", "Already backed up: 0"}));

    BackupSummary dry;
    dry.isDryRun = true;
    dry.filesToCopy = 12;
    dry.bytesCopied = 999999; // never shown for a dry run
    EXPECT_EQ(dry.lines(), (QStringList{"Would copy: 12 files (identical-content checks happen during the real run)",
                                        "Already backed up: 0"}));

    BackupSummary summary;
    summary.filesCopied = 3;
    summary.bytesCopied = 4'500'000;
    summary.filesAlreadyBackedUp = 1200;
    summary.duplicatesDiscarded = 2;
    summary.filesAdopted = 1;
    summary.assetsNotOnDevice = {"IMG_1.HEIC", "IMG_2.HEIC"};
    summary.dateWarnings = {"x: y"};
    summary.errors = {"a", "b", "c"};
    summary.cancelled = true;
    EXPECT_EQ(summary.lines(), (QStringList{
                                   "Files copied: 3 (4.5 MB)",
                                   "Already backed up: 1200",
                                   "Identical to a file already in the folder (not copied again): 2",
                                   "Found on disk from an earlier interrupted run: 1",
                                   "Not stored on the device (iCloud only?): 2",
                                   "Dates could not be set: 1",
                                   "Errors: 3",
                                   "Cancelled before finishing.",
                               }));
}
