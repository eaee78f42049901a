// Single menu items, made from their descriptions.
#pragma once

#include <local/KVLEncodingMenus.h>

#include <memory>

namespace kvl::presentation {

// What items are given besides their descriptions. It refers to the caller's arguments.
struct MenuContext {
  const std::shared_ptr<KVLEncodingImageSource>& images;
  const MenuAction& action;
  const std::weak_ptr<void>& target;
};

// The item without its sub-menu, or null for a type that is not known.
[[nodiscard]] std::shared_ptr<MenuItem> menuItemWithoutSubmenu(
    KVLEncoding::DictionaryOrNone description, const MenuContext& context);

}  // namespace kvl::presentation
