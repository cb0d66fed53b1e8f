#include "MediaFactory.h"

#include "DeterministicRandom.h"
#include "ImageEncoding.h"

#include <QColor>
#include <QImage>

#include <plist/plist.h>

#include <memory>
#include <stdexcept>

using ImageEncoding::encode;
using ImageEncoding::withComment;

namespace {

void put16(QByteArray& out, uint32_t v) { out.append(char(v >> 8)).append(char(v)); }

void put32(QByteArray& out, uint32_t v)
{
    out.append(char(v >> 24)).append(char(v >> 16)).append(char(v >> 8)).append(char(v));
}

QByteArray box(const char* type, const QByteArray& payload)
{
    QByteArray out;
    put32(out, uint32_t(8 + payload.size()));
    out.append(type, 4).append(payload);
    return out;
}

QByteArray fullBox(const char* type, uint8_t version, uint32_t flags, const QByteArray& payload)
{
    QByteArray body;
    put32(body, (uint32_t(version) << 24) | (flags & 0xFFFFFF));
    return box(type, body + payload);
}

// A header of an HEVC (Main profile, 4:2:0, 8 bits) decoder configuration without parameter sets.
QByteArray hvcC()
{
    QByteArray c;
    c.append(char(1));                             // configurationVersion
    c.append(char(0x01));                          // profile space 0, tier 0, profile Main
    put32(c, 0x60000000);                          // profile compatibility
    c.append(QByteArray::fromHex("900000000000")); // constraint indicators
    c.append(char(0x5A));                          // level 3
    put16(c, 0xF000);                              // min spatial segmentation
    c.append(char(0xFC));                          // parallelism
    c.append(char(0xFD));                          // chroma 4:2:0
    c.append(char(0xF8));                          // luma bit depth 8
    c.append(char(0xF8));                          // chroma bit depth 8
    put16(c, 0);                                   // average frame rate
    c.append(char(0x0F));                          // NAL length size 4
    c.append(char(0));                             // no parameter set arrays
    return box("hvcC", c);
}

// Key-derived coded data: a length-prefixed IDR slice NAL unit of `size` bytes in all.
QByteArray codedData(uint64_t key, int size)
{
    DeterministicRandom random(key * 0x2545F4914F6CDD1Dull + 7);
    QByteArray nal = QByteArray::fromHex("2601") + random.bytes(std::max(0, size - 6));
    QByteArray out;
    put32(out, uint32_t(nal.size()));
    return out + nal;
}

QColor colourOf(uint64_t key)
{
    return QColor::fromHsv(int((key * 2654435761ull) % 360), 150 + int(key % 80), 170 + int((key >> 3) % 80));
}

// A picture that differs for every key: a colour field with bands, and the key's bits drawn in
// the top row.
QImage picture(uint64_t key, int width, int height)
{
    QImage image(width, height, QImage::Format_RGB32);
    const QRgb base = colourOf(key).rgb();
    const QRgb band = colourOf(key * 31 + 17).rgb();
    for (int y = 0; y < height; ++y) {
        auto* line = reinterpret_cast<QRgb*>(image.scanLine(y));
        for (int x = 0; x < width; ++x)
            line[x] = ((x + y) / 8) % 3 == 0 ? band : base;
    }
    auto* top = reinterpret_cast<QRgb*>(image.scanLine(0));
    for (int bit = 0; bit < 64 && bit < width; ++bit)
        top[bit] = (key >> bit) & 1 ? qRgb(255, 255, 255) : qRgb(0, 0, 0);
    return image;
}

QSize pictureSize(const MediaFile& file, int longSide)
{
    if (file.width <= 0 || file.height <= 0)
        return {longSide, longSide * 3 / 4};
    if (file.width >= file.height)
        return {longSide, std::max(1, longSide * file.height / file.width)};
    return {std::max(1, longSide * file.width / file.height), longSide};
}

using PlistPtr = std::unique_ptr<void, decltype(&plist_free)>;

QByteArray serialise(plist_t root, bool binary)
{
    char* data = nullptr;
    uint32_t length = 0;
    if (binary) {
        plist_to_bin(root, &data, &length);
        QByteArray out(data, int(length));
        plist_to_bin_free(data);
        return out;
    }
    plist_to_xml(root, &data, &length);
    QByteArray out(data, int(length));
    plist_to_xml_free(data);
    return out;
}

PlistPtr adjustmentDictionary(const MediaFile& file)
{
    DeterministicRandom random(file.contentKey * 0x9E3779B97F4A7C15ull + 3);
    const QByteArray data = random.bytes(int(random.between(200, 600)));
    PlistPtr dict(plist_new_dict(), &plist_free);
    plist_dict_set_item(dict.get(), "adjustmentBaseVersion", plist_new_uint(0));
    plist_dict_set_item(dict.get(), "adjustmentData", plist_new_data(data.constData(), uint64_t(data.size())));
    plist_dict_set_item(dict.get(), "adjustmentEditorBundleID", plist_new_string("com.apple.mobileslideshow"));
    plist_dict_set_item(dict.get(), "adjustmentFormatIdentifier", plist_new_string("com.apple.photo"));
    plist_dict_set_item(dict.get(), "adjustmentFormatVersion", plist_new_string("1.5"));
    plist_dict_set_item(dict.get(), "adjustmentRenderTypes", plist_new_uint(0));
    plist_dict_set_item(dict.get(), "adjustmentTimestamp", plist_new_date(int32_t(file.date) + 3600, 0));
    return dict;
}

} // namespace

bool MediaFactory::isAlwaysComplete(FileFormat format)
{
    return format == FileFormat::aae || format == FileFormat::adjustments || format == FileFormat::configuration ||
           format == FileFormat::thumbnail;
}

QByteArray MediaFactory::contents(const MediaFile& file, FilesMode mode)
{
    switch (file.format) {
    case FileFormat::jpeg:
        return jpeg(file, mode);
    case FileFormat::thumbnail:
        return m_thumbnails.contents(file);
    case FileFormat::png:
        return png(file, mode);
    case FileFormat::heic:
        return heic(file, mode);
    case FileFormat::mov:
        return mov(file, mode);
    case FileFormat::aae:
        return aae(file);
    case FileFormat::adjustments:
        return adjustments(file);
    case FileFormat::configuration:
        return configuration(file);
    }
    return {};
}

QByteArray MediaFactory::jpeg(const MediaFile& file, FilesMode mode)
{
    if (mode == FilesMode::sparse) {
        if (m_sparseJpegTemplate.isEmpty())
            m_sparseJpegTemplate = encode(picture(0x0B5E11, 64, 48), "jpeg", 80);
        return withComment(m_sparseJpegTemplate, file.contentKey);
    }
    const QSize size = pictureSize(file, 96);
    return withComment(encode(picture(file.contentKey, size.width(), size.height()), "jpeg", 85), file.contentKey);
}

QByteArray MediaFactory::png(const MediaFile& file, FilesMode mode)
{
    // The key's bits in the top row make every picture unique; a sparse file's head is a strip.
    const QSize size = mode == FilesMode::sparse ? QSize(64, 2) : pictureSize(file, 128);
    return encode(picture(file.contentKey, size.width(), size.height()), "png", -1);
}

QByteArray MediaFactory::heic(const MediaFile& file, FilesMode mode)
{
    const QByteArray ftyp = box("ftyp", QByteArray("heic") + QByteArray(4, '\0') + "mif1" + "MiHE" + "miaf" + "heic");
    const QByteArray payload =
        codedData(file.contentKey, mode == FilesMode::sparse ? 96 : 700 + int(file.contentKey % 900));

    auto meta = [&](uint32_t dataOffset, uint32_t dataLength) {
        QByteArray hdlr;
        put32(hdlr, 0);
        hdlr.append("pict");
        hdlr.append(QByteArray(12, '\0')).append('\0');
        QByteArray pitm;
        put16(pitm, 1);
        QByteArray iloc;
        iloc.append(char(0x44)).append(char(0x00)); // 4-byte offsets and lengths, no base offset
        put16(iloc, 1);                             // one item
        put16(iloc, 1);                             // item 1
        put16(iloc, 0);                             // in this file
        put16(iloc, 1);                             // one extent
        put32(iloc, dataOffset);
        put32(iloc, dataLength);
        QByteArray infe;
        put16(infe, 1);
        put16(infe, 0);
        infe.append("hvc1").append('\0');
        QByteArray iinf;
        put16(iinf, 1);
        iinf.append(fullBox("infe", 2, 0, infe));
        QByteArray ispe;
        put32(ispe, uint32_t(file.width));
        put32(ispe, uint32_t(file.height));
        QByteArray ipma;
        put32(ipma, 1);
        put16(ipma, 1);
        ipma.append(char(2)).append(char(0x81)).append(char(0x02)); // hvcC (essential), ispe
        const QByteArray iprp =
            box("iprp", box("ipco", hvcC() + fullBox("ispe", 0, 0, ispe)) + fullBox("ipma", 0, 0, ipma));
        return fullBox("meta", 0, 0,
                       fullBox("hdlr", 0, 0, hdlr) + fullBox("pitm", 0, 0, pitm) + fullBox("iloc", 0, 0, iloc) +
                           fullBox("iinf", 0, 0, iinf) + iprp);
    };

    const int headerSize = int(ftyp.size() + meta(0, 0).size()) + 8;
    const int64_t total = mode == FilesMode::sparse ? std::max<int64_t>(file.sparseSize, headerSize + payload.size())
                                                    : headerSize + payload.size();
    const uint32_t dataLength = uint32_t(total - headerSize);
    QByteArray out = ftyp + meta(uint32_t(headerSize), dataLength);
    put32(out, dataLength + 8);
    out.append("mdat").append(payload);
    return out;
}

QByteArray MediaFactory::mov(const MediaFile& file, FilesMode mode)
{
    const uint32_t timescale = 600;
    const uint32_t duration = uint32_t(std::max(0.1, file.duration) * timescale);
    // QuickTime counts seconds from 1904; the file's date keeps the bytes reproducible.
    const uint32_t created = uint32_t(int64_t(file.date) + 3061152000ll);
    const int width = file.width > 0 ? file.width : 1920;
    const int height = file.height > 0 ? file.height : 1080;
    const QByteArray payload =
        codedData(file.contentKey, mode == FilesMode::sparse ? 128 : 900 + int(file.contentKey % 1200));
    const QByteArray matrix =
        QByteArray::fromHex("000100000000000000000000000000000001000000000000000000000000000040000000");

    auto moov = [&](uint32_t dataOffset, uint32_t dataLength) {
        QByteArray mvhd;
        put32(mvhd, created);
        put32(mvhd, created);
        put32(mvhd, timescale);
        put32(mvhd, duration);
        put32(mvhd, 0x00010000); // rate 1.0
        put16(mvhd, 0x0100);     // volume 1.0
        mvhd.append(QByteArray(10, '\0')).append(matrix).append(QByteArray(24, '\0'));
        put32(mvhd, 2); // next track

        QByteArray tkhd;
        put32(tkhd, created);
        put32(tkhd, created);
        put32(tkhd, 1); // track 1
        put32(tkhd, 0);
        put32(tkhd, duration);
        tkhd.append(QByteArray(8, '\0'));
        put16(tkhd, 0); // layer
        put16(tkhd, 0); // alternate group
        put16(tkhd, 0); // volume
        put16(tkhd, 0);
        tkhd.append(matrix);
        put32(tkhd, uint32_t(width) << 16);
        put32(tkhd, uint32_t(height) << 16);

        QByteArray mdhd;
        put32(mdhd, created);
        put32(mdhd, created);
        put32(mdhd, timescale);
        put32(mdhd, duration);
        put16(mdhd, 0x55C4); // "und"
        put16(mdhd, 0);

        auto handler = [](const char* componentType, const char* subtype, const QByteArray& name) {
            QByteArray h;
            h.append(componentType, 4).append(subtype, 4);
            h.append(QByteArray(12, '\0'));
            h.append(name).append('\0');
            return fullBox("hdlr", 0, 0, h);
        };

        QByteArray vmhd;
        put16(vmhd, 0x40);
        vmhd.append(QByteArray::fromHex("800080008000"));
        QByteArray dref;
        put32(dref, 1);
        dref.append(fullBox("url ", 0, 1, {}));

        QByteArray entry(6, '\0');
        put16(entry, 1); // data reference
        put16(entry, 0);
        put16(entry, 0);
        entry.append("appl");
        put32(entry, 0);
        put32(entry, 512);
        put16(entry, uint32_t(width));
        put16(entry, uint32_t(height));
        put32(entry, 0x00480000);
        put32(entry, 0x00480000);
        put32(entry, 0);
        put16(entry, 1);
        QByteArray compressor(32, '\0');
        compressor[0] = 4;
        compressor.replace(1, 4, "HEVC");
        entry.append(compressor);
        put16(entry, 24);
        put16(entry, 0xFFFF);
        entry.append(hvcC());
        QByteArray stsd;
        put32(stsd, 1);
        stsd.append(box("hvc1", entry));
        QByteArray stts;
        put32(stts, 1);
        put32(stts, 1);
        put32(stts, duration);
        QByteArray stsc;
        put32(stsc, 1);
        put32(stsc, 1);
        put32(stsc, 1);
        put32(stsc, 1);
        QByteArray stsz;
        put32(stsz, 0);
        put32(stsz, 1);
        put32(stsz, dataLength);
        QByteArray stco;
        put32(stco, 1);
        put32(stco, dataOffset);
        const QByteArray stbl =
            box("stbl", fullBox("stsd", 0, 0, stsd) + fullBox("stts", 0, 0, stts) + fullBox("stsc", 0, 0, stsc) +
                            fullBox("stsz", 0, 0, stsz) + fullBox("stco", 0, 0, stco));
        const QByteArray minf =
            box("minf", fullBox("vmhd", 0, 1, vmhd) + handler("dhlr", "url ", "Core Media Data Handler") +
                            box("dinf", fullBox("dref", 0, 0, dref)) + stbl);
        const QByteArray mdia =
            box("mdia", fullBox("mdhd", 0, 0, mdhd) + handler("mhlr", "vide", "Core Media Video") + minf);
        const QByteArray trak = box("trak", fullBox("tkhd", 0, 3, tkhd) + mdia);
        return box("moov", fullBox("mvhd", 0, 0, mvhd) + trak);
    };

    QByteArray ftyp = box("ftyp", QByteArray("qt  ") + QByteArray::fromHex("00000000") + "qt  ");
    const int headerSize = int(ftyp.size() + moov(0, 0).size()) + 8;
    const int64_t total = mode == FilesMode::sparse ? std::max<int64_t>(file.sparseSize, headerSize + payload.size())
                                                    : headerSize + payload.size();
    const uint32_t dataLength = uint32_t(total - headerSize);
    QByteArray out = ftyp + moov(uint32_t(headerSize), dataLength);
    put32(out, dataLength + 8);
    out.append("mdat").append(payload);
    return out;
}

QByteArray MediaFactory::aae(const MediaFile& file) { return serialise(adjustmentDictionary(file).get(), false); }

QByteArray MediaFactory::adjustments(const MediaFile& file)
{
    return serialise(adjustmentDictionary(file).get(), true);
}

QByteArray MediaFactory::configuration(const MediaFile& file)
{
    PlistPtr dict(plist_new_dict(), &plist_free);
    plist_dict_set_item(dict.get(), "PLThumbnailManagerThumbnailFormatKey", plist_new_uint(file.contentKey));
    return serialise(dict.get(), true);
}
