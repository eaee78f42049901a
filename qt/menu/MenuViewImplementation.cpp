// How a menu view follows its menu: which actions it has, and what they show.
#include "qt/menu/MenuViewImplementation.h"

#include "platform/interface/binding/MenuDifference.h"
#include "qt/menu/MenuAccessibility.h"

#include <QCoreApplication>
#include <QScopedValueRollback>
#include <QStyle>
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

void MenuView::Implementation::refreshAll() {
  for (auto* action : actions_) itemChanged(*action);
  refresh();
}

// Without the menu a list is empty.
bool MenuView::Implementation::takeItems() {
  const auto items = menu_ ? menu_->items() : std::vector<std::shared_ptr<MenuItem>>();
  std::vector<const MenuItem*> before;
  before.reserve(actions_.size());
  for (const auto* action : actions_) before.push_back(action->item().get());
  const auto difference = interface::menuDifference(before, items);

  const auto previous = std::exchange(actions_, {});
  for (const auto row : difference.gone) retire(*previous[row]);
  Actions next;
  next.reserve(items.size());
  for (std::size_t i = 0; i < items.size(); ++i) {
    const auto row = difference.rows[i].previous;
    next.push_back(row ? previous[*row] : newAction(items[i]));
  }
  actions_ = next;
  place(next, difference);
  return true;
}

void MenuView::Implementation::itemChanged(MenuItemAction& action) {
  {
    const MutexLock lock(mutex_);
    changed_.push_back(&action);
  }
  relay_();
}

bool MenuView::Implementation::takeChangedItems() {
  Actions changed;
  {
    const MutexLock lock(mutex_);
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
  if (view_.activeAction() == &action && !mayBeActive(action)) view_.setActiveAction(nullptr);
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
void MenuView::Implementation::place(const Actions& actions,
                                     const interface::MenuDifference& difference) {
  auto* const active = view_.activeAction();
  QAction* next = firstOfHost();
  std::vector<QAction*> behind(actions.size());
  for (std::size_t i = actions.size(); i-- > 0;) {
    behind[i] = next;
    if (difference.rows[i].previous && !difference.rows[i].moved && shows(*actions[i]))
      next = actions[i];
  }
  for (std::size_t i = 0; i < actions.size(); ++i) {
    const auto& row = difference.rows[i];
    if (row.previous && !(row.moved && shows(*actions[i]))) continue;
    if (row.moved) view_.removeAction(actions[i]);
    view_.insertAction(behind[i], actions[i]);
    if (!difference.rows[i].previous) announceRow(view_, *actions[i], QAccessible::ObjectCreated);
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

QImage MenuView::Implementation::icon(const MenuEntry& entry) const {
  return icons_.picture(entry.image, view_.devicePixelRatio());
}

}  // namespace kvl::qt
