#include "DemoSource.h"

#include "device/MediaSourceError.h"

#include <QBuffer>
#include <QColor>
#include <QImage>
#include <QLinearGradient>
#include <QList>
#include <QPainter>

#include <cmath>
#include <numbers>

namespace {

constexpr int kSide = 240;
constexpr int kJpegQuality = 85;

// Sunsets, seas, forests and cities: two or three sRGB stops each.
const QList<QList<QColor>>& palettes()
{
    static const QList<QList<QColor>> list{
        {QColor(0xff, 0x9a, 0x62), QColor(0xd9, 0x3f, 0x6b), QColor(0x5b, 0x2a, 0x86)},
        {QColor(0x2b, 0xc0, 0xe4), QColor(0x1b, 0x5e, 0xa8)},
        {QColor(0xa8, 0xe0, 0x63), QColor(0x2f, 0x8f, 0x4e), QColor(0x14, 0x4d, 0x3a)},
        {QColor(0xff, 0xe2, 0x59), QColor(0xff, 0xa7, 0x51)},
        {QColor(0xf5, 0xf1, 0xe8), QColor(0xb8, 0xa9, 0x9a), QColor(0x5e, 0x54, 0x4b)},
        {QColor(0x8e, 0xc5, 0xfc), QColor(0xe0, 0xc3, 0xfc)},
        {QColor(0x43, 0x3c, 0x7a), QColor(0x1f, 0x1c, 0x3a)},
        {QColor(0xf8, 0x7b, 0x9a), QColor(0xfb, 0xd3, 0xa7)},
    };
    return list;
}

QImage gradient(uint32_t hash)
{
    const QList<QColor>& colours = palettes().at(qsizetype(hash % uint32_t(palettes().size())));
    const double radians = double(hash % 360) * std::numbers::pi / 180.0;
    const QPointF centre(kSide / 2.0, kSide / 2.0);
    const QPointF reach(std::cos(radians) * kSide / 2.0, std::sin(radians) * kSide / 2.0);
    QLinearGradient fill(centre - reach, centre + reach);
    for (qsizetype i = 0; i < colours.size(); ++i)
        fill.setColorAt(double(i) / double(colours.size() - 1), colours[i]);

    QImage image(kSide, kSide, QImage::Format_RGB32);
    QPainter painter(&image);
    painter.fillRect(image.rect(), fill);
    return image;
}

} // namespace

DeviceInfo DemoSource::deviceInfo()
{
    return {QStringLiteral("demo"), QStringLiteral("My iPhone"), QStringLiteral("iPhone16,2"), QStringLiteral("26.0"),
            std::nullopt};
}

uint32_t DemoSource::fnv1a(const QByteArray& bytes)
{
    uint32_t hash = 2166136261u;
    for (const char byte : bytes) {
        hash ^= uint8_t(byte);
        hash *= 16777619u;
    }
    return hash;
}

QStringList DemoSource::listDirectory(const QString&) { return {}; }

DownloadResult DemoSource::download(const QString& path, const QString&, const DownloadControl&)
{
    throw MediaSourceError::notFound(path);
}

std::optional<DeviceFileInfo> DemoSource::fileInfo(const QString&) { return std::nullopt; }

QByteArray DemoSource::readFile(const QString& path)
{
    QByteArray jpeg;
    QBuffer buffer(&jpeg);
    buffer.open(QIODevice::WriteOnly);
    if (!gradient(fnv1a(path.toUtf8())).save(&buffer, "JPG", kJpegQuality))
        throw MediaSourceError::readFailed(path, QStringLiteral("demo image"));
    return jpeg;
}
