// One row of a menu view, as screen readers see it.
#pragma once

#include <QAccessible>
#include <QAction>
#include <QMenu>
#include <QPointer>

namespace kvl::qt {

struct MenuEntry;

// Of an action in a menu: an entry of ours, or one of the host's. Not valid once the action has
// left the menu or one of them is gone. GUI thread.
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

// What changes between two of an entry's states, and what the state is.
[[nodiscard]] QAccessible::State stateOf(const MenuEntry& entry);

// The text of an action or the title of a menu as it is read, without its mnemonic.
[[nodiscard]] QString withoutMnemonic(const QString& text);

}  // namespace kvl::qt
