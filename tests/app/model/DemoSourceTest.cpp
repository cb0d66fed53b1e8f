#include "DemoSource.h"
#include "device/MediaSourceError.h"

#include <QImage>

#include <gtest/gtest.h>

// Demo mode's device: the same picture for the same path, another for another path, a real
// 240 × 240 JPEG with a gradient in it; nothing to list or copy.
TEST(DemoSource, EveryPathHasAPictureOfItsOwn)
{
    EXPECT_EQ(DemoSource::fnv1a(""), 2166136261u);
    EXPECT_EQ(DemoSource::fnv1a("a"), 0xe40c292cu);
    EXPECT_EQ(DemoSource::fnv1a("foobar"), 0xbf9cf968u);

    DemoSource source;
    const QString path = "/PhotoData/Thumbnails/V2/DCIM/100APPLE/IMG_1001.HEIC/5005.JPG";
    const QByteArray picture = source.readFile(path);
    EXPECT_EQ(picture, source.readFile(path));
    EXPECT_NE(picture, source.readFile("/PhotoData/Thumbnails/V2/DCIM/100APPLE/IMG_1002.HEIC/5005.JPG"));
    const QImage image = QImage::fromData(picture, "JPG");
    ASSERT_EQ(image.size(), QSize(240, 240));
    EXPECT_NE(image.pixelColor(0, 0), image.pixelColor(239, 239));

    EXPECT_TRUE(source.listDirectory("/DCIM").isEmpty());
    EXPECT_THROW(source.download("/DCIM/100APPLE/IMG_1001.HEIC", "/nowhere/copy"), MediaSourceError);
    EXPECT_EQ(DemoSource::deviceInfo(), (DeviceInfo{"demo", "My iPhone", "iPhone16,2", "26.0", std::nullopt}));
}
