// A menu of the framework's as GLib's menu model, for GTK and for whatever else shows one.
#pragma once

#include "examples/gtk/Owned.h"

#include <local/platform/Menu.h>

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace gtkhost {

class MenuLevel;

// A key with which the user chooses an item, as `gtk_application_set_accels_for_action` takes it.
struct Accelerator {
  std::string action;  // with its group, such as "service.item-3"
  std::string keys;    // such as "<Control>p"
  friend bool operator==(const Accelerator&, const Accelerator&) = default;
};

// Shows a menu as sections, items and sub-menus, and follows its changes: whatever thread makes
// them, the model changes on the main thread, when GLib's main loop runs, and only where the menu
// has changed. Belongs to the main thread.
//
// A title or a divider begins a section. An item is an action of `actions`, enabled as the item is
// and activating it. See docs/guides/gtk.md for what GLib's model has no place for.
class ServiceMenu {
 public:
  // `group` is the name under which widgets have the actions; `changed` is called after changes of
  // the model.
  explicit ServiceMenu(std::shared_ptr<kvl::Menu> menu, std::string group = "service",
                       std::function<void()> changed = {});
  // The model and the actions may live on: they are empty then.
  ~ServiceMenu();
  ServiceMenu(const ServiceMenu&) = delete;
  ServiceMenu& operator=(const ServiceMenu&) = delete;

  // They stay the same. For `gtk_menu_button_set_menu_model` and `gtk_widget_insert_action_group`.
  [[nodiscard]] GMenuModel* model() const;
  [[nodiscard]] GActionGroup* actions() const;
  // The keys of all items that have one which a keyboard has without doubt.
  [[nodiscard]] std::vector<Accelerator> accelerators() const;

 private:
  struct Core;
  const std::shared_ptr<Core> core_;
};

}  // namespace gtkhost
