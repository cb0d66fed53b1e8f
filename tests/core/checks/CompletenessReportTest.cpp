#include "checks/CompletenessReport.h"
#include "FakeMediaSource.h"
#include "QtPrinters.h"
#include "device/MediaSourceError.h"
#include "plan/BackupPlan.h"

#include <gtest/gtest.h>

namespace {

LibraryAsset asset(int64_t pk, const QString& directory, const QString& filename,
                   std::optional<QString> original = std::nullopt)
{
    LibraryAsset a;
    a.pk = pk;
    a.uuid = QString("asset-%1").arg(pk);
    a.directory = directory;
    a.filename = filename;
    a.originalFilename = original;
    return a;
}

} // namespace

TEST(CompletenessReport, FindsMissingOriginalsAndFilesTheLibraryDoesNotKnow)
{
    PhotoLibrary library;
    library.assets << asset(1, "DCIM/100APPLE", "IMG_0001.HEIC")               // with its live video and sidecar
                   << asset(2, "DCIM/100APPLE", "img_0002.jpg")                // the device spells it IMG_0002.JPG
                   << asset(3, "DCIM/101APPLE", "IMG_0100.HEIC", "Beach.heic") // iCloud only
                   << asset(4, "PhotoData/CPLAssets/group7", "B7C1.JPG")
                   << asset(5, "PhotoData/Metadata/DCIM/100APPLE", "IMG_9000.JPG") // elsewhere
                   << asset(6, "DCIM/100APPLE", "IMG_0003.HEIC");                  // trashed but still on the device
    library.assets[5].isTrashed = true;
    const BackupPlan plan(library);

    FakeMediaSource device;
    device.addFile("/DCIM/100APPLE/IMG_0001.HEIC", "a");
    device.addFile("/DCIM/100APPLE/IMG_0001.MOV", "b");
    device.addFile("/DCIM/100APPLE/IMG_0001.AAE", "c");
    device.addFile("/DCIM/100APPLE/IMG_0002.JPG", "d");
    device.addFile("/DCIM/100APPLE/IMG_0003.HEIC", "e");
    device.addFile("/DCIM/100APPLE/IMG_0777.PNG", "stray");
    device.addFile("/DCIM/100APPLE/.IMG_0778.PNG", "hidden entry");
    device.addFile("/DCIM/.MISC/Info.plist", "hidden folder");
    device.addFile("/DCIM/101APPLE/Screenshot.PNG", "stray");
    device.addFile("/PhotoData/CPLAssets/group7/B7C1.JPG", "f");

    const CompletenessReport report = CompletenessReport::run(device, plan);

    EXPECT_EQ(report.filesOnDevice, 8);
    EXPECT_EQ(report.unaccountedFiles, (QStringList{"DCIM/100APPLE/IMG_0777.PNG", "DCIM/101APPLE/Screenshot.PNG"}));
    // The library's name differs in case from the device's: the stem still matches, the path does not.
    EXPECT_EQ(report.missingOriginals, (QStringList{"Beach.heic", "img_0002.jpg"}));
    EXPECT_EQ(report.eligibleAssets, 4);
    EXPECT_EQ(report.uncheckedAssets, 1);
    EXPECT_TRUE(report.hasWarnings());
    EXPECT_EQ(report.lines(),
              (QStringList{"Checked 8 files on the device against 4 library items.",
                           "2 items aren't stored on the device (probably iCloud only with “Optimise iPhone "
                           "Storage”) and can't be backed up.",
                           "2 files on the device aren't in the Photos library and won't be backed up.",
                           "1 items are stored in other locations on the device and weren't part of this check."}));

    // With the strays gone and the missing files back, all is clear.
    for (const QString path : {"/DCIM/100APPLE/IMG_0777.PNG", "/DCIM/101APPLE/Screenshot.PNG"})
        device.removeFile(path);
    device.addFile("/DCIM/100APPLE/img_0002.jpg", "d");
    device.addFile("/DCIM/101APPLE/IMG_0100.HEIC", "g");
    const CompletenessReport clear = CompletenessReport::run(device, plan);
    EXPECT_FALSE(clear.hasWarnings());
    EXPECT_EQ(clear.lines().last(), "Every checked library item was found, and every file is accounted for.");
}

TEST(CompletenessReport, MissingRootsNarrowTheCheckAndOtherFailuresEndIt)
{
    PhotoLibrary library;
    library.assets << asset(1, "DCIM/100APPLE", "IMG_0001.HEIC") << asset(2, "PhotoData/CPLAssets/g1", "A.JPG")
                   << asset(3, "DCIM/102APPLE", "IMG_0200.HEIC");
    const BackupPlan plan(library);

    FakeMediaSource device; // no /PhotoData/CPLAssets at all; 102APPLE is a file, not a folder
    device.addFile("/DCIM/100APPLE/IMG_0001.HEIC", "a");
    device.addFile("/DCIM/102APPLE", "odd");

    CompletenessReport report = CompletenessReport::run(device, plan);
    EXPECT_EQ(report.filesOnDevice, 1);
    EXPECT_EQ(report.eligibleAssets, 2);
    EXPECT_EQ(report.uncheckedAssets, 1); // under the root that could not be listed
    EXPECT_EQ(report.missingOriginals, QStringList{"IMG_0200.HEIC"});
    EXPECT_TRUE(report.unaccountedFiles.isEmpty());
    EXPECT_EQ(report.lines(),
              (QStringList{"Checked 1 files on the device against 2 library items.",
                           "1 items aren't stored on the device (probably iCloud only with “Optimise iPhone "
                           "Storage”) and can't be backed up.",
                           "1 items are stored in other locations on the device and weren't part of this check."}));

    device.failPath("/DCIM/100APPLE", "The connection was lost.");
    try {
        CompletenessReport::run(device, plan);
        FAIL() << "a read failure must end the check";
    } catch (const MediaSourceError& error) {
        EXPECT_EQ(error.kind(), MediaSourceError::Kind::readFailed);
        EXPECT_EQ(error.path(), "/DCIM/100APPLE");
    }
}
