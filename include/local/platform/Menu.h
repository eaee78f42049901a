/// @file
/// Menus.
#pragma once

#include <local/platform/Export.h>
#include <local/platform/MenuItem.h>
#include <local/platform/Observation.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <vector>

namespace kvl {

/// A menu, as data: items in order. Any thread may use it at any time.
class KVL_EXPORT Menu {
 public:
  /// An empty menu.
  Menu();
  ~Menu();
  Menu(const Menu&) = delete;
  Menu& operator=(const Menu&) = delete;

  /// The items as they are now.
  [[nodiscard]] std::vector<std::shared_ptr<MenuItem>> items() const;
  /// How many items there are now. Another thread may add one meanwhile.
  [[nodiscard]] std::size_t itemCount() const;
  /// Appends an item; none is not appended.
  void addItem(std::shared_ptr<MenuItem> item);
  /// Leaves the menu empty; the items live on with whoever else holds them.
  void removeAllItems();

  /// Calls `handler` after each change of the list of items, on the terms of `MenuItem::observe`.
  /// Changes of the items themselves are theirs to tell.
  [[nodiscard]] Observation observe(std::function<void()> handler);

 private:
  struct KVL_INTERNAL Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace kvl
