// The keys of menu views: which action has them when several do.

#include "qt/MenuViewImplementation.h"

#include <QMenuBar>
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
