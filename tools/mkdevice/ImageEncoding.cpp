#include "ImageEncoding.h"

#include <QBuffer>
#include <QImageWriter>

#include <stdexcept>
#include <string>

QByteArray ImageEncoding::encode(const QImage& image, const char* format, int quality)
{
    QByteArray bytes;
    QBuffer buffer(&bytes);
    buffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&buffer, format);
    writer.setQuality(quality);
    if (!writer.write(image))
        throw std::runtime_error("could not encode an image as " + std::string(format) + ": " +
                                 writer.errorString().toStdString());
    return bytes;
}

QByteArray ImageEncoding::withComment(const QByteArray& jpeg, uint64_t key)
{
    const QByteArray text = "ombrelo-mkdevice " + QByteArray::number(qulonglong(key), 16);
    const auto length = uint32_t(text.size() + 2);
    const QByteArray segment = QByteArray::fromHex("FFFE") + char(length >> 8) + char(length & 0xFF);
    // The comment goes after the JFIF header, which must follow the start marker directly.
    qsizetype at = 2;
    if (jpeg.size() > 6 && uchar(jpeg[2]) == 0xFF && uchar(jpeg[3]) == 0xE0)
        at = 4 + (qsizetype(uchar(jpeg[4])) << 8 | uchar(jpeg[5]));
    return jpeg.left(at) + segment + text + jpeg.mid(at);
}
