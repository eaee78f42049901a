// How large a menu view and its entries are, and where it is while it is shown and they change.
#include "qt/PlainText.h"
#include "qt/menu/MenuLayout.h"
#include "qt/menu/MenuStyle.h"
#include "qt/menu/MenuViewImplementation.h"

#include <local/qt/Conversions.h>

#include <QActionEvent>
#include <QApplication>
#include <QHelpEvent>
#include <QScreen>
#include <QSet>
#include <QSignalBlocker>
#include <QStyle>
#include <QStyleOption>
#include <QToolTip>
#include <algorithm>
#include <utility>

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

// How far the first entry is from where it is when nothing is scrolled: 0, or less when it is
// above.
int scrollOffset(const QMenu& menu) {
  for (auto* action : menu.actions())
    if (const QRect place = menu.actionGeometry(action); !place.isNull())
      return std::min(0, place.top() - topOf(menu));
  return 0;
}

// Where it began, with the size that it needs, on the screen. A sub-menu stays beside the menu
// above, at whichever side of it it is.
QRect fittingPlace(const QMenu& menu) {
  const QRect screen = menu.screen()->availableGeometry();
  QRect place(menu.pos(), menu.sizeHint().boundedTo(screen.size()));
  if (growsLeftwards(menu)) place.moveRight(menu.geometry().right());
  place.moveLeft(std::clamp(place.left(), screen.left(), screen.right() + 1 - place.width()));
  place.moveTop(std::clamp(place.top(), screen.top(), screen.bottom() + 1 - place.height()));
  return place;
}

// Only while they pop up menus find out whether they have to scroll. Nobody is told, since the menu
// is shown already.
void popUpAgain(QMenu& menu) {
  const QSignalBlocker silence(menu);
  auto* const active = menu.activeAction();
  menu.popup(menu.pos());
  if (active) menu.setActiveAction(active);
}

}  // namespace

// By now the menu is on the screen where it will be seen.
void MenuView::Implementation::prepareToShow() {
  const int width = view_.screen()->availableGeometry().width();
  const auto* style = QApplication::style();
  const bool sameStyle = std::exchange(style_, style) == style;
  if (std::exchange(screenWidth_, width) != width || !sameStyle) forgetMeasures();
  if (!sameStyle) forgetLayout();
  refresh();
}

// The places of the entries, from which the menu has its size, are other ones while it is scrolled.
QSize MenuView::Implementation::sizeHint() {
  if (refreshing_ && view_.isVisible()) return view_.size();
  hint_ = view_.QMenu::sizeHint();
  hint_.rheight() -= scrollOffset(view_);
  frame_ = frame();
  return hint_;
}

// A menu measures all entries once more when it gets its size, which changes nothing of them. What
// has changed otherwise makes it measure anyway.
bool MenuView::Implementation::isLaidOut() const {
  QStyleHintReturnMask mask;
  QStyleOption option;
  option.initFrom(&view_);
  return hasOwnStyle() && frame_ == frame() &&
         !view_.style()->styleHint(QStyle::SH_Menu_Mask, &option, &view_, &mask);
}

// A style sheet, or a style of the host's, may measure and paint entries by itself.
bool MenuView::Implementation::hasOwnStyle() const {
  return view_.style() == MenuStyle::shared();
}

// A menu measures the text of each action before it asks the style, which takes the size of an
// entry from elsewhere.
void MenuView::Implementation::setCurrent(QStyleOptionMenuItem& option, const QAction* action) {
  current_ = ownAction(action);
  const bool isEntry = current_ && current_->entry().kind != MenuItem::Kind::separator;
  if (isEntry && hasOwnStyle() && !view_.testAttribute(Qt::WA_WState_InPaintEvent))
    option.fontMetrics = roughMetrics();
}

// As quick as any.
const QFontMetrics& MenuView::Implementation::roughMetrics() {
  if (!rough_) {
    QFont font = view_.font();
    font.setStyleStrategy(QFont::PreferNoShaping);
    rough_.emplace(font);
  }
  return *rough_;
}

// What a menu does when it hears that an action is another: it will measure all of them anew, and
// paint what is on the screen.
void MenuView::Implementation::forgetLayout() {
  columns_.reset();
  QActionEvent changed(QEvent::ActionChanged, view_.menuAction());
  view_.actionEvent(&changed);
}

// While it is shown, a menu stays where it began, on the screen, and where it was scrolled to.
void MenuView::Implementation::fitSize() {
  const int screen = view_.screen()->availableGeometry().height();
  const int offset = scrollOffset(view_);
  const int seen = view_.height();
  const int before = hint_.height();
  const int now = view_.sizeHint().height();
  const bool hadMore = before + offset > seen;
  const bool hasMore = now + offset > seen;
  const bool leavesGap = offset < 0 && now < before && now + offset < seen;
  if ((now > screen) != (before > screen) || (now > screen && (hadMore != hasMore || leavesGap)))
    popUpAgain(view_);
  view_.setGeometry(fittingPlace(view_));
}

MenuColumns MenuView::Implementation::columns() const {
  if (!columns_) {
    columns_ = measuredColumns();
    if (*columns_ != std::exchange(measuredWith_, *columns_)) ++layout_;
  }
  return *columns_;
}

QSize& MenuView::Implementation::currentSize() const {
  static_cast<void>(columns());
  auto& [size, layout] = current_->measured();
  if (std::exchange(layout, layout_) != layout_) size = {};
  return size;
}

void MenuView::Implementation::forgetMeasures() {
  columns_.reset();
  ++layout_;
}

MenuColumns MenuView::Implementation::measuredColumns() const {
  MenuColumns columns;
  const QFontMetrics metrics(view_.font());
  QSet<QString> shortcuts;  // many entries may have the same
  for (const auto* action : actions_) {
    const auto& entry = action->entry();
    marked_ |= entry.state != MenuItem::State::off;
    columns.icons |= entry.expectsIcon;
    if (!entry.shortcut.isEmpty()) shortcuts.insert(entry.shortcut);
  }
  for (const auto& shortcut : shortcuts)
    columns.shortcutWidth = std::max(columns.shortcutWidth, metrics.horizontalAdvance(shortcut));
  columns.marks = marked_;
  return columns;
}

bool MenuView::Implementation::showWholeText(const QHelpEvent& place) const {
  auto* const action = view_.actionAt(place.pos());
  const auto* shown = entry(action);
  if (!shown || !shown->toolTip.isEmpty()) return false;
  const auto room = view_.actionGeometry(action).width() - columns().shortcutWidth;
  const auto whole = sizeOf(*shown, columns(), MenuMetrics(view_.font()), QWIDGETSIZE_MAX);
  if (whole.width() <= room) return false;
  const auto lines = QStringList{isolated(shown->title), isolated(shown->subtitle)};
  QToolTip::showText(place.globalPos(), wrapped(lines.join(QLatin1Char('\n')).trimmed()), &view_);
  return true;
}

}  // namespace kvl::qt
