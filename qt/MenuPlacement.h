// Where a menu is while it is shown and its entries change.
#pragma once

#include <QRect>

class QMenu;

namespace kvl::qt {

// How far the first entry is from where it is when nothing is scrolled: 0, or less when it is
// above.
[[nodiscard]] int scrollOffset(const QMenu& menu);

// Where it began, with the size that it needs, on the screen. A sub-menu stays beside the menu
// above, at whichever side of it it is.
[[nodiscard]] QRect fittingPlace(const QMenu& menu);

// Only while they pop up menus find out whether they have to scroll. Nobody is told, since the menu
// is shown already.
void popUpAgain(QMenu& menu);

}  // namespace kvl::qt
