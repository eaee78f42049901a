#include "presentation/MenuBuilder.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace kvl::presentation {
namespace {

using KVLEncoding::DictionaryOrNone;

// A sub-menu on its way, and the item that is to have it.
struct Level {
  std::shared_ptr<MenuItem> owner;
  std::shared_ptr<Menu> menu;
  Array descriptions;
  std::size_t next = 0;
};

// Sub-menus on their way, the innermost last.
class Levels {
 public:
  explicit Levels(const MenuContext& context) : context_(context) {}

  [[nodiscard]] bool empty() const noexcept { return levels_.empty(); }

  // The item of a description; null when there is none, or when its sub-menu comes first.
  std::shared_ptr<MenuItem> begin(DictionaryOrNone description) {
    auto item = menuItemWithoutSubmenu(description, context_);
    if (!item || item->kind() == MenuItem::Kind::separator) return item;
    const auto subitems = KVLEncoding::arrayFromDictionary(description, "subitems");
    if (!subitems || subitems->empty()) return item;
    item->setEnabled(true);
    levels_.push_back({std::move(item), std::make_shared<Menu>(), *subitems});
    return nullptr;
  }

  // Takes the innermost sub-menu one description further. Returns an item that this has finished
  // and that belongs to no other sub-menu.
  std::shared_ptr<MenuItem> advance() {
    auto& level = levels_.back();
    auto item = level.next < level.descriptions.size()
                    ? beginListed(level.descriptions[level.next++])
                    : finish();
    if (!item || levels_.empty()) return item;
    levels_.back().menu->addItem(std::move(item));
    return nullptr;
  }

 private:
  std::shared_ptr<MenuItem> beginListed(const Value& description) {
    return description.isNull() ? nullptr : begin(description.dictionary());
  }

  std::shared_ptr<MenuItem> finish() {
    auto level = std::move(levels_.back());
    levels_.pop_back();
    level.owner->setSubmenu(std::move(level.menu));
    return level.owner;
  }

  const MenuContext& context_;
  std::vector<Level> levels_;
};

}  // namespace

std::shared_ptr<MenuItem> menuItem(DictionaryOrNone description, const MenuContext& context) {
  Levels levels(context);
  auto item = levels.begin(description);
  while (!levels.empty()) item = levels.advance();
  return item;
}

void addMenuItems(const Array& descriptions, Menu& menu, const MenuContext& context) {
  for (const auto& description : descriptions) {
    if (!description.isNull()) menu.addItem(menuItem(description.dictionary(), context));
  }
}

}  // namespace kvl::presentation
