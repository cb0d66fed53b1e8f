#include "ThumbnailPainter.h"

#include "DeterministicRandom.h"

#include <QLinearGradient>
#include <QPainter>
#include <QPainterPath>

#include <algorithm>
#include <cmath>
#include <initializer_list>
#include <utility>

namespace {

QColor hsv(int hue, int saturation, int value, int alpha = 255)
{
    return QColor::fromHsv((hue % 360 + 360) % 360, std::clamp(saturation, 0, 255), std::clamp(value, 0, 255), alpha);
}

// A picture being painted. Places are given as fractions of the width and height, so every
// scene fits every shape; round things are sized by the shorter side.
struct Canvas {
    Canvas(QImage& image, uint64_t seed) : painter(&image), w(image.width()), h(image.height()), random(seed)
    {
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setPen(Qt::NoPen);
    }

    QPointF at(double x, double y) const { return {x * w, y * h}; }
    double unit() const { return std::min(w, h); }
    double between(double low, double high) { return low + random.fraction() * (high - low); }
    int near(int value, int spread) { return value + int(random.between(-spread, spread)); }

    // Fills the band from `top` to `bottom` with a vertical gradient through the stops.
    void band(double top, double bottom, std::initializer_list<std::pair<double, QColor>> stops)
    {
        QLinearGradient gradient(0, top * h, 0, bottom * h);
        for (const auto& [position, colour] : stops)
            gradient.setColorAt(position, colour);
        painter.fillRect(QRectF(0, top * h, w, (bottom - top) * h + 1), gradient);
    }

    void polygon(std::initializer_list<QPointF> fractions, const QBrush& brush)
    {
        QPolygonF points;
        for (const QPointF& point : fractions)
            points << at(point.x(), point.y());
        painter.setBrush(brush);
        painter.drawPolygon(points);
    }

    void disc(QPointF centre, double radius, const QBrush& brush)
    {
        painter.setBrush(brush);
        painter.drawEllipse(centre, radius, radius);
    }

    QPainter painter;
    double w;
    double h;
    DeterministicRandom random;
};

void sun(Canvas& c, QPointF centre, double radius, const QColor& colour)
{
    // A glow of a few faint rings: as good as a radial gradient at this size, and much cheaper.
    for (const double ring : {2.6, 2.0, 1.5})
        c.disc(centre, radius * ring, QColor(colour.red(), colour.green(), colour.blue(), 45));
    c.disc(centre, radius, colour);
}

void cloud(Canvas& c, QPointF centre, double size)
{
    c.painter.setBrush(QColor(255, 255, 255, 215));
    for (int i = 0; i < 4; ++i)
        c.painter.drawEllipse(QPointF(centre.x() + (i - 1.5) * size * 0.55, centre.y() - (i % 2) * size * 0.22),
                              size * 0.5, size * 0.36);
}

// A rounded hill whose top is at `top`, spread `halfWidth` either side of `centre`.
void hill(Canvas& c, double centre, double top, double halfWidth, const QColor& colour)
{
    QLinearGradient gradient(0, top * c.h, 0, c.h);
    gradient.setColorAt(0, colour.lighter(115));
    gradient.setColorAt(1, colour.darker(140));
    c.painter.setBrush(gradient);
    c.painter.drawEllipse(QRectF(c.at(centre - halfWidth, top), c.at(centre + halfWidth, 2.4 - top)));
}

void seaside(Canvas& c)
{
    const int hue = c.near(205, 15);
    const double horizon = c.between(0.45, 0.6);
    c.band(0, horizon, {{0, hsv(hue, 170, 205)}, {1, hsv(hue - 15, 45, 250)}});
    sun(c, c.at(c.between(0.15, 0.85), horizon * c.between(0.25, 0.6)), c.unit() * 0.07, QColor(255, 244, 200));
    cloud(c, c.at(c.between(0.1, 0.9), horizon * 0.3), c.unit() * 0.2);
    c.band(horizon, 1, {{0, hsv(hue + 5, 190, 190)}, {1, hsv(hue + 15, 230, 105)}});
    c.painter.setPen(QPen(QColor(255, 255, 255, 110), std::max(1.0, c.unit() * 0.006)));
    for (int i = 0; i < 14; ++i) {
        const double y = c.between(horizon + 0.03, 0.85);
        const double x = c.between(-0.1, 0.9);
        c.painter.drawLine(c.at(x, y), c.at(x + c.between(0.05, 0.2), y));
    }
    c.painter.setPen(Qt::NoPen);
    const double sailX = c.between(0.2, 0.8);
    const double sailY = horizon + c.between(0.04, 0.12);
    const double sail = c.between(0.05, 0.09);
    c.polygon({{sailX, sailY - sail * 2}, {sailX, sailY}, {sailX + sail, sailY}}, QColor(250, 250, 250));
    c.polygon({{sailX - sail * 0.6, sailY},
               {sailX + sail * 1.3, sailY},
               {sailX + sail, sailY + sail * 0.4},
               {sailX - sail * 0.4, sailY + sail * 0.4}},
              QColor(150, 60, 40));
    QPainterPath beach;
    beach.moveTo(0, c.h);
    beach.lineTo(c.at(0, c.between(0.8, 0.9)));
    beach.quadTo(c.at(0.5, c.between(0.75, 0.85)), c.at(1, c.between(0.82, 0.95)));
    beach.lineTo(c.w, c.h);
    c.painter.setBrush(hsv(c.near(40, 6), 90, 235));
    c.painter.drawPath(beach);
}

void hills(Canvas& c)
{
    c.band(0, 0.7, {{0, hsv(c.near(210, 10), 150, 220)}, {1, hsv(200, 40, 250)}});
    sun(c, c.at(c.between(0.1, 0.9), c.between(0.1, 0.3)), c.unit() * 0.06, QColor(255, 236, 170));
    for (int i = 0; i < 2; ++i)
        cloud(c, c.at(c.between(0.05, 0.95), c.between(0.1, 0.35)), c.unit() * c.between(0.12, 0.22));
    const int green = c.near(100, 15);
    c.band(0.6, 1, {{0, hsv(green, 120, 190)}, {1, hsv(green, 160, 120)}});
    for (int i = 0; i < 3; ++i)
        hill(c, c.between(0.0, 1.0), 0.4 + i * 0.12 + c.between(0, 0.08), c.between(0.4, 0.8),
             hsv(green + i * 8, 110 + i * 30, 200 - i * 30));
    const QPointF tree = c.at(c.between(0.15, 0.85), c.between(0.62, 0.72));
    const double size = c.unit() * c.between(0.07, 0.11);
    c.painter.fillRect(QRectF(tree.x() - size * 0.12, tree.y(), size * 0.24, size * 1.1), QColor(95, 62, 40));
    c.disc(tree, size * 0.8, hsv(green + 20, 200, 110));
}

void city(Canvas& c)
{
    const double ground = c.between(0.8, 0.88);
    c.band(
        0, ground,
        {{0, hsv(c.near(240, 15), 150, 80)}, {0.6, hsv(c.near(300, 20), 90, 165)}, {1, hsv(c.near(25, 10), 170, 245)}});
    c.disc(c.at(c.between(0.1, 0.9), c.between(0.08, 0.2)), c.unit() * 0.045, QColor(245, 240, 220));
    const double window = std::max(2.0, c.unit() * 0.018);
    for (double x = -c.between(0, 0.05) * c.w; x < c.w;) {
        const double width = c.unit() * c.between(0.1, 0.22);
        const double top = c.between(0.22, 0.6) * c.h;
        c.painter.fillRect(QRectF(x, top, width, ground * c.h - top + 1),
                           hsv(c.near(225, 20), int(c.random.between(20, 60)), int(c.random.between(45, 95))));
        for (double y = top + window * 1.5; y < ground * c.h - window * 2; y += window * 2.2)
            for (double wx = x + window; wx < x + width - window * 1.5; wx += window * 2)
                if (c.random.chance(45))
                    c.painter.fillRect(QRectF(wx, y, window, window), QColor(255, 220, 140));
        x += width + c.unit() * c.between(0.0, 0.03);
    }
    c.band(ground, 1, {{0, QColor(44, 44, 52)}, {1, QColor(22, 22, 28)}});
}

void mountains(Canvas& c)
{
    const double base = c.between(0.6, 0.7);
    c.band(0, base, {{0, hsv(c.near(210, 10), 120, 225)}, {1, hsv(200, 30, 250)}});
    for (int i = 0; i < 3; ++i) {
        const double peakX = c.between(i * 0.3, i * 0.3 + 0.35);
        const double peakY = c.between(0.15, 0.35) + i * 0.05;
        const double half = c.between(0.25, 0.4);
        c.polygon({{peakX - half, base + 0.02}, {peakX, peakY}, {peakX + half, base + 0.02}},
                  hsv(c.near(220, 15), 40 + i * 12, 160 - i * 28));
        const double cap = 0.3;
        const double capY = peakY + (base - peakY) * cap;
        c.polygon({{peakX - half * cap, capY},
                   {peakX, peakY},
                   {peakX + half * cap, capY},
                   {peakX + half * cap * 0.3, capY - 0.03},
                   {peakX - half * cap * 0.3, capY + 0.01}},
                  QColor(248, 248, 252));
    }
    c.band(base, 1, {{0, hsv(c.near(200, 10), 120, 200)}, {1, hsv(210, 160, 110)}});
    for (int i = 0; i < 9; ++i) {
        const double x = c.between(0, 1);
        const double top = c.between(0.72, 0.86);
        const double half = c.between(0.025, 0.05);
        c.polygon({{x - half, 1.02}, {x, top}, {x + half, 1.02}}, hsv(c.near(140, 10), 150, 70));
    }
}

void night(Canvas& c)
{
    c.band(0, 1, {{0, hsv(c.near(230, 10), 200, 35)}, {1, hsv(c.near(265, 15), 140, 95)}});
    for (int i = 0; i < 70; ++i)
        c.disc(c.at(c.between(0, 1), c.between(0, 0.75)), c.between(0.5, 1.6),
               QColor(255, 255, 240, int(c.random.between(110, 255))));
    const QPointF moon = c.at(c.between(0.15, 0.85), c.between(0.12, 0.35));
    const double radius = c.unit() * 0.08;
    QPainterPath crescent;
    crescent.addEllipse(moon, radius, radius);
    QPainterPath bite;
    bite.addEllipse(moon + QPointF(radius * 0.45, -radius * 0.2), radius * 0.9, radius * 0.9);
    c.painter.setBrush(QColor(250, 246, 215));
    c.painter.drawPath(crescent.subtracted(bite));
    hill(c, c.between(0.2, 0.8), c.between(0.72, 0.82), 0.9, QColor(20, 22, 30));
    const QPointF house = c.at(c.between(0.2, 0.8), 0.86);
    const double size = c.unit() * 0.1;
    c.painter.fillRect(QRectF(house.x() - size, house.y() - size, size * 2, size * 1.2), QColor(12, 12, 16));
    c.painter.fillRect(QRectF(house.x() - size * 0.5, house.y() - size * 0.7, size * 0.4, size * 0.35),
                       QColor(255, 205, 110));
}

void sunset(Canvas& c)
{
    const double horizon = c.between(0.55, 0.65);
    c.band(0, horizon,
           {{0, hsv(c.near(270, 15), 120, 110)},
            {0.6, hsv(c.near(335, 10), 120, 220)},
            {1, hsv(c.near(28, 6), 200, 255)}});
    const double sunX = c.between(0.25, 0.75);
    sun(c, c.at(sunX, horizon), c.unit() * c.between(0.12, 0.18), QColor(255, 205, 95));
    c.band(horizon, 1, {{0, hsv(c.near(225, 10), 110, 95)}, {1, hsv(235, 150, 45)}});
    for (int i = 0; i < 8; ++i) {
        const double y = horizon + 0.02 + i * 0.035;
        const double half = 0.14 - i * 0.014;
        c.painter.fillRect(QRectF(c.at(sunX - half, y), c.at(sunX + half, y + 0.012)), QColor(255, 170, 80, 170));
    }
    c.painter.setPen(QPen(QColor(40, 25, 40), std::max(1.0, c.unit() * 0.008)));
    for (int i = 0; i < 4; ++i) {
        const QPointF bird = c.at(c.between(0.1, 0.9), c.between(0.1, horizon - 0.2));
        const double span = c.unit() * c.between(0.02, 0.04);
        c.painter.drawPolyline(QPolygonF{bird + QPointF(-span, -span * 0.5), bird, bird + QPointF(span, -span * 0.5)});
    }
    c.painter.setPen(Qt::NoPen);
}

void meadow(Canvas& c)
{
    const double horizon = c.between(0.32, 0.45);
    c.band(0, horizon, {{0, hsv(c.near(205, 8), 130, 235)}, {1, hsv(195, 40, 250)}});
    cloud(c, c.at(c.between(0.1, 0.9), horizon * 0.45), c.unit() * 0.16);
    c.band(horizon, 1, {{0, hsv(c.near(95, 12), 140, 185)}, {1, hsv(110, 200, 95)}});
    const int flowerHue = c.near(330, 40);
    for (int i = 0; i < 45; ++i) {
        const double depth = c.between(0.05, 1.0);
        const QPointF centre = c.at(c.between(0, 1), horizon + depth * (1 - horizon));
        const double radius = c.unit() * (0.006 + 0.04 * depth);
        const QColor petal = hsv(flowerHue + int(c.random.between(-25, 25)), 150, 250);
        for (int p = 0; p < 5; ++p) {
            const QPointF offset(radius * 0.9 * std::cos(p * 1.2566), radius * 0.9 * std::sin(p * 1.2566));
            c.disc(centre + offset, radius * 0.65, petal);
        }
        c.disc(centre, radius * 0.5, QColor(250, 210, 60));
    }
}

void table(Canvas& c)
{
    const int wood = c.near(28, 6);
    const int planks = 5;
    for (int i = 0; i < planks; ++i)
        c.band(double(i) / planks, double(i + 1) / planks,
               {{0, hsv(wood, 130, int(c.random.between(140, 175)))}, {1, hsv(wood, 140, 120)}});
    const QPointF plate = c.at(c.between(0.4, 0.6), c.between(0.42, 0.58));
    const double radius = c.unit() * 0.34;
    c.disc(plate + QPointF(radius * 0.06, radius * 0.08), radius, QColor(0, 0, 0, 70));
    c.disc(plate, radius, QColor(248, 248, 245));
    c.disc(plate, radius * 0.74, QColor(236, 236, 232));
    const QColor foods[] = {QColor(215, 45, 35), QColor(90, 160, 60), QColor(250, 215, 80), QColor(140, 85, 45),
                            QColor(245, 150, 40)};
    for (int i = 0; i < 7; ++i) {
        const QPointF offset(c.between(-0.45, 0.45) * radius, c.between(-0.45, 0.45) * radius);
        c.disc(plate + offset, radius * c.between(0.12, 0.22), foods[c.random.below(5)]);
    }
    const QPointF cup = c.at(c.between(0.0, 1.0) < 0.5 ? 0.12 : 0.88, c.between(0.12, 0.88));
    c.disc(cup, c.unit() * 0.12, hsv(c.near(200, 160), 120, 230));
    c.disc(cup, c.unit() * 0.095, QColor(90, 55, 30));
}

// The thumbnail of a screenshot: a home screen of app icons, or a list of messages.
void screen(Canvas& c, bool homeScreen)
{
    const int hue = c.near(220, 120);
    if (homeScreen)
        c.band(0, 1, {{0, hsv(hue, 150, 210)}, {1, hsv(hue + 60, 170, 120)}});
    else
        c.band(0, 1, {{0, QColor(250, 250, 252)}, {1, QColor(242, 242, 247)}});
    const QColor ink = homeScreen ? QColor(255, 255, 255) : QColor(30, 30, 35);
    c.painter.setBrush(ink);
    c.painter.drawRoundedRect(QRectF(c.at(0.08, 0.02), c.at(0.2, 0.035)), 2, 2);
    c.painter.drawRoundedRect(QRectF(c.at(0.78, 0.02), c.at(0.92, 0.035)), 2, 2);
    if (homeScreen) {
        const double icon = c.w * 0.16;
        for (int row = 0; row < 6; ++row)
            for (int column = 0; column < 4; ++column) {
                const QPointF corner = c.at(0.07 + column * 0.235, 0.08 + row * 0.12);
                c.painter.setBrush(hsv(int(c.random.below(360)), 170, 235));
                c.painter.drawRoundedRect(QRectF(corner, QSizeF(icon, icon)), icon * 0.22, icon * 0.22);
                c.painter.fillRect(QRectF(corner + QPointF(icon * 0.15, icon * 1.12), QSizeF(icon * 0.7, 2)),
                                   QColor(255, 255, 255, 200));
            }
        c.painter.setBrush(QColor(255, 255, 255, 90));
        c.painter.drawRoundedRect(QRectF(c.at(0.04, 0.86), c.at(0.96, 0.97)), c.w * 0.08, c.w * 0.08);
        return;
    }
    c.painter.setBrush(ink);
    c.painter.drawRoundedRect(QRectF(c.at(0.06, 0.07), c.at(0.5, 0.1)), 3, 3);
    c.painter.setBrush(QColor(225, 225, 230));
    c.painter.drawRoundedRect(QRectF(c.at(0.05, 0.12), c.at(0.95, 0.15)), 6, 6);
    for (int row = 0; row < 9; ++row) {
        const double y = 0.19 + row * 0.09;
        c.disc(c.at(0.14, y + 0.025), c.w * 0.08, hsv(int(c.random.below(360)), 120, 220));
        c.painter.fillRect(QRectF(c.at(0.28, y), c.at(c.between(0.55, 0.8), y + 0.012)), QColor(40, 40, 45));
        c.painter.fillRect(QRectF(c.at(0.28, y + 0.03), c.at(c.between(0.6, 0.92), y + 0.04)), QColor(150, 150, 155));
        c.painter.fillRect(QRectF(c.at(0.28, y + 0.075), c.at(1, y + 0.077)), QColor(215, 215, 220));
    }
}

// Darkens the picture and frames it with film-strip edges and a play sign.
void filmFrame(Canvas& c)
{
    c.painter.fillRect(QRectF(0, 0, c.w, c.h), QColor(0, 0, 0, 95));
    const double strip = std::max(12.0, c.w * 0.055);
    const double pitch = strip * 1.1;
    for (const double left : {0.0, c.w - strip}) {
        c.painter.fillRect(QRectF(left, 0, strip, c.h), QColor(14, 14, 14));
        c.painter.setBrush(QColor(225, 225, 220));
        for (double y = pitch * 0.25; y + pitch * 0.5 < c.h; y += pitch)
            c.painter.drawRoundedRect(QRectF(left + strip * 0.25, y, strip * 0.5, pitch * 0.5), 2, 2);
    }
    const QPointF centre = c.at(0.5, 0.5);
    const double radius = c.unit() * 0.12;
    c.disc(centre, radius, QColor(0, 0, 0, 110));
    c.painter.setBrush(QColor(255, 255, 255, 230));
    c.painter.drawPolygon(QPolygonF{centre + QPointF(-radius * 0.35, -radius * 0.5), centre + QPointF(radius * 0.55, 0),
                                    centre + QPointF(-radius * 0.35, radius * 0.5)});
}

} // namespace

QImage ThumbnailPainter::draw(int look, QSize size, bool video)
{
    QImage image(size, QImage::Format_RGB32);
    image.fill(Qt::black);
    {
        Canvas canvas(image, uint64_t(look) * 0x9E3779B97F4A7C15ull + 0x7417);
        if (size.height() > size.width() * 17 / 10) {
            screen(canvas, look % 2 == 0);
        } else {
            using Scene = void (*)(Canvas&);
            static constexpr Scene scenes[] = {seaside, hills, city, mountains, night, sunset, meadow, table};
            scenes[look % 8](canvas);
        }
        if (video)
            filmFrame(canvas);
    }
    return image;
}
