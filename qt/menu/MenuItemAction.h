// The actions of menu views.
#pragma once

#include "qt/menu/MenuEntry.h"

#include <local/platform/Menu.h>
#include <local/platform/MenuItem.h>
#include <local/platform/Observation.h>

#include <QAction>
#include <QSize>
#include <atomic>
#include <functional>
#include <memory>

class QWidget;

namespace kvl::qt {

// Stands for one item in one menu view, and is as much of the item as an action can be, for those
// who show actions by themselves. GUI thread, except where noted.
class MenuItemAction final : public QAction {
  Q_OBJECT

 public:
  // `owner` is an object of the view's, and not the view itself, which could be told to delete all
  // of its actions.
  MenuItemAction(std::shared_ptr<MenuItem> item, QObject& owner);

  [[nodiscard]] const QWidget* view() const;
  [[nodiscard]] const std::shared_ptr<MenuItem>& item() const { return item_; }
  // What the item was like at the last `update`.
  [[nodiscard]] const MenuEntry& entry() const { return entry_; }
  [[nodiscard]] const std::shared_ptr<Menu>& submenu() const { return submenu_; }

  // Calls `handler` on any thread after the item has changed, once until the next `update`.
  void follow(std::function<void()> handler);
  // No handler runs from now on.
  void stopFollowing();
  [[nodiscard]] bool isFollowing() const { return following_; }

  // Takes over what the item is like by now. Returns whether that is something else than before.
  bool update();
  // What the entry's size was when it was measured, and in which layout of the menu that was.
  struct Measured {
    QSize size;
    int layout = -1;
  };
  [[nodiscard]] Measured& measured() const { return measured_; }
  // Tells those who show actions by themselves that there is another picture.
  void showIcon();
  // The check mark as the item has it, which Qt changes by itself when the action is triggered.
  void restoreMark();

 Q_SIGNALS:
  // The keys were pressed, and others have the same.
  void pressedAmong();

 protected:
  bool event(QEvent* event) override;

 private:
  void show(const MenuEntry& entry);

  const std::shared_ptr<MenuItem> item_;
  MenuEntry entry_;
  mutable Measured measured_;
  std::shared_ptr<Menu> submenu_;
  bool following_ = false;
  std::atomic<bool> changed_{false};
  Observation observation_;  // destroyed first
};

}  // namespace kvl::qt
