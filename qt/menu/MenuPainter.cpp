#include "qt/menu/MenuPainter.h"

#include "qt/controls/Painting.h"

#include <QPainter>
#include <QPolygonF>
#include <QStyle>
#include <QStyleOption>
#include <algorithm>
#include <utility>

namespace kvl::qt {
namespace {

constexpr int kMostBackgrounds = 16;
constexpr int kMostTinted = 1024;

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
  const bool selected = option.state & QStyle::State_Selected;
  const QColor themes = selected ? palette.color(QPalette::HighlightedText) : text;
  if (contrast(themes, background) >= kLeastThemeContrast) return themes;
  return readableOn(background, {text, palette.color(QPalette::WindowText)});
}

// Line width by side of the mark.
constexpr double kStroke = 0.16;

void paintCheck(QPainter& painter, const QRectF& rect) {
  const auto at = [&](double x, double y) {
    return rect.topLeft() + QPointF(x * rect.width(), y * rect.height());
  };
  painter.drawPolyline(QPolygonF({at(0.1, 0.55), at(0.38, 0.83), at(0.9, 0.18)}));
}

// On whole pixels, so that it is sharp.
void paintDash(QPainter& painter, const QRect& rect) {
  const int thickness = std::max(1, qRound(rect.height() * kStroke));
  const QRect dash(rect.left() + rect.width() / 10,
                   rect.top() + (rect.height() - thickness + 1) / 2, rect.width() * 4 / 5,
                   thickness);
  painter.fillRect(dash, painter.pen().color());
}

// A check mark or a dash, in lines that go with text of a font in which `rect` was measured.
void paintMark(QPainter& painter, const QRect& rect, MenuItem::State state, const QColor& colour) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(colour, rect.width() * kStroke, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  if (state == MenuItem::State::on)
    paintCheck(painter, rect);
  else if (state == MenuItem::State::mixed)
    paintDash(painter, rect);
  painter.restore();
}

// What is under the text of a badge.
void paintPill(QPainter& painter, const QRect& rect, const QColor& colour) {
  painter.save();
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(colour);
  painter.drawRoundedRect(rect, rect.height() / 2.0, rect.height() / 2.0);
  painter.restore();
}

// Some styles highlight what cannot be chosen, for those who go through a menu by its keys.
bool mayBeHighlighted(const QStyleOptionMenuItem& option, const QStyle& style,
                      const QWidget* widget) {
  return (option.state & QStyle::State_Enabled) ||
         style.styleHint(QStyle::SH_Menu_AllowActiveAndDisabled, &option, widget) != 0;
}

// The same entry without what is painted here, so that the style paints its background alone.
QStyleOptionMenuItem backgroundRow(const QStyleOptionMenuItem& option, const QStyle& style,
                                   const QWidget* widget) {
  QStyleOptionMenuItem row = option;
  row.menuItemType = QStyleOptionMenuItem::Normal;
  row.checkType = QStyleOptionMenuItem::NotCheckable;
  row.menuHasCheckableItems = false;
  row.checked = false;
  row.text.clear();
  row.icon = QIcon();
  row.maxIconWidth = 0;
  row.reservedShortcutWidth = 0;
  if (!mayBeHighlighted(option, style, widget)) row.state &= ~QStyle::State_Selected;
  return row;
}

// Headers cannot be chosen, but are to be read like what can.
QStyleOptionMenuItem rowOfEntry(const MenuEntry& entry, const QStyleOptionMenuItem& option,
                                const QStyle& style, const QWidget* widget) {
  QStyleOptionMenuItem row = backgroundRow(option, style, widget);
  if (entry.kind != MenuItem::Kind::sectionHeader) return row;
  row.state |= QStyle::State_Enabled;
  row.palette.setCurrentColorGroup(QPalette::Active);
  return row;
}

// Cut at its end, wherever that is, and set at the start of the row.
void paintText(QPainter& painter, const QString& text, const QRect& rect, const QFont& font,
               const QFontMetrics& metrics, const QColor& colour,
               Qt::LayoutDirection rowDirection) {
  if (text.isEmpty() || rect.isEmpty()) return;
  painter.setFont(font);
  painter.setPen(colour);
  const auto start = QStyle::visualAlignment(rowDirection, Qt::AlignLeft);
  paintLine(painter, rect, text, start | Qt::AlignVCenter, metrics, Qt::TextDontClip);
}

void paintArrow(const QRect& rect, const QColor& colour, const QStyleOptionMenuItem& row,
                const QStyle& style, QPainter& painter, const QWidget* widget) {
  if (rect.isEmpty()) return;
  QStyleOptionMenuItem arrow = row;
  arrow.rect = rect;
  for (const auto role : {QPalette::WindowText, QPalette::ButtonText, QPalette::Text})
    arrow.palette.setColor(role, colour);
  const bool leftwards = row.direction == Qt::RightToLeft;
  style.drawPrimitive(leftwards ? QStyle::PE_IndicatorArrowLeft : QStyle::PE_IndicatorArrowRight,
                      &arrow, &painter, widget);
}

// It may give each widget another background, in the same palette.
bool isStyleSheet(const QStyle& style) {
  return style.inherits("QStyleSheetStyle");
}

QRect centred(const QSize& size, const QRect& rect) {
  return {rect.x() + (rect.width() - size.width()) / 2,
          rect.y() + (rect.height() - size.height()) / 2, size.width(), size.height()};
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

MenuPainter::MenuPainter() : backgrounds_(kMostBackgrounds), tinted_(kMostTinted) {}

const MenuMetrics& MenuPainter::metrics(const QFont& font) {
  if (!metrics_ || metrics_->font != font) metrics_.emplace(font);
  return *metrics_;
}

void MenuPainter::paint(const MenuEntry& entry, const MenuContents& contents,
                        const QStyleOptionMenuItem& option, const QStyle& style, QPainter& painter,
                        const QWidget* widget) {
  const MenuMetrics& lengths = metrics(option.font);
  const QStyleOptionMenuItem row = rowOfEntry(entry, option, style, widget);
  const EntryLayout parts =
      layoutOf(entry, contents.columns(), lengths, option.rect, option.direction);
  const MenuColours shades = colours(row, style, widget);
  const bool isHeader = entry.kind == MenuItem::Kind::sectionHeader;

  painter.save();
  if (!isHeader) style.drawControl(QStyle::CE_MenuItem, &row, &painter, widget);
  paintMark(painter, parts.mark, entry.state, shades.text);
  if (!parts.icon.isEmpty())
    paintIcon(painter, parts.icon, contents.icon(entry), entry.image && entry.image->isTemplate(),
              shades.text, row.state & QStyle::State_Enabled);
  if (!parts.badge.isEmpty()) paintPill(painter, parts.badge, shades.badge);
  const auto write = [&](const QString& text, const QRect& rect, const QFont& font,
                         const QFontMetrics& fontMetrics, const QColor& colour) {
    paintText(painter, text, rect, font, fontMetrics, colour, option.direction);
  };
  write(entry.title, parts.title, lengths.titleFont(entry), lengths.titleMetrics(entry),
        isHeader ? shades.secondary : shades.text);
  write(entry.subtitle, parts.subtitle, lengths.smallFont, lengths.small, shades.secondary);
  write(entry.shortcut, parts.shortcut, lengths.font, lengths.text, shades.secondary);
  write(entry.badge, parts.badge.adjusted(lengths.badgeMargin, 0, -lengths.badgeMargin, 0),
        lengths.smallFont, lengths.small, shades.text);
  paintArrow(parts.arrow, shades.text, row, style, painter, widget);
  painter.restore();
}

MenuColours MenuPainter::colours(const QStyleOptionMenuItem& row, const QStyle& style,
                                 const QWidget* widget) {
  if (isStyleSheet(style)) return coloursOf(row, backgroundOf(row, style, widget));
  if (std::exchange(style_, &style) != &style) styleChanged();
  constexpr auto kLooks = QStyle::State_Enabled | QStyle::State_Selected | QStyle::State_Active;
  const QPair key(row.palette.cacheKey(), static_cast<int>(row.state & kLooks));
  const QColor* background = backgrounds_.object(key);
  if (!background) {
    auto* seen = new QColor(backgroundOf(row, style, widget));
    backgrounds_.insert(key, seen);
    background = seen;
  }
  return coloursOf(row, *background);
}

QImage MenuPainter::tinted(const QImage& shape, const QColor& colour) {
  const QPair key(shape.cacheKey(), colour.rgba());
  if (const QImage* kept = tinted_.object(key)) return *kept;
  const QImage image =
      qt::tinted(shape.convertToFormat(QImage::Format_ARGB32_Premultiplied), colour);
  tinted_.insert(key, new QImage(image));
  return image;
}

void MenuPainter::paintIcon(QPainter& painter, const QRect& rect, const QImage& picture,
                            bool isTemplate, const QColor& colour, bool enabled) {
  if (picture.isNull()) return;
  const QRect place = centred(picture.deviceIndependentSize().toSize(), rect);
  const double opacity = painter.opacity();
  if (!enabled && !isTemplate) painter.setOpacity(opacity * kDisabledOpacity);
  painter.drawImage(place.topLeft(), isTemplate ? tinted(picture, colour) : picture);
  painter.setOpacity(opacity);
}

}  // namespace kvl::qt
