#include "platform/interface/Observed.h"

#include <local/platform/Menu.h>

#include <utility>

namespace kvl {
namespace {

using Items = std::vector<std::shared_ptr<MenuItem>>;

struct MenuState {
  Items items;
};

}  // namespace

struct Menu::Implementation {
  interface::Observed<MenuState> state;
};

Menu::Menu() : implementation_(std::make_unique<Implementation>()) {}
Menu::~Menu() = default;

Items Menu::items() const {
  return implementation_->state.get(&MenuState::items);
}

std::size_t Menu::itemCount() const {
  return implementation_->state.read([](const MenuState& state) { return state.items.size(); });
}

void Menu::addItem(std::shared_ptr<MenuItem> item) {
  if (!item) return;
  implementation_->state.change([&](MenuState& state) { state.items.push_back(std::move(item)); });
}

void Menu::removeAllItems() {
  implementation_->state.set(&MenuState::items, {});
}

Observation Menu::observe(std::function<void()> handler) {
  return implementation_->state.observe(std::move(handler));
}

}  // namespace kvl
