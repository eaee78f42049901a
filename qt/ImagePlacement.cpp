#include "qt/ImagePlacement.h"

#include <QPainter>
#include <algorithm>
#include <cmath>

namespace kvl::qt {
namespace {

constexpr double kLargestEnlargement = 4;

bool isProper(Size size) {
  return std::isfinite(size.width) && std::isfinite(size.height) && size.width > 0 &&
         size.height > 0;
}

}  // namespace

QSizeF placedSize(Size size, QSize box, ImageScaling scaling) {
  const QSizeF space = box;
  if (!isProper(size) || scaling == ImageScaling::axesIndependently) return space;
  const QSizeF own(size.width, size.height);
  const bool fits = own.width() <= space.width() && own.height() <= space.height();
  if (scaling == ImageScaling::none || (fits && scaling == ImageScaling::proportionallyDown))
    return own;
  return own.scaled(space, Qt::KeepAspectRatio);
}

double enlargementOf(Size size, QSizeF placed, int side) {
  if (!isProper(size)) return 1;
  const double shrinking = std::min(1.0, side / std::max(size.width, size.height));
  const double needed = std::max(placed.width() / (size.width * shrinking),
                                 placed.height() / (size.height * shrinking));
  return std::clamp(needed, 1.0, kLargestEnlargement);
}

QImage tinted(const QImage& picture, const QColor& colour) {
  QImage image = picture.copy();
  QPainter painter(&image);
  painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
  painter.fillRect(QRectF(QPointF(), image.deviceIndependentSize()), colour);
  return image;
}

void paintImage(QPainter& painter, const QRect& box, QSizeF placed, const QImage& picture,
                bool enabled) {
  QRectF target(QPointF(), placed);
  target.moveCenter(QRectF(box).center());
  painter.save();
  painter.setClipRect(box);
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  if (!enabled) painter.setOpacity(kDisabledOpacity);
  painter.drawImage(target, picture);
  painter.restore();
}

}  // namespace kvl::qt
