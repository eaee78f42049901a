// One menu, without what is around it, as GLib's menu model.
#pragma once

#include "examples/gtk/MenuRow.h"
#include "examples/gtk/Owned.h"

#include <local/platform/Menu.h>
#include <local/platform/Observation.h>

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace gtkhost {

// What all levels of a menu share.
struct MenuScene {
  std::string group;
  Owned<GSimpleActionGroup> actions{g_simple_action_group_new()};
  // Called on any thread, after each change of the menu or of one of its items.
  std::function<void()> changed;
  unsigned lastNumber = 0;  // of an action
};

// A menu's model, with those of the sub-menus.
class MenuLevel {
 public:
  // Menus nested deeper than this are left out: the toolkit needs stack for each level.
  static constexpr int kDeepest = 16;

  // The scene must outlive this. The model is filled at once.
  MenuLevel(std::shared_ptr<kvl::Menu> menu, MenuScene& scene, int depth = 1);
  // The model is empty then, whoever still holds it.
  ~MenuLevel();
  MenuLevel(const MenuLevel&) = delete;
  MenuLevel& operator=(const MenuLevel&) = delete;

  [[nodiscard]] GMenu* model() const { return model_.get(); }
  // Takes over what the menu is now, with its sub-menus. What is the same stays untouched.
  void update();
  // Calls `see` with each row's action and keys, in order, those of the sub-menus as well.
  void eachKey(const std::function<void(const std::string&, const std::string&)>& see) const;

 private:
  struct Row;
  struct Section;
  struct Wanted;

  [[nodiscard]] static std::vector<Wanted> sectionsOf(const kvl::Menu& menu);
  [[nodiscard]] Section makeSection(const Wanted& wanted) const;
  [[nodiscard]] Row makeRow(const std::shared_ptr<kvl::MenuItem>& item) const;
  void updateSection(Section& section, const Wanted& wanted, int position) const;
  void updateRow(Row& row, GMenu* model, int position) const;
  void show(const Row& row, GMenu* model, int position) const;

  const std::shared_ptr<kvl::Menu> menu_;
  MenuScene& scene_;
  const int depth_;
  const Owned<GMenu> model_;
  std::vector<Section> sections_;
  kvl::Observation observation_;
};

}  // namespace gtkhost
