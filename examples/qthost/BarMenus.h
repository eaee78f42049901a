// What goes into a menu bar.
#pragma once

#include <local/platform/Menu.h>

#include <QString>
#include <memory>
#include <vector>

namespace qthost {

struct BarMenu {
  QString title;  // as a menu bar takes it, with a mnemonic
  std::shared_ptr<kvl::Menu> menu;
};

// The menus of a bar: the sub-menus of the items. Where an item has none, they all are in one menu.
// `taken` are the letters that other menus have as mnemonics.
[[nodiscard]] std::vector<BarMenu> barMenus(const std::shared_ptr<kvl::Menu>& menu, QString taken);

}  // namespace qthost
