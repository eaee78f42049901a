// How a picture is fitted into the space for it.
#pragma once

#include <local/platform/Geometry.h>
#include <local/platform/SegmentedControl.h>

#include <QColor>
#include <QImage>
#include <QRect>
#include <QSizeF>

class QPainter;

namespace kvl::qt {

// The size at which an image of `size` is shown in a space of `box`, in points.
[[nodiscard]] QSizeF placedSize(Size size, QSize box, ImageScaling scaling);

// How many times larger than usual the picture of an image has to be drawn, so that it is sharp at
// the size `placed`: usually it is shrunk to fit a square of `side`. At least 1, and bounded.
[[nodiscard]] double enlargementOf(Size size, QSizeF placed, int side);

// Of pictures in colours of their own where they cannot be used.
inline constexpr double kDisabledOpacity = 0.4;

// The shape of the picture in one colour.
[[nodiscard]] QImage tinted(const QImage& picture, const QColor& colour);

// Paints `picture` in the middle of `box` at the size `placed`; what does not fit is not seen.
void paintImage(QPainter& painter, const QRect& box, QSizeF placed, const QImage& picture,
                bool enabled);

}  // namespace kvl::qt
