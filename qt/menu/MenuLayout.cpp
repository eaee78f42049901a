#include "qt/menu/MenuLayout.h"

#include "qt/menu/MenuIcons.h"

#include <QStyle>
#include <algorithm>
#include <cmath>

namespace kvl::qt {
namespace {

constexpr double kSmallPrint = 0.85;
constexpr double kSmallestPoints = 7;
constexpr int kSmallestPixels = 9;
// What rounding may take from a text that is measured and painted.
constexpr int kSlack = 2;

QFont smallPrint(QFont font) {
  if (font.pointSizeF() > 0)
    font.setPointSizeF(std::max(kSmallestPoints, font.pointSizeF() * kSmallPrint));
  else
    font.setPixelSize(std::max(kSmallestPixels, qRound(font.pixelSize() * kSmallPrint)));
  return font;
}

QFont bold(QFont font) {
  font.setBold(true);
  return font;
}

bool isHeader(const MenuEntry& entry) {
  return entry.kind == MenuItem::Kind::sectionHeader;
}

// Above a section header, which belongs to what follows.
int headroom(const MenuEntry& entry, const MenuMetrics& metrics) {
  return isHeader(entry) ? metrics.padding : 0;
}

int textWidth(const QString& text, const QFontMetrics& metrics) {
  return text.isEmpty() ? 0 : metrics.horizontalAdvance(text) + kSlack;
}

// Up to where the texts start.
int leadingWidth(const MenuColumns& columns, const MenuMetrics& metrics) {
  return metrics.edge + (columns.marks ? metrics.mark + metrics.gap : 0) +
         (columns.icons ? metrics.icon + metrics.gap : 0);
}

// From where the column of shortcuts ends. Arrows have room in every menu, or opening a menu whose
// entries change would move everything.
int trailingWidth(const MenuMetrics& metrics) {
  return metrics.arrow + metrics.edge;
}

int badgeWidth(const MenuEntry& entry, const MenuMetrics& metrics) {
  if (entry.badge.isEmpty()) return 0;
  return textWidth(entry.badge, metrics.small) + 2 * metrics.badgeMargin;
}

// Badges stand in one column, also those of entries without a shortcut.
bool hasShortcutColumn(const MenuEntry& entry, const MenuColumns& columns) {
  return !entry.shortcut.isEmpty() || (!entry.badge.isEmpty() && columns.shortcutWidth > 0);
}

int heightOf(const MenuEntry& entry, const MenuMetrics& metrics) {
  int height = metrics.titleMetrics(entry).height();
  if (!entry.subtitle.isEmpty()) height += metrics.small.height();
  if (!isHeader(entry)) height = std::max({height, metrics.icon, metrics.mark});
  return height + 2 * metrics.padding + headroom(entry, metrics);
}

// Lays out from left to right, in a rectangle.
class LayoutBuilder {
 public:
  LayoutBuilder(const MenuEntry& entry, const MenuMetrics& metrics, const QRect& rect)
      : entry_(entry), metrics_(metrics), left_(rect.left()), right_(rect.left() + rect.width()) {
    const int title = metrics.titleMetrics(entry).height();
    const int lines = title + (entry.subtitle.isEmpty() ? 0 : metrics.small.height());
    const int room = rect.height() - headroom(entry, metrics);
    top_ = rect.top() + headroom(entry, metrics) + (room - lines) / 2;
    firstLine_ = QRect(rect.left(), top_, 0, title);
    whole_ = QRect(rect.left(), rect.top(), 0, rect.height());
  }

  EntryLayout build(const MenuColumns& columns) {
    left_ += metrics_.edge;
    right_ -= metrics_.edge;
    if (!isHeader(entry_)) layTrailing(columns);
    layLeading(columns);
    layout_.title = QRect(left_, top_, room(), firstLine_.height());
    if (!entry_.subtitle.isEmpty())
      layout_.subtitle = QRect(left_, top_ + firstLine_.height(), room(), metrics_.small.height());
    return layout_;
  }

 private:
  int room() const { return std::max(0, right_ - left_); }

  static QRect centred(int left, int width, int height, const QRect& line) {
    return {left, line.top() + (line.height() - height) / 2, width, height};
  }

  void layTrailing(const MenuColumns& columns) {
    right_ -= metrics_.arrow;
    if (entry_.hasSubmenu) layout_.arrow = centred(right_, metrics_.arrow, metrics_.arrow, whole_);
    if (hasShortcutColumn(entry_, columns)) {
      const int width = columns.shortcutWidth + kSlack;
      right_ -= width;
      if (!entry_.shortcut.isEmpty())
        layout_.shortcut = centred(right_, width, metrics_.text.height(), whole_);
      right_ -= metrics_.wideGap;
    }
    if (const int width = badgeWidth(entry_, metrics_)) {
      right_ -= width;
      layout_.badge = centred(right_, width, metrics_.small.height() + 2, whole_);
      right_ -= metrics_.wideGap;
    }
  }

  void layLeading(const MenuColumns& columns) {
    if (columns.marks) {
      if (entry_.state != MenuItem::State::off)
        layout_.mark = centred(left_, metrics_.mark, metrics_.mark, firstLine_);
      left_ += metrics_.mark + metrics_.gap;
    }
    if (columns.icons) {
      if (entry_.expectsIcon)
        layout_.icon = centred(left_, metrics_.icon, metrics_.icon, firstLine_);
      left_ += metrics_.icon + metrics_.gap;
    }
  }

  const MenuEntry& entry_;
  const MenuMetrics& metrics_;
  int left_;   // what is free begins here
  int right_;  // and ends before here
  int top_ = 0;
  QRect firstLine_;
  QRect whole_;
  EntryLayout layout_;
};

}  // namespace

MenuMetrics::MenuMetrics(const QFont& menuFont)
    : font(menuFont),
      smallFont(smallPrint(menuFont)),
      headerFont(bold(smallFont)),
      text(font),
      small(smallFont),
      header(headerFont) {
  const int line = text.height();
  edge = line / 2;
  padding = line * 3 / 10;
  gap = line * 3 / 8;
  wideGap = line * 3 / 2;
  mark = line * 5 / 8;
  icon = MenuIcons::side();
  arrow = line * 3 / 4;
  badgeMargin = line * 3 / 8;
}

const QFont& MenuMetrics::titleFont(const MenuEntry& entry) const {
  if (isHeader(entry)) return headerFont;
  return entry.smallTitle ? smallFont : font;
}

const QFontMetrics& MenuMetrics::titleMetrics(const MenuEntry& entry) const {
  if (isHeader(entry)) return header;
  return entry.smallTitle ? small : text;
}

QSize sizeOf(const MenuEntry& entry, const MenuColumns& columns, const MenuMetrics& metrics,
             int widest) {
  int width = std::max(textWidth(entry.title, metrics.titleMetrics(entry)),
                       textWidth(entry.subtitle, metrics.small));
  width += leadingWidth(columns, metrics) + trailingWidth(metrics);
  if (!entry.badge.isEmpty()) width += metrics.wideGap + badgeWidth(entry, metrics);
  if (hasShortcutColumn(entry, columns)) width += metrics.wideGap + kSlack;
  return {std::min(width, widest - columns.shortcutWidth), heightOf(entry, metrics)};
}

EntryLayout layoutOf(const MenuEntry& entry, const MenuColumns& columns, const MenuMetrics& metrics,
                     const QRect& rect, Qt::LayoutDirection direction) {
  EntryLayout layout = LayoutBuilder(entry, metrics, rect).build(columns);
  for (QRect* part : {&layout.mark, &layout.icon, &layout.title, &layout.subtitle, &layout.badge,
                      &layout.shortcut, &layout.arrow})
    if (part->isValid()) *part = QStyle::visualRect(direction, rect, *part);
  return layout;
}

}  // namespace kvl::qt
