#include "qt/MenuPlacement.h"

#include <QMenu>
#include <QScreen>
#include <QSignalBlocker>
#include <QStyle>
#include <QStyleOption>
#include <algorithm>

namespace kvl::qt {
namespace {

// Of the first entry, when nothing is scrolled.
int topOf(const QMenu& menu) {
  const auto* style = menu.style();
  QStyleOption option;
  option.initFrom(&menu);
  const auto metric = [&](QStyle::PixelMetric which) {
    return style->pixelMetric(which, &option, &menu);
  };
  const int tearOff = menu.isTearOffEnabled() ? metric(QStyle::PM_MenuTearoffHeight) : 0;
  return menu.contentsMargins().top() + metric(QStyle::PM_MenuPanelWidth) +
         metric(QStyle::PM_MenuVMargin) + tearOff;
}

bool growsLeftwards(const QMenu& menu) {
  const auto* above = qobject_cast<const QMenu*>(menu.parentWidget());
  if (!above || !above->isVisible()) return menu.isRightToLeft();
  return menu.geometry().center().x() < above->geometry().center().x();
}

}  // namespace

int scrollOffset(const QMenu& menu) {
  for (auto* action : menu.actions())
    if (const QRect place = menu.actionGeometry(action); !place.isNull())
      return std::min(0, place.top() - topOf(menu));
  return 0;
}

QRect fittingPlace(const QMenu& menu) {
  const QRect screen = menu.screen()->availableGeometry();
  QRect place(menu.pos(), menu.sizeHint().boundedTo(screen.size()));
  if (growsLeftwards(menu)) place.moveRight(menu.geometry().right());
  place.moveLeft(std::clamp(place.left(), screen.left(), screen.right() + 1 - place.width()));
  place.moveTop(std::clamp(place.top(), screen.top(), screen.bottom() + 1 - place.height()));
  return place;
}

void popUpAgain(QMenu& menu) {
  const QSignalBlocker silence(menu);
  auto* const active = menu.activeAction();
  menu.popup(menu.pos());
  if (active) menu.setActiveAction(active);
}

}  // namespace kvl::qt
