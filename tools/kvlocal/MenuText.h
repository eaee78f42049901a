// Menus as lines of text and as values for JSON output.
#pragma once

#include <local/platform/Menu.h>
#include <local/platform/MenuItem.h>
#include <local/platform/Value.h>

#include <memory>
#include <string>
#include <string_view>

namespace kvlocal {

// What the user wants to see of a menu.
struct MenuLook {
  bool showsIdentifiers = false;
};

// A line for each item, further ones for the lines below its title, and sub-menus indented below
// the item that opens them. What an item has beside its title stands behind it in brackets. All
// words are `escaped`, so that nothing in them ends a line or controls the terminal. No tool tips.
//
//     Section
//       x Is on
//       - Is partly on
//         Title  [3 updates] [key n] [disabled]
//           Second line
//         ----
//         Sub-menu >
[[nodiscard]] std::string menuText(const kvl::Menu& menu, MenuLook look);

// The items, each an object; what an item does not have is left out.
[[nodiscard]] kvl::Array menuValue(const kvl::Menu& menu);

// The first item with that identifier, in the order of the lines; null for none.
[[nodiscard]] std::shared_ptr<kvl::MenuItem> itemWithIdentifier(const kvl::Menu& menu,
                                                                std::string_view identifier);

}  // namespace kvlocal
