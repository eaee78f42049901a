#include "qt/MenuColours.h"

#include "qt/Contrast.h"

#include <QImage>
#include <QPainter>
#include <QStyle>
#include <QStyleOption>

namespace kvl::qt {
namespace {

// How much of the text's colour is in others.
constexpr double kSecondary = 0.7;
constexpr double kBadge = 0.15;

// A bit of the text's colour over the background; where the text could not be read on that, of the
// opposite.
QColor badgeOn(const QColor& background, const QColor& text) {
  const QColor towardsText = blended(background, text, kBadge);
  if (contrast(text, towardsText) >= kReadableContrast) return towardsText;
  return blended(background, readableOn(text, {}), kBadge);
}

QColor textOn(const QStyleOptionMenuItem& option, const QColor& background) {
  const QPalette& palette = option.palette;
  const QColor text = palette.color(QPalette::Text);
  if (!(option.state & QStyle::State_Enabled)) return text;
  const QColor windowText = palette.color(QPalette::WindowText);
  if (option.state & QStyle::State_Selected)
    return readableOn(background, {palette.color(QPalette::HighlightedText), text, windowText});
  return readableOn(background, {text, windowText});
}

}  // namespace

MenuColours coloursOf(const QStyleOptionMenuItem& option, const QColor& background) {
  const bool enabled = option.state & QStyle::State_Enabled;
  MenuColours colours;
  colours.background = background;
  colours.text = textOn(option, background);
  colours.secondary = enabled ? tonedDown(colours.text, background, kSecondary) : colours.text;
  colours.badge = badgeOn(background, colours.text);
  return colours;
}

QColor backgroundOf(const QStyleOptionMenuItem& option, const QStyle& style,
                    const QWidget* widget) {
  QStyleOptionMenuItem sample = option;
  sample.rect = QRect(0, 0, 64, 32);
  sample.menuRect = sample.rect;
  QImage image(sample.rect.size(), QImage::Format_ARGB32_Premultiplied);
  image.fill(option.palette.color(QPalette::Window));
  QPainter painter(&image);
  style.drawPrimitive(QStyle::PE_PanelMenu, &sample, &painter, widget);
  style.drawControl(QStyle::CE_MenuItem, &sample, &painter, widget);
  painter.end();
  return image.pixelColor(sample.rect.center());
}

}  // namespace kvl::qt
