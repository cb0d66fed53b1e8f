#pragma once

#include <QImage>
#include <QSize>

// The pictures thumbnails show, painted from gradients and shapes: the sea, hills, a city at
// dusk, mountains, a starry night, a sunset, a meadow of flowers, a table laid for a meal, each
// in eight variations of colour and placement. Pictures much taller than wide look like phone
// screens (the thumbnails of screenshots). A video's picture is darker, between film-strip
// edges, with a play sign. Smooth rather than noisy, so they look and compress like photographs.
class ThumbnailPainter {
public:
    static constexpr int kLooks = 64;

    // The same look, size and kind always give the same picture.
    static QImage draw(int look, QSize size, bool video);
};
