#pragma once

#include <QByteArray>
#include <QImage>

#include <cstdint>

// Pictures as file bytes, with Qt's encoders (so the same picture always gives the same bytes).
namespace ImageEncoding {

// Throws std::runtime_error when Qt cannot encode the format.
QByteArray encode(const QImage& image, const char* format, int quality);

// The JPEG with a comment segment naming the key, so that two files showing the same picture
// still differ.
QByteArray withComment(const QByteArray& jpeg, uint64_t key);

} // namespace ImageEncoding
