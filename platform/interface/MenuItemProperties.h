// What a menu item is, for those who store it and those who make whole items.
#pragma once

#include <local/platform/MenuItem.h>

#include <memory>
#include <optional>
#include <string>

namespace kvl::interface {

struct MenuItemProperties {
  std::string title;
  std::optional<AttributedText> attributedTitle;
  std::optional<std::string> subtitle;
  std::optional<std::string> toolTip;
  std::string keyEquivalent;
  std::optional<MenuItemBadge> badge;
  std::shared_ptr<Image> image;
  bool expectsImage = false;
  MenuItem::State mark = MenuItem::State::off;
  bool enabled = true;
  MenuAction action;
  std::weak_ptr<void> target;
  Value representedObject;
  std::optional<std::string> identifier;
  std::shared_ptr<Menu> submenu;
};

// The way to the properties of an item past its setters, each of which locks and tells observers.
struct MenuItemAccess {
  // Of an item that nobody else knows yet.
  [[nodiscard]] static MenuItemProperties& unshared(MenuItem& item) noexcept;
};

}  // namespace kvl::interface
