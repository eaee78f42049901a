#include "qt/controls/Painting.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace kvl::qt {
namespace {

// The intensity of light that a component of sRGB stands for.
double linear(double component) {
  return component <= 0.04045 ? component / 12.92 : std::pow((component + 0.055) / 1.055, 2.4);
}

double luminance(const QColor& color) {
  return 0.2126 * linear(color.redF()) + 0.7152 * linear(color.greenF()) +
         0.0722 * linear(color.blueF());
}

}  // namespace

double contrast(const QColor& one, const QColor& other) {
  const auto [dark, light] = std::minmax({luminance(one), luminance(other)});
  return (light + 0.05) / (dark + 0.05);
}

QColor readableOn(const QColor& background, std::initializer_list<QColor> candidates) {
  for (const QColor& candidate : candidates)
    if (contrast(candidate, background) >= kReadableContrast) return candidate;
  const QColor black(Qt::black);
  const QColor white(Qt::white);
  return contrast(black, background) >= contrast(white, background) ? black : white;
}

QColor blended(const QColor& bottom, const QColor& top, double share) {
  const auto mix = [share](int from, int to) {
    return static_cast<int>(std::lround(from + (to - from) * share));
  };
  return {mix(bottom.red(), top.red()), mix(bottom.green(), top.green()),
          mix(bottom.blue(), top.blue())};
}

QColor tonedDown(const QColor& text, const QColor& background, double share) {
  constexpr double kStep = 0.05;
  for (; share < 1; share += kStep) {
    const QColor candidate = blended(background, text, share);
    if (contrast(candidate, background) >= kReadableContrast) return candidate;
  }
  return text;
}

QImage tinted(const QImage& picture, const QColor& colour) {
  QImage image = picture.copy();
  QPainter painter(&image);
  painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
  painter.fillRect(QRectF(QPointF(), image.deviceIndependentSize()), colour);
  return image;
}

int widthOf(const QString& line, const QFont& font) {
  return static_cast<int>(std::ceil(QFontMetricsF(font).horizontalAdvance(line)));
}

void paintLine(QPainter& painter, const QRect& rect, const QString& line, Qt::Alignment alignment,
               const QFontMetrics& metrics, int flags) {
  painter.setLayoutDirection(line.isRightToLeft() ? Qt::RightToLeft : Qt::LeftToRight);
  painter.drawText(rect,
                   static_cast<int>(alignment | Qt::AlignAbsolute) | Qt::TextSingleLine | flags,
                   metrics.elidedText(line, Qt::ElideRight, rect.width()));
}

}  // namespace kvl::qt
