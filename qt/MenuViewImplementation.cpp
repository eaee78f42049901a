#include "qt/MenuViewImplementation.h"

#include "qt/MenuAccessibility.h"
#include "qt/MenuLayout.h"
#include "qt/MenuPlacement.h"
#include "qt/PlainText.h"

#include <QActionEvent>
#include <QApplication>
#include <QHelpEvent>
#include <QPointer>
#include <QScopedValueRollback>
#include <QScreen>
#include <QStyle>
#include <QThread>
#include <QToolTip>
#include <algorithm>
#include <utility>

namespace kvl::qt {
namespace {

// Views of sub-menus are made at once, so that their keys work before anybody has opened them.
// What is nested deeper, or more than these, waits until its item is highlighted.
constexpr int kDepth = 16;
constexpr int kMostViews = 1000;

}  // namespace

MenuView::Implementation::Implementation(MenuView& view)
    : view_(view),
      owner_(*new QObject),
      depth_(viewAbove(view) ? viewAbove(view)->implementation_->depth_ + 1 : 0),
      views_(viewAbove(view) ? viewAbove(view)->implementation_->views_ : std::make_shared<int>(0)),
      relay_(view),
      icons_([this](const auto& image) { showIcon(image); }) {
  ++*views_;
  installMenuAccessibility();
  connect(&view_, &QMenu::aboutToShow, &view_, [this] { prepareToShow(); });
  connect(&view_, &QMenu::aboutToHide, &view_, [this] { deleteRetired(); });
  connect(&view_, &QMenu::hovered, &view_, [this](QAction* action) {
    const auto* own = ownAction(action);
    if (own && own->submenu() && !own->menu()) makeSubview(static_cast<MenuItemAction&>(*action));
  });
}

MenuView::Implementation::~Implementation() {
  observation_.end();
  for (auto* action : actions_) leave(*action);
  disconnect(&view_, nullptr, &view_, nullptr);
  --*views_;
}

void MenuView::Implementation::begin() {
  owner_.setParent(&view_);
}

void MenuView::Implementation::setMenu(std::shared_ptr<Menu> menu) {
  if (menu == menu_) return;
  observation_.end();
  menu_ = std::move(menu);
  if (menu_)
    observation_ = menu_->observe([this] {
      itemsChanged_ = true;
      relay_();
    });
  itemsChanged_ = true;
  marked_ = false;
  refresh();
}

bool MenuView::Implementation::take(const QEvent& event) {
  if (!relay_.take(event)) return false;
  refresh();
  return true;
}

void MenuView::Implementation::refresh() {
  if (refreshing_) {
    again_ = true;
    return;
  }
  if (!QCoreApplication::instance()) return;
  refreshing_ = true;
  const bool listed = itemsChanged_.exchange(false) && takeItems();
  const bool changed = takeChangedItems() || listed;
  if (changed) forgetLayout();
  refreshing_ = false;
  refreshAgain();
  if (changed && view_.isVisible()) fitSize();
}

// Not before the event loop runs again: somebody may be running one in the middle of a refresh.
void MenuView::Implementation::refreshAgain() {
  if (!refreshing_ && std::exchange(again_, false)) relay_();
}

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
  return hint_;
}

void MenuView::Implementation::refreshAll() {
  for (auto* action : actions_) itemChanged(*action);
  refresh();
}

// Without the menu a list is empty.
bool MenuView::Implementation::takeItems() {
  const auto items = menu_ ? menu_->items() : MenuItems();
  std::vector<const MenuItem*> before;
  before.reserve(actions_.size());
  for (const auto* action : actions_) before.push_back(action->item().get());
  const auto rows = matchedRows(before, items);

  const auto previous = std::exchange(actions_, {});
  for (const auto row : rows.gone) retire(*previous[row]);
  Actions next;
  next.reserve(items.size());
  for (std::size_t i = 0; i < items.size(); ++i)
    next.push_back(rows.rows[i].previous ? previous[*rows.rows[i].previous] : newAction(items[i]));
  actions_ = next;
  place(next, rows);
  return true;
}

void MenuView::Implementation::itemChanged(MenuItemAction& action) {
  {
    const std::lock_guard lock(mutex_);
    changed_.push_back(&action);
  }
  relay_();
}

bool MenuView::Implementation::takeChangedItems() {
  Actions changed;
  {
    const std::lock_guard lock(mutex_);
    changed.swap(changed_);
  }
  std::erase_if(changed, [&](const auto* action) { return !ownAction(action); });
  return std::ranges::count_if(changed, [&](auto* action) { return update(*action); }) > 0;
}

bool MenuView::Implementation::update(MenuItemAction& action) {
  const auto submenu = action.submenu();
  const MenuEntry before = action.entry();
  if (!action.update()) return false;
  if (action.submenu() != submenu) followSubmenu(action);
  if (!action.isEnabled()) stopUsing(action);
  announceChange(view_, action, before, action.entry());
  return true;
}

// Nobody highlights an action that is not enabled, nor opens what is below.
void MenuView::Implementation::stopUsing(MenuItemAction& action) {
  if (auto* subview = action.menu(); subview && subview->isVisible()) subview->close();
  const bool mayBeActive =
      view_.style()->styleHint(QStyle::SH_Menu_AllowActiveAndDisabled, nullptr, &view_) != 0;
  if (view_.activeAction() == &action && !mayBeActive) view_.setActiveAction(nullptr);
}

// The menu itself asks for pictures as it paints.
void MenuView::Implementation::showIcon(const std::shared_ptr<Image>& image) {
  {
    const QScopedValueRollback<bool> frozen(refreshing_, true);
    for (auto* action : actions_)
      if (action->entry().image == image &&
          (view_.platformMenu() || action->associatedObjects().size() > 1))
        action->showIcon();
  }
  refreshAgain();
  view_.update();
}

MenuItemAction* MenuView::Implementation::newAction(const std::shared_ptr<MenuItem>& item) {
  auto* action = new MenuItemAction(item, owner_);
  action->follow([this, action] { itemChanged(*action); });
  // A menu ends all connections from an action to itself when it removes the action, if only to put
  // it elsewhere.
  connect(action, &QAction::triggered, &owner_, [this, action] { choose(*action); });
  connect(action, &MenuItemAction::pressedAmong, &owner_,
          [this, action] { chooseFirstWith(action->entry().keys); });
  action->update();
  followSubmenu(*action);
  return action;
}

// Nothing is heard of the action from now on.
void MenuView::Implementation::leave(MenuItemAction& action) {
  action.stopFollowing();
  action.disconnect(&owner_);
}

// Each action before those that stay behind it, else before those of the host. What the host has
// removed stays away.
void MenuView::Implementation::place(const Actions& actions, const MenuRows& rows) {
  auto* const active = view_.activeAction();
  QAction* next = firstOfHost();
  std::vector<QAction*> behind(actions.size());
  for (std::size_t i = actions.size(); i-- > 0;) {
    behind[i] = next;
    if (rows.rows[i].previous && !rows.rows[i].moved && shows(*actions[i])) next = actions[i];
  }
  for (std::size_t i = 0; i < actions.size(); ++i) {
    const auto& row = rows.rows[i];
    if (row.previous && !(row.moved && shows(*actions[i]))) continue;
    if (row.moved) view_.removeAction(actions[i]);
    view_.insertAction(behind[i], actions[i]);
    if (!rows.rows[i].previous) announceRow(view_, *actions[i], QAccessible::ObjectCreated);
  }
  const bool wasMoved = active && !view_.activeAction() && ownAction(active);
  if (wasMoved) view_.setActiveAction(active);
}

bool MenuView::Implementation::shows(const QAction& action) const {
  return action.associatedObjects().contains(&view_);
}

QAction* MenuView::Implementation::firstOfHost() const {
  const auto actions = view_.actions();
  QAction* first = nullptr;
  for (auto it = actions.crbegin(); it != actions.crend() && !ownAction(*it); ++it) first = *it;
  return first;
}

// As long as the menu is shown it may come back to an action that it has shown before.
void MenuView::Implementation::retire(MenuItemAction& action) {
  announceRow(view_, action, QAccessible::ObjectDestroyed);
  leave(action);
  if (&action == current_) current_ = nullptr;
  dropSubview(action);
  view_.removeAction(&action);
  action.setEnabled(false);
  retired_.push_back(&action);
  if (!view_.isVisible()) deleteRetired();
}

void MenuView::Implementation::deleteRetired() {
  for (auto* action : std::exchange(retired_, {})) action->deleteLater();
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

bool MenuView::Implementation::makesSubviewsAtOnce() const {
  return depth_ < kDepth && *views_ < kMostViews;
}

void MenuView::Implementation::followSubmenu(MenuItemAction& action) {
  if (auto* subview = qobject_cast<MenuView*>(action.menu()); subview && action.submenu()) {
    subview->setMenu(action.submenu());
  } else {
    dropSubview(action);
    if (action.submenu() && makesSubviewsAtOnce()) makeSubview(action);
  }
}

void MenuView::Implementation::makeSubview(MenuItemAction& action) {
  auto* subview = new MenuView(action.submenu(), &view_);
  connect(subview, &MenuView::itemChosen, &view_, &MenuView::itemChosen);
  action.setMenu(subview);
}

void MenuView::Implementation::dropSubview(MenuItemAction& action) {
  auto* subview = action.menu();
  if (!subview) return;
  subview->close();
  action.setMenu(static_cast<QMenu*>(nullptr));
  subview->deleteLater();
}

// Others may be handled meanwhile, in an event loop that somebody runs. Each loop sends what was
// chosen in it.
bool MenuView::Implementation::handle(QEvent& event) {
  const int level = QThread::currentThread()->loopLevel();
  if (handling_ == level) return view_.QMenu::event(&event);
  const QPointer<MenuView> view(&view_);
  auto waiting = std::exchange(chosen_, {});
  const auto outer = std::exchange(handling_, level);
  const bool handled = view_.QMenu::event(&event);
  if (!view) return handled;
  handling_ = outer;
  send(std::exchange(chosen_, std::move(waiting)));
  return handled;
}

// A menu goes on to use itself after it has triggered an action, so the item, whose action may
// destroy it, waits for the end of the event.
void MenuView::Implementation::choose(MenuItemAction& action) {
  action.restoreMark();
  if (handling_ == QThread::currentThread()->loopLevel())
    chosen_.push_back(action.item());
  else
    send({action.item()});
}

void MenuView::Implementation::send(const Chosen& items) {
  const QPointer<MenuView> view(&view_);
  for (const auto& item : items) {
    if (!item->isEnabled()) continue;
    item->activate();
    if (!view) return;
    Q_EMIT view->itemChosen(item);
    if (!view) return;
  }
}

const MenuItemAction* MenuView::Implementation::ownAction(const QAction* action) const {
  const auto* own = qobject_cast<const MenuItemAction*>(action);
  return own && own->view() == &view_ && own->isFollowing() ? own : nullptr;
}

MenuItemAction* MenuView::Implementation::actionOf(const MenuItem& item) const {
  const auto found = std::ranges::find_if(
      actions_, [&](const auto* action) { return action->item().get() == &item; });
  return found != actions_.end() ? *found : nullptr;
}

const MenuEntry* MenuView::Implementation::entry(const QAction* action) const {
  const auto* own = ownAction(action);
  return own ? &own->entry() : nullptr;
}

const MenuEntry* MenuView::Implementation::current() const {
  return current_ ? &current_->entry() : nullptr;
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
  const MenuMetrics metrics(view_.font());
  for (const auto* action : actions_) {
    const auto& entry = action->entry();
    marked_ |= entry.state != MenuItem::State::off;
    columns.icons |= entry.expectsIcon;
    columns.shortcutWidth =
        std::max(columns.shortcutWidth, metrics.text.horizontalAdvance(entry.shortcut));
  }
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
  const auto lines = QStringList{shown->title, shown->subtitle};
  QToolTip::showText(place.globalPos(), wrapped(lines.join(QLatin1Char('\n')).trimmed()), &view_);
  return true;
}

QImage MenuView::Implementation::icon(const MenuEntry& entry) const {
  return icons_.picture(entry.image, view_.devicePixelRatio());
}

}  // namespace kvl::qt
