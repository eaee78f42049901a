#include "examples/gtk/ServiceMenu.h"

#include "examples/gtk/MenuLevel.h"

#include <local/platform/DispatchQueue.h>

#include <atomic>
#include <utility>

namespace gtkhost {

struct ServiceMenu::Core {
  MenuScene scene;
  std::unique_ptr<MenuLevel> top;
  std::function<void()> changed;
};

namespace {

// Of many changes at once, whatever threads they come from, the model takes over the outcome. Only
// the main thread ever holds the core, so that it goes there.
template <class Core>
std::function<void()> updateSoon(const std::weak_ptr<Core>& weak) {
  return [weak, isDue = std::make_shared<std::atomic<bool>>(false)] {
    if (isDue->exchange(true)) return;
    kvl::DispatchQueue::main()->async([weak, isDue] {
      *isDue = false;
      const auto core = weak.lock();
      if (!core) return;
      core->top->update();
      if (core->changed) core->changed();
    });
  };
}

}  // namespace

ServiceMenu::ServiceMenu(std::shared_ptr<kvl::Menu> menu, std::string group,
                         std::function<void()> changed)
    : core_(std::make_shared<Core>()) {
  core_->scene.group = std::move(group);
  core_->scene.changed = updateSoon(std::weak_ptr(core_));
  core_->changed = std::move(changed);
  core_->top = std::make_unique<MenuLevel>(std::move(menu), core_->scene);
}

ServiceMenu::~ServiceMenu() = default;

GMenuModel* ServiceMenu::model() const {
  return G_MENU_MODEL(core_->top->model());
}

GActionGroup* ServiceMenu::actions() const {
  return G_ACTION_GROUP(core_->scene.actions.get());
}

std::vector<Accelerator> ServiceMenu::accelerators() const {
  std::vector<Accelerator> found;
  core_->top->eachKey(
      [&](const std::string& action, const std::string& keys) { found.push_back({action, keys}); });
  return found;
}

}  // namespace gtkhost
