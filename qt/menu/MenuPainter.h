// How the entries of menu views are painted, and in which colours.
#pragma once

#include "qt/menu/MenuContents.h"
#include "qt/menu/MenuLayout.h"

#include <QCache>
#include <QColor>
#include <QImage>
#include <QPair>
#include <QStyleOption>
#include <optional>

class QPainter;
class QStyle;
class QWidget;

namespace kvl::qt {

struct MenuColours {
  QColor background;  // what the style paints under the entry
  QColor text;
  QColor secondary;  // of second lines, section headers and shortcuts
  QColor badge;      // under the text of a badge, which is in the text's colour
};

// The colours of an entry in the state that the option tells: enabled or not, highlighted or not.
// The palette's colours where the background leaves them a contrast of 2:1, else others that can be
// read.
[[nodiscard]] MenuColours coloursOf(const QStyleOptionMenuItem& option, const QColor& background);

// The colour that `style` paints under such an entry, whatever its idea of a highlight is. Paints
// it to see: keep the answer.
[[nodiscard]] QColor backgroundOf(const QStyleOptionMenuItem& option, const QStyle& style,
                                  const QWidget* widget);

// Paints entries in terms of a style. Keeps what takes long: fonts, the colours of the style's
// backgrounds and icons in colours of the text. GUI thread.
class MenuPainter {
 public:
  MenuPainter();

  // The metrics of menus in this font. Good until the next call.
  [[nodiscard]] const MenuMetrics& metrics(const QFont& font);

  // Paints `entry` of the menu that `option` was filled in for. The style paints highlight and
  // arrow.
  void paint(const MenuEntry& entry, const MenuContents& contents,
             const QStyleOptionMenuItem& option, const QStyle& style, QPainter& painter,
             const QWidget* widget);

  // Forgets what it keeps of the style, which is another one now.
  void styleChanged() { backgrounds_.clear(); }

 private:
  MenuColours colours(const QStyleOptionMenuItem& row, const QStyle& style, const QWidget* widget);
  QImage tinted(const QImage& shape, const QColor& colour);
  void paintIcon(QPainter& painter, const QRect& rect, const QImage& picture, bool isTemplate,
                 const QColor& colour, bool enabled);

  std::optional<MenuMetrics> metrics_;
  const QStyle* style_ = nullptr;                   // whose backgrounds those are
  QCache<QPair<qint64, int>, QColor> backgrounds_;  // by palette and state
  QCache<QPair<qint64, QRgb>, QImage> tinted_;      // by picture and colour
};

}  // namespace kvl::qt
