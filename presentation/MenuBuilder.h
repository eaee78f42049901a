// Menu items with all their sub-menus, made from their descriptions.
#pragma once

#include "presentation/MenuItemBuilder.h"

#include <local/KVLEncodingMenus.h>

#include <memory>

namespace kvl::presentation {

// The item that a description gives, or null. Nesting takes no stack. A sub-menu is complete before
// its item gets it, and an item before its menu gets it.
[[nodiscard]] std::shared_ptr<MenuItem> menuItem(KVLEncoding::DictionaryOrNone description,
                                                 const MenuContext& context);

// Appends the items that the descriptions give. The null value is no description; what else is no
// dictionary is one without keys.
void addMenuItems(const Array& descriptions, Menu& menu, const MenuContext& context);

}  // namespace kvl::presentation
