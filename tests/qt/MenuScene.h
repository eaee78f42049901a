// A menu on the tests' display.
#pragma once

#include "tests/support/QtApplication.h"

#include <local/platform/Menu.h>
#include <local/qt/MenuView.h>

#include <QTest>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

namespace kvltest {

using kvl::Menu;
using kvl::MenuItem;
using MenuItemRef = std::shared_ptr<MenuItem>;

// Lets events in until the condition holds; false when it does not within a minute.
template <class Condition>
[[nodiscard]] bool eventually(Condition condition) {
  constexpr int kLongest = 60'000;  // milliseconds
  return QTest::qWaitFor(condition, kLongest);
}

inline std::shared_ptr<Menu> menuOf(std::initializer_list<MenuItemRef> items) {
  auto menu = std::make_shared<Menu>();
  for (const auto& item : items) menu->addItem(item);
  return menu;
}

inline std::shared_ptr<Menu> menuWithTitles(const std::vector<std::string>& titles) {
  auto menu = std::make_shared<Menu>();
  for (const auto& title : titles) menu->addItem(MenuItem::itemWithTitle(title));
  return menu;
}

inline MenuItemRef itemWithSubmenu(std::string title, std::shared_ptr<Menu> submenu) {
  auto item = MenuItem::itemWithTitle(std::move(title));
  item->setSubmenu(std::move(submenu));
  return item;
}

inline MenuItemRef itemWithKey(std::string title, std::string key) {
  auto item = MenuItem::itemWithTitle(std::move(title));
  item->setKeyEquivalent(std::move(key));
  return item;
}

// Opens the menu where the pointer is not, and waits until it is on the screen.
[[nodiscard]] inline bool open(QMenu& menu) {
  menu.popup(QPoint(100, 100));
  return eventually([&] { return menu.isVisible() && QTest::qWaitForWindowExposed(&menu, 1000); });
}

// What has been posted is done; nothing is waited for.
inline void runPostedEvents() {
  QCoreApplication::sendPostedEvents();
}

inline void click(QMenu& menu, QAction* action) {
  QTest::mouseClick(&menu, Qt::LeftButton, {}, menu.actionGeometry(action).center());
}

inline std::vector<std::string> titlesOf(const QMenu& menu) {
  std::vector<std::string> titles;
  for (const auto* action : menu.actions()) titles.push_back(action->text().toStdString());
  return titles;
}

// Counts how often items are activated, and remembers which.
struct Recorder {
  std::vector<MenuItemRef> sent;

  // The item itself, whose action now tells this recorder.
  MenuItemRef of(const MenuItemRef& item) {
    item->setAction([this](const MenuItemRef& chosen) { sent.push_back(chosen); });
    return item;
  }
};

}  // namespace kvltest
