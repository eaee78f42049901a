// An item of a menu as a row of GLib's menu model, and the action behind it.
#pragma once

#include "examples/gtk/Owned.h"

#include <local/platform/MenuItem.h>

#include <gio/gio.h>

#include <memory>
#include <optional>
#include <string>

namespace gtkhost {

// What a row of GLib's model says of an item. Rows with equal looks need not be replaced.
struct RowLook {
  std::string label;  // one line of UTF-8, in which "_" marks no mnemonic
  std::string keys;   // such as "<Control>p"; empty for none
  std::shared_ptr<kvl::Menu> submenu;
  friend bool operator==(const RowLook&, const RowLook&) = default;
};

// The label has the second line and the badge as well, for which there is no other place. A
// sub-menu of a disabled item cannot be disabled, so it is left out.
[[nodiscard]] RowLook lookOf(const kvl::MenuItem& item);

// A text as a label: one line of UTF-8 of bounded length, with mnemonics' marks doubled.
[[nodiscard]] std::string labelOf(std::string_view text);

// The action of an item, in a group. It activates the item, and goes from the group with this.
class RowAction {
 public:
  RowAction(std::shared_ptr<kvl::MenuItem> item, std::string name, GSimpleActionGroup* group);
  ~RowAction();
  RowAction(const RowAction&) = delete;
  RowAction& operator=(const RowAction&) = delete;

  [[nodiscard]] const std::string& name() const { return name_; }
  // Takes over what the item is now.
  void update();

 private:
  void replace(std::optional<bool> mark);

  const std::shared_ptr<kvl::MenuItem> item_;
  const std::string name_;
  const Owned<GSimpleActionGroup> group_;
  std::optional<bool> mark_;
  Owned<GSimpleAction> action_;
};

}  // namespace gtkhost
