#include "platform/interface/MenuItemProperties.h"
#include "platform/interface/Observed.h"

#include <local/platform/Menu.h>

#include <tuple>
#include <utility>
#include <vector>

namespace kvl {

using interface::MenuItemProperties;

namespace {

// Whether there never was a target, as opposed to one that is gone.
bool isUnset(const std::weak_ptr<void>& target) {
  const std::weak_ptr<void> unset;
  return !target.owner_before(unset) && !unset.owner_before(target);
}

// Menus that this thread is about to let go of, while it does.
thread_local std::vector<std::shared_ptr<Menu>>* menusToRelease = nullptr;

// Lets go of a menu on this thread. Menus that go with it follow one after the other and not inside
// one another, so that their depth takes no stack.
void release(std::shared_ptr<Menu> menu) {
  if (!menu) return;
  if (menusToRelease != nullptr) {
    menusToRelease->push_back(std::move(menu));
    return;
  }
  std::vector<std::shared_ptr<Menu>> menus;
  menusToRelease = &menus;
  menus.push_back(std::move(menu));
  while (!menus.empty()) {
    const auto next = std::move(menus.back());
    menus.pop_back();
  }
  menusToRelease = nullptr;
}

}  // namespace

struct MenuItem::Implementation {
  Implementation(Kind kindOfItem, std::string title) : kind(kindOfItem) {
    properties.unshared().title = std::move(title);
    properties.unshared().enabled = kind == Kind::item;
  }

  const Kind kind;
  interface::Observed<MenuItemProperties> properties;
};

interface::MenuItemProperties& interface::MenuItemAccess::unshared(MenuItem& item) noexcept {
  return item.implementation_->properties.unshared();
}

MenuItem::MenuItem(Private, Kind kind, std::string title)
    : implementation_(std::make_unique<Implementation>(kind, std::move(title))) {}

MenuItem::~MenuItem() {
  release(std::move(implementation_->properties.unshared().submenu));
}

std::shared_ptr<MenuItem> MenuItem::itemWithTitle(std::string title) {
  return std::make_shared<MenuItem>(Private{}, Kind::item, std::move(title));
}
std::shared_ptr<MenuItem> MenuItem::sectionHeaderWithTitle(std::string title) {
  return std::make_shared<MenuItem>(Private{}, Kind::sectionHeader, std::move(title));
}
std::shared_ptr<MenuItem> MenuItem::separatorItem() {
  return std::make_shared<MenuItem>(Private{}, Kind::separator, std::string());
}

MenuItem::Kind MenuItem::kind() const noexcept {
  return implementation_->kind;
}

std::string MenuItem::title() const {
  return implementation_->properties.get(&MenuItemProperties::title);
}
void MenuItem::setTitle(std::string title) {
  implementation_->properties.set(&MenuItemProperties::title, std::move(title));
}

std::optional<AttributedText> MenuItem::attributedTitle() const {
  return implementation_->properties.get(&MenuItemProperties::attributedTitle);
}
void MenuItem::setAttributedTitle(std::optional<AttributedText> title) {
  implementation_->properties.set(&MenuItemProperties::attributedTitle, std::move(title));
}

std::optional<std::string> MenuItem::subtitle() const {
  return implementation_->properties.get(&MenuItemProperties::subtitle);
}
void MenuItem::setSubtitle(std::optional<std::string> subtitle) {
  implementation_->properties.set(&MenuItemProperties::subtitle, std::move(subtitle));
}

std::optional<std::string> MenuItem::toolTip() const {
  return implementation_->properties.get(&MenuItemProperties::toolTip);
}
void MenuItem::setToolTip(std::optional<std::string> toolTip) {
  implementation_->properties.set(&MenuItemProperties::toolTip, std::move(toolTip));
}

std::string MenuItem::keyEquivalent() const {
  return implementation_->properties.get(&MenuItemProperties::keyEquivalent);
}
void MenuItem::setKeyEquivalent(std::string keyEquivalent) {
  implementation_->properties.set(&MenuItemProperties::keyEquivalent, std::move(keyEquivalent));
}

std::optional<MenuItemBadge> MenuItem::badge() const {
  return implementation_->properties.get(&MenuItemProperties::badge);
}
void MenuItem::setBadge(std::optional<MenuItemBadge> badge) {
  implementation_->properties.set(&MenuItemProperties::badge, badge);
}

std::shared_ptr<Image> MenuItem::image() const {
  return implementation_->properties.get(&MenuItemProperties::image);
}
void MenuItem::setImage(std::shared_ptr<Image> image) {
  implementation_->properties.set(&MenuItemProperties::image, std::move(image));
}

bool MenuItem::expectsImage() const {
  return implementation_->properties.get(&MenuItemProperties::expectsImage);
}
void MenuItem::setExpectsImage(bool expects) {
  implementation_->properties.set(&MenuItemProperties::expectsImage, expects);
}

MenuItem::State MenuItem::state() const {
  return implementation_->properties.get(&MenuItemProperties::mark);
}
void MenuItem::setState(State state) {
  implementation_->properties.set(&MenuItemProperties::mark, state);
}

bool MenuItem::isEnabled() const {
  return implementation_->properties.get(&MenuItemProperties::enabled);
}
void MenuItem::setEnabled(bool enabled) {
  implementation_->properties.set(&MenuItemProperties::enabled, enabled);
}

MenuAction MenuItem::action() const {
  return implementation_->properties.get(&MenuItemProperties::action);
}
void MenuItem::setAction(MenuAction action) {
  implementation_->properties.set(&MenuItemProperties::action, std::move(action));
}

std::weak_ptr<void> MenuItem::target() const {
  return implementation_->properties.get(&MenuItemProperties::target);
}
void MenuItem::setTarget(std::weak_ptr<void> target) {
  implementation_->properties.set(&MenuItemProperties::target, std::move(target));
}

Value MenuItem::representedObject() const {
  return implementation_->properties.get(&MenuItemProperties::representedObject);
}
void MenuItem::setRepresentedObject(Value object) {
  implementation_->properties.set(&MenuItemProperties::representedObject, std::move(object));
}

std::optional<std::string> MenuItem::identifier() const {
  return implementation_->properties.get(&MenuItemProperties::identifier);
}
void MenuItem::setIdentifier(std::optional<std::string> identifier) {
  implementation_->properties.set(&MenuItemProperties::identifier, std::move(identifier));
}

std::shared_ptr<Menu> MenuItem::submenu() const {
  return implementation_->properties.get(&MenuItemProperties::submenu);
}
void MenuItem::setSubmenu(std::shared_ptr<Menu> submenu) {
  implementation_->properties.set(&MenuItemProperties::submenu, std::move(submenu));
}

std::string MenuItem::shownTitle() const {
  return implementation_->properties.read([](const MenuItemProperties& properties) {
    const auto& attributed = properties.attributedTitle;
    return attributed ? attributed->text() : properties.title;
  });
}

bool MenuItem::activate() {
  const auto [enabled, action, target] =
      implementation_->properties.read([](const MenuItemProperties& properties) {
        return std::tuple(properties.enabled, properties.action, properties.target);
      });
  const auto receiver = target.lock();
  if (!enabled || !action || (!receiver && !isUnset(target))) return false;
  action(shared_from_this());
  return true;
}

Observation MenuItem::observe(std::function<void()> handler) {
  return implementation_->properties.observe(std::move(handler));
}

}  // namespace kvl
