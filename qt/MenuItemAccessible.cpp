#include "qt/MenuItemAccessible.h"

#include "qt/MenuAccessibility.h"
#include "qt/MenuContents.h"

#include <QApplication>
#include <QStyle>

namespace kvl::qt {
namespace {

QString hostText(const QAction& action, QAccessible::Text kind) {
  QString name = withoutMnemonic(action.text());
  switch (kind) {
    case QAccessible::Name:
      return name;
    case QAccessible::Description:  // unless it is what Qt makes of the text
      return action.toolTip() == name ? QString() : action.toolTip();
    case QAccessible::Accelerator:
      return action.shortcut().toString(QKeySequence::NativeText);
    default:
      return {};
  }
}

QString entryText(const MenuEntry& entry, QAccessible::Text kind) {
  switch (kind) {
    case QAccessible::Name:
      return spokenName(entry);
    case QAccessible::Description:
      return entry.toolTip;
    case QAccessible::Accelerator:
      return entry.shortcut;
    default:
      return {};
  }
}

QAccessible::State hostState(const QAction& action) {
  QAccessible::State state;
  state.disabled = !action.isEnabled() || (action.isSeparator() && action.text().isEmpty());
  state.checkable = action.isCheckable();
  state.checked = action.isChecked();
  state.hasPopup = action.menu() != nullptr;
  return state;
}

QAccessible::Role roleOf(MenuItem::Kind kind) {
  switch (kind) {
    case MenuItem::Kind::separator:
      return QAccessible::Separator;
    case MenuItem::Kind::sectionHeader:
      return QAccessible::StaticText;
    case MenuItem::Kind::item:
      break;
  }
  return QAccessible::MenuItem;
}

// As the mouse does it: the menus are closed first. Whatever the action does, nothing of the menu
// is used afterwards.
void press(QAction& action) {
  const QPointer<QAction> chosen(&action);
  while (auto* const menu = qobject_cast<QMenu*>(QApplication::activePopupWidget())) {
    menu->hide();
    if (QApplication::activePopupWidget() == menu) break;
  }
  if (chosen) chosen->trigger();
}

}  // namespace

QString withoutMnemonic(const QString& text) {
  QString plain;
  plain.reserve(text.size());
  for (qsizetype i = 0; i < text.size(); ++i) {
    if (text[i] == QLatin1Char('&')) ++i;
    if (i < text.size()) plain.append(text[i]);
  }
  return plain;
}

QAccessible::State stateOf(const MenuEntry& entry) {
  QAccessible::State state;
  state.disabled = !entry.enabled && entry.kind != MenuItem::Kind::sectionHeader;
  state.checkable = entry.state != MenuItem::State::off;
  state.checked = entry.state == MenuItem::State::on;
  state.checkStateMixed = entry.state == MenuItem::State::mixed;
  state.hasPopup = entry.hasSubmenu;
  return state;
}

bool MenuItemAccessible::isValid() const {
  return menu_ && action_ && menu_->actions().contains(action_);
}

QWindow* MenuItemAccessible::window() const {
  return menu_ ? menu_->windowHandle() : nullptr;
}

QAccessibleInterface* MenuItemAccessible::parent() const {
  return menu_ ? QAccessible::queryAccessibleInterface(menu_) : nullptr;
}

int MenuItemAccessible::childCount() const {
  return action_ && action_->menu() ? 1 : 0;
}

QAccessibleInterface* MenuItemAccessible::child(int index) const {
  if (index != 0 || childCount() == 0) return nullptr;
  return QAccessible::queryAccessibleInterface(action_->menu());
}

int MenuItemAccessible::indexOfChild(const QAccessibleInterface* child) const {
  return child && childCount() == 1 && child->object() == action_->menu() ? 0 : -1;
}

QString MenuItemAccessible::text(QAccessible::Text kind) const {
  if (!action_) return {};
  const MenuEntry* ours = entry();
  return ours ? entryText(*ours, kind) : hostText(*action_, kind);
}

QRect MenuItemAccessible::rect() const {
  if (!isValid()) return {};
  const QRect place = menu_->actionGeometry(action_);
  return place.isEmpty() ? QRect() : QRect(menu_->mapToGlobal(place.topLeft()), place.size());
}

QAccessible::Role MenuItemAccessible::role() const {
  if (const MenuEntry* ours = entry()) return roleOf(ours->kind);
  if (!action_ || !action_->isSeparator()) return QAccessible::MenuItem;
  return action_->text().isEmpty() ? QAccessible::Separator : QAccessible::StaticText;
}

QAccessible::State MenuItemAccessible::state() const {
  QAccessible::State state;
  state.invalid = !isValid();
  if (state.invalid) return state;
  const MenuEntry* ours = entry();
  state = ours ? stateOf(*ours) : hostState(*action_);
  state.invisible = !action_->isVisible() || !menu_->isVisible();
  state.focusable = state.selectable = role() == QAccessible::MenuItem && mayBeActive();
  state.focused = state.selected = menu_->isVisible() && menu_->activeAction() == action_;
  return state;
}

void* MenuItemAccessible::interface_cast(QAccessible::InterfaceType type) {
  if (type != QAccessible::ActionInterface) return nullptr;
  return static_cast<QAccessibleActionInterface*>(this);
}

QStringList MenuItemAccessible::actionNames() const {
  if (!isValid() || role() != QAccessible::MenuItem || !action_->isEnabled()) return {};
  return {opensMenu() ? showMenuAction() : pressAction()};
}

void MenuItemAccessible::doAction(const QString& name) {
  if (!actionNames().contains(name)) return;
  if (name == showMenuAction())
    menu_->setActiveAction(action_);
  else
    press(*action_);
}

QStringList MenuItemAccessible::keyBindingsForAction(const QString& name) const {
  const QString keys = text(QAccessible::Accelerator);
  if (keys.isEmpty() || !actionNames().contains(name)) return {};
  return {keys};
}

// The view of a sub-menu may not have been made yet: that happens when its row becomes active.
bool MenuItemAccessible::opensMenu() const {
  const MenuEntry* ours = entry();
  return ours ? ours->hasSubmenu : action_->menu() != nullptr;
}

bool MenuItemAccessible::mayBeActive() const {
  return action_->isEnabled() ||
         menu_->style()->styleHint(QStyle::SH_Menu_AllowActiveAndDisabled, nullptr, menu_) != 0;
}

const MenuEntry* MenuItemAccessible::entry() const {
  const MenuContents* contents = MenuContents::of(menu_);
  return contents ? contents->entry(action_) : nullptr;
}

}  // namespace kvl::qt
