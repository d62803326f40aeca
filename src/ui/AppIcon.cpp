#include "ui/AppIcon.h"

#include "core/AppError.h"

#include <QImageWriter>
#include <QPainter>
#include <QPainterPath>
#include <array>

namespace tallowick
{

namespace
{

const QColor background = QColor::fromRgbF(0.055F, 0.09F, 0.14F);
const QColor teal = QColor::fromRgbF(0.34F, 0.83F, 0.76F);

// The heights of the strokes, top to bottom: bold header-like rows and lighter rows between them.
constexpr std::array<int, 3> boldRows { 290, 440, 590 };
constexpr std::array<int, 3> lightRows { 365, 515, 665 };

template <std::size_t N>
void drawRows(QPainter &painter, const std::array<int, N> &heights, const QColor &color, qreal width)
{
    painter.setPen(QPen(color, width, Qt::SolidLine, Qt::RoundCap));
    for (const int y : heights) {
        painter.drawLine(QPointF(250, y), QPointF(774, y));
    }
}

} // namespace

QImage drawAppIcon(int size)
{
    QImage image(size, size, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.scale(size / 1024.0, size / 1024.0);

    QPainterPath tile;
    tile.addRoundedRect(QRectF(16, 16, 992, 992), 205, 205);
    painter.fillPath(tile, background);

    // A soft glow: wide, faint strokes under the first set, standing in for a blurred shadow.
    QColor glow = teal;
    glow.setAlphaF(0.2F / 6.0F);
    for (int step = 6; step >= 1; --step) {
        drawRows(painter, boldRows, glow, 27 + step * 10);
    }
    drawRows(painter, boldRows, teal, 27);
    QColor faded = teal;
    faded.setAlphaF(0.75F);
    drawRows(painter, lightRows, faded, 18);

    painter.setPen(Qt::NoPen);
    painter.setBrush(teal);
    for (const int x : { 378, 500, 622 }) {
        painter.drawEllipse(QPointF(x, 800), 12, 12);
    }
    painter.end();
    return image;
}

void createAppIcon(const std::string &path, std::int64_t size)
{
    if (size < 16 || size > 1024) {
        throw AppError("The icon size must be a number from 16 to 1024.");
    }
    QImageWriter writer(QString::fromStdString(path), "png");
    if (!writer.write(drawAppIcon(static_cast<int>(size)))) {
        throw AppError("Could not write the icon to " + path + ": " + writer.errorString().toStdString() + ".");
    }
}

} // namespace tallowick
