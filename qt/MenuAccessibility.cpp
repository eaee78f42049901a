#include "qt/MenuAccessibility.h"

#include "qt/MenuContents.h"
#include "qt/MenuItemAccessible.h"

#include <QAccessibleWidget>
#include <QApplication>
#include <QHash>
#include <QMenuBar>

namespace kvl::qt {
namespace {

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
  QStringList words{entry.title, entry.subtitle, entry.badge};
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
