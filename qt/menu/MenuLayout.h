// Where the parts of menu entries are.
#pragma once

#include "qt/menu/MenuEntry.h"

#include <QFont>
#include <QFontMetrics>
#include <QRect>
#include <QSize>

namespace kvl::qt {

// The fonts of a menu, and lengths that go with them, in device-independent pixels. Making one
// takes as long as measuring many texts: keep it.
struct MenuMetrics {
  explicit MenuMetrics(const QFont& menuFont);

  [[nodiscard]] const QFont& titleFont(const MenuEntry& entry) const;
  [[nodiscard]] const QFontMetrics& titleMetrics(const MenuEntry& entry) const;

  QFont font;
  QFont smallFont;   // about 85 % of the menu's, but not below 7 points
  QFont headerFont;  // the same, bold
  QFontMetrics text;
  QFontMetrics small;
  QFontMetrics header;

  int edge;         // left and right of everything
  int padding;      // above and below the text
  int gap;          // between what belongs together
  int wideGap;      // between the title and what is at the other side
  int mark;         // the side of a mark
  int icon;         // the side of an icon
  int arrow;        // the side of the arrow of a sub-menu
  int badgeMargin;  // between the text of a badge and its left and right end
};

// The parts of one entry. Those that the entry does not have are empty.
struct EntryLayout {
  QRect mark;
  QRect icon;
  QRect title;
  QRect subtitle;
  QRect badge;
  QRect shortcut;
  QRect arrow;
};

// How much room an entry needs, without the text of shortcuts, which `QMenu` adds itself.
//
// @param widest the most that a menu takes; longer texts are cut
[[nodiscard]] QSize sizeOf(const MenuEntry& entry, const MenuColumns& columns,
                           const MenuMetrics& metrics, int widest);

// Where the parts are in an entry that has the place `rect`. Right to left everything is mirrored.
[[nodiscard]] EntryLayout layoutOf(const MenuEntry& entry, const MenuColumns& columns,
                                   const MenuMetrics& metrics, const QRect& rect,
                                   Qt::LayoutDirection direction);

}  // namespace kvl::qt
