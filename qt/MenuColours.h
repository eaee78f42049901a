// What colours a menu's entries are painted in.
#pragma once

#include <QColor>

class QStyle;
class QStyleOptionMenuItem;
class QWidget;

namespace kvl::qt {

struct MenuColours {
  QColor background;  // what the style paints under the entry
  QColor text;
  QColor secondary;  // of second lines, section headers and shortcuts
  QColor badge;      // under the text of a badge, which is in the text's colour
};

// The colours of an entry in the state that the option tells: enabled or not, highlighted or not.
// The palette's colours where they can be read on the background, else others that can.
[[nodiscard]] MenuColours coloursOf(const QStyleOptionMenuItem& option, const QColor& background);

// The colour that `style` paints under such an entry, whatever its idea of a highlight is. Paints
// it to see: keep the answer.
[[nodiscard]] QColor backgroundOf(const QStyleOptionMenuItem& option, const QStyle& style,
                                  const QWidget* widget);

}  // namespace kvl::qt
