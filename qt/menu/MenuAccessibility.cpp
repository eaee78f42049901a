#include "qt/menu/MenuAccessibility.h"

#include "qt/PlainText.h"
#include "qt/menu/MenuContents.h"

#include <local/qt/Conversions.h>

#include <QAccessible>
#include <QAccessibleWidget>
#include <QAction>
#include <QApplication>
#include <QHash>
#include <QMenu>
#include <QMenuBar>
#include <QPointer>
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

// What changes between two of an entry's states, and what the state is.
QAccessible::State stateOf(const MenuEntry& entry) {
  QAccessible::State state;
  state.disabled = !entry.enabled && entry.kind != MenuItem::Kind::sectionHeader;
  state.checkable = entry.state != MenuItem::State::off;
  state.checked = entry.state == MenuItem::State::on;
  state.checkStateMixed = entry.state == MenuItem::State::mixed;
  state.hasPopup = entry.hasSubmenu;
  return state;
}

// One row of a menu view: an entry of ours, or an action of the host's. Not valid once the action
// has left the menu or one of them is gone. GUI thread.
class MenuItemAccessible final : public QAccessibleInterface, public QAccessibleActionInterface {
 public:
  MenuItemAccessible(QMenu& menu, QAction& action) : menu_(&menu), action_(&action) {}

  [[nodiscard]] bool isValid() const override;
  [[nodiscard]] QObject* object() const override { return nullptr; }
  [[nodiscard]] QWindow* window() const override;

  [[nodiscard]] QAccessibleInterface* parent() const override;
  [[nodiscard]] int childCount() const override;
  [[nodiscard]] QAccessibleInterface* child(int index) const override;
  [[nodiscard]] int indexOfChild(const QAccessibleInterface* child) const override;
  [[nodiscard]] QAccessibleInterface* childAt(int, int) const override { return nullptr; }

  [[nodiscard]] QString text(QAccessible::Text kind) const override;
  void setText(QAccessible::Text, const QString&) override {}
  [[nodiscard]] QRect rect() const override;
  [[nodiscard]] QAccessible::Role role() const override;
  [[nodiscard]] QAccessible::State state() const override;

  void* interface_cast(QAccessible::InterfaceType type) override;
  [[nodiscard]] QStringList actionNames() const override;
  void doAction(const QString& name) override;
  [[nodiscard]] QStringList keyBindingsForAction(const QString& name) const override;

  [[nodiscard]] const QAction* action() const { return action_; }

 private:
  [[nodiscard]] bool opensMenu() const;
  [[nodiscard]] bool mayBeActive() const;
  // Null for one of the host's.
  [[nodiscard]] const MenuEntry* entry() const;

  const QPointer<QMenu> menu_;
  const QPointer<QAction> action_;
};

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

// A menu view. Its rows are numbered as its actions are, which is how `QMenu` itself speaks of
// them.
class MenuAccessible final : public QAccessibleWidget {
 public:
  explicit MenuAccessible(QMenu& menu) : QAccessibleWidget(&menu, QAccessible::PopupMenu) {}
  ~MenuAccessible() override;
  MenuAccessible(const MenuAccessible&) = delete;
  MenuAccessible& operator=(const MenuAccessible&) = delete;

  [[nodiscard]] QAccessibleInterface* parent() const override;
  [[nodiscard]] int childCount() const override;
  [[nodiscard]] QAccessibleInterface* child(int index) const override;
  [[nodiscard]] int indexOfChild(const QAccessibleInterface* child) const override;
  [[nodiscard]] QAccessibleInterface* childAt(int x, int y) const override;
  [[nodiscard]] QAccessibleInterface* focusChild() const override;
  [[nodiscard]] QString text(QAccessible::Text kind) const override;

 private:
  [[nodiscard]] QMenu* menu() const { return qobject_cast<QMenu*>(object()); }
  [[nodiscard]] QAccessibleInterface* row(QAction* action) const;

  // Of those rows that somebody has asked for. Each goes away with its action.
  mutable QHash<const QObject*, QAccessible::Id> rows_;
  const std::unique_ptr<QObject> connections_ = std::make_unique<QObject>();
};

MenuAccessible::~MenuAccessible() {
  for (const QAccessible::Id id : std::as_const(rows_)) QAccessible::deleteAccessibleInterface(id);
}

// Where the menu hangs: a row of another menu, a title of a menu bar, or a button.
QAccessibleInterface* MenuAccessible::parent() const {
  QAction* const action = menu() ? menu()->menuAction() : nullptr;
  if (!action) return QAccessibleWidget::parent();
  for (QObject* holder : action->associatedObjects()) {
    auto* const above = QAccessible::queryAccessibleInterface(holder);
    const auto* const widget = qobject_cast<QWidget*>(holder);
    if (!above || !widget) continue;
    const bool hasRows = qobject_cast<QMenu*>(holder) || qobject_cast<QMenuBar*>(holder);
    return hasRows ? above->child(static_cast<int>(widget->actions().indexOf(action))) : above;
  }
  return QAccessibleWidget::parent();
}

int MenuAccessible::childCount() const {
  return menu() ? static_cast<int>(menu()->actions().size()) : 0;
}

QAccessibleInterface* MenuAccessible::child(int index) const {
  return index >= 0 && index < childCount() ? row(menu()->actions().at(index)) : nullptr;
}

int MenuAccessible::indexOfChild(const QAccessibleInterface* child) const {
  const auto* const item = dynamic_cast<const MenuItemAccessible*>(child);
  if (!item || !item->action() || !menu()) return -1;
  return static_cast<int>(menu()->actions().indexOf(item->action()));
}

QAccessibleInterface* MenuAccessible::childAt(int x, int y) const {
  if (!menu()) return nullptr;
  QAction* const action = menu()->actionAt(menu()->mapFromGlobal(QPoint(x, y)));
  return action ? row(action) : nullptr;
}

QAccessibleInterface* MenuAccessible::focusChild() const {
  QAction* const action = menu() ? menu()->activeAction() : nullptr;
  return action ? row(action) : nullptr;
}

QString MenuAccessible::text(QAccessible::Text kind) const {
  QString text = QAccessibleWidget::text(kind);
  if (kind != QAccessible::Name || !text.isEmpty() || !menu()) return text;
  return withoutMnemonic(menu()->title());
}

QAccessibleInterface* MenuAccessible::row(QAction* action) const {
  if (auto* const known = QAccessible::accessibleInterface(rows_.value(action))) return known;
  auto* const item = new MenuItemAccessible(*menu(), *action);
  rows_.insert(action, QAccessible::registerAccessibleInterface(item));
  QObject::connect(action, &QObject::destroyed, connections_.get(), [this](const QObject* gone) {
    QAccessible::deleteAccessibleInterface(rows_.take(gone));
  });
  return item;
}

QAccessibleInterface* menuInterface(const QString&, QObject* object) {
  auto* const menu = qobject_cast<QMenu*>(object);
  return menu && MenuContents::of(menu) ? new MenuAccessible(*menu) : nullptr;
}

// What differs, as state change events have it.
QAccessible::State difference(const MenuEntry& before, const MenuEntry& after) {
  const QAccessible::State one = stateOf(before);
  const QAccessible::State other = stateOf(after);
  QAccessible::State changed;
  changed.disabled = one.disabled != other.disabled;
  changed.checkable = one.checkable != other.checkable;
  changed.checked = one.checked != other.checked;
  changed.checkStateMixed = one.checkStateMixed != other.checkStateMixed;
  changed.hasPopup = one.hasPopup != other.hasPopup;
  return changed;
}

}  // namespace

void installMenuAccessibility() {
  static QPointer<QObject> installed;
  if (installed) return;
  installed = new QObject(qApp);
  QAccessible::installFactory(&menuInterface);
}

QString spokenName(const MenuEntry& entry) {
  QStringList words{isolated(entry.title), isolated(entry.subtitle), isolated(entry.badge)};
  words.removeAll(QString());
  return words.join(QLatin1String(", "));
}

std::vector<std::unique_ptr<QAccessibleEvent>> changeEvents(QWidget& menu, const QAction& action,
                                                            const MenuEntry& before,
                                                            const MenuEntry& after) {
  std::vector<std::unique_ptr<QAccessibleEvent>> events;
  const auto row = static_cast<int>(menu.actions().indexOf(&action));
  if (row < 0) return events;
  const auto add = [&](QAccessible::Event type) {
    events.push_back(std::make_unique<QAccessibleEvent>(&menu, type));
  };
  if (spokenName(before) != spokenName(after)) add(QAccessible::NameChanged);
  if (before.toolTip != after.toolTip) add(QAccessible::DescriptionChanged);
  if (before.shortcut != after.shortcut) add(QAccessible::AcceleratorChanged);
  if (const auto changed = difference(before, after); changed != QAccessible::State())
    events.push_back(std::make_unique<QAccessibleStateChangeEvent>(&menu, changed));
  for (const auto& event : events) event->setChild(row);
  return events;
}

void announceRow(QWidget& menu, const QAction& action, QAccessible::Event event) {
  if (!QAccessible::isActive() || !menu.isVisible()) return;
  const auto row = static_cast<int>(menu.actions().indexOf(&action));
  if (row < 0) return;
  QAccessibleEvent announcement(&menu, event);
  announcement.setChild(row);
  QAccessible::updateAccessibility(&announcement);
}

void announceChange(QWidget& menu, const QAction& action, const MenuEntry& before,
                    const MenuEntry& after) {
  if (!QAccessible::isActive()) return;
  for (const auto& event : changeEvents(menu, action, before, after))
    QAccessible::updateAccessibility(event.get());
}

}  // namespace kvl::qt
