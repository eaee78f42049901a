// What the user chooses in menu views: how the choice is sent, and which action has keys that
// several have.
#include "qt/menu/MenuViewImplementation.h"

#include <QMenuBar>
#include <QPointer>
#include <QThread>
#include <utility>
#include <vector>

namespace kvl::qt {
namespace {

// The views in the same menu bar, in its order.
std::vector<const MenuView*> viewsBeside(const MenuView& view) {
  for (auto* shownBy : view.menuAction()->associatedObjects()) {
    const auto* bar = qobject_cast<const QMenuBar*>(shownBy);
    if (!bar) continue;
    std::vector<const MenuView*> views;
    for (const auto* action : bar->actions())
      if (const auto* beside = qobject_cast<const MenuView*>(action->menu()); beside)
        views.push_back(beside);
    return views;
  }
  return {&view};
}

}  // namespace

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

const MenuView* MenuView::Implementation::viewAbove(const MenuView& view) {
  return qobject_cast<const MenuView*>(view.parentWidget());
}

void MenuView::Implementation::chooseFirstWith(const QKeySequence& keys) {
  const auto* top = &view_;
  while (viewAbove(*top)) top = viewAbove(*top);
  for (const auto* view : viewsBeside(*top))
    if (auto* action = view->implementation_->firstWith(keys)) return action->trigger();
  if (auto* action = firstWith(keys)) action->trigger();
}

// The first action with these keys that can be chosen, in the order in which menus show them.
QAction* MenuView::Implementation::firstWith(const QKeySequence& keys) const {
  for (auto* action : actions_) {
    if (!action->isEnabled()) continue;
    if (action->shortcut() == keys) return action;
    const auto* subview = qobject_cast<MenuView*>(action->menu());
    auto* below = subview ? subview->implementation_->firstWith(keys) : nullptr;
    if (below) return below;
  }
  return nullptr;
}

}  // namespace kvl::qt
