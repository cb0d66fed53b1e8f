#pragma once

#include "MkdeviceOptions.h"
#include "PhoneContent.h"
#include "ThumbnailMaker.h"

#include <QByteArray>

// Makes the bytes of the phone's files: JPEG and PNG pictures (drawn with QImage), thumbnails
// (ThumbnailMaker), HEIC stills and QuickTime movies (ISO base media files built box by box: a
// HEIF image item, a video track), .AAE sidecars (XML property lists) and adjustment data
// (binary property lists).
//
// The same file description always gives the same bytes, and different content keys give
// different bytes. For sparse files only the head is made: the file is then extended with
// zeros to its full size, which every format here allows (the movie and image data box runs to
// the end of the file; a JPEG decoder stops at its end marker).
class MediaFactory {
public:
    // The whole file in real mode, its head in sparse mode.
    QByteArray contents(const MediaFile& file, FilesMode mode);
    // True when the file is made at full size even in sparse mode (property lists, thumbnails).
    static bool isAlwaysComplete(FileFormat format);

private:
    QByteArray jpeg(const MediaFile& file, FilesMode mode);
    QByteArray png(const MediaFile& file, FilesMode mode);
    QByteArray heic(const MediaFile& file, FilesMode mode);
    QByteArray mov(const MediaFile& file, FilesMode mode);
    QByteArray aae(const MediaFile& file);
    QByteArray adjustments(const MediaFile& file);
    QByteArray configuration(const MediaFile& file);

    QByteArray m_sparseJpegTemplate;
    ThumbnailMaker m_thumbnails;
};
