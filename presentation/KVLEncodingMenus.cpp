// Builds menus from their descriptions, and segmented controls from menus.
#include "platform/core/ValueAccess.h"
#include "platform/interface/MenuItemProperties.h"

#include <local/KVLEncodingLocale.h>
#include <local/KVLEncodingMenus.h>
#include <local/platform/FontMeasurement.h>
#include <local/platform/Log.h>
#include <local/platform/SystemVersion.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

KVLEncodingImageSource::~KVLEncodingImageSource() = default;

namespace KVLEncoding {
namespace {

using kvl::ColourRole;
using kvl::FontRole;
using kvl::MenuItem;
using kvl::Value;
using kvl::detail::ValueAccess;
using kvl::interface::MenuItemAccess;
using kvl::interface::MenuItemProperties;

// What items are given besides their descriptions. It refers to the caller's arguments.
struct MenuContext {
  const std::shared_ptr<KVLEncodingImageSource>& images;
  const kvl::MenuAction& action;
  const std::weak_ptr<void>& target;
};

bool hasSectionHeaders() {
  return kvl::isSystemVersionAtLeast(14, 0);
}
bool hasBadges() {
  return kvl::isSystemVersionAtLeast(14, 0);
}
bool hasSubtitles() {
  return kvl::isSystemVersionAtLeast(14, 4);
}

// The text of a dictionary's value where it stands: an object of its own, as the accessors give it,
// would count as a reference to the whole document. They are for reporting what is of another type.
std::optional<std::string_view> textOrNone(const Value& dictionary, std::string_view key,
                                           const Value& value) {
  if (value.kind() == Value::Kind::string) return ValueAccess::text(value);
  if (!value.isNull()) static_cast<void>(stringFromDictionary(dictionary.dictionary(), key));
  return std::nullopt;
}

constexpr std::array<std::string_view, 9> kNames = {
    "type", "subtext", "shortcut", "updates", "tooltip", "icon", "state", "form", "subitems"};
constexpr std::size_t kShortestName = 4;
constexpr std::size_t kLongestName = 8;

constexpr std::uint64_t fourCharacters(std::string_view text, std::size_t i) {
  return std::bit_cast<std::uint32_t>(std::array{text[i], text[i + 1], text[i + 2], text[i + 3]});
}

// The first four characters and the last four: with its size, that is all of a name.
constexpr std::uint64_t wordOf(std::string_view name) {
  return fourCharacters(name, 0) | fourCharacters(name, name.size() - 4) << 32;
}

constexpr auto kWords = [] {
  std::array<std::uint64_t, kNames.size()> words{};
  std::ranges::transform(kNames, words.begin(), wordOf);
  return words;
}();

// What a description has under the keys that no host changes, found in one pass.
class Description {
 public:
  enum Key : std::uint8_t {  // in the order of `kNames`
    type,
    subtext,
    shortcut,
    updates,
    tooltip,
    icon,
    state,
    form,
    subitems
  };

  // Of what is no dictionary nothing is there. It refers to the value.
  explicit Description(const Value& value) : value_(value) {
    if (value.kind() != Value::Kind::dictionary) return;
    for (const auto& [key, found] : ValueAccess::entries(value)) keep(key, found);
  }

  [[nodiscard]] const Value& value() const { return value_; }

  [[nodiscard]] std::optional<std::string_view> textOrNone(Key key) const {
    const Value* found = found_[key];
    if (found == nullptr) return std::nullopt;
    return KVLEncoding::textOrNone(value_, kNames[key], *found);
  }
  [[nodiscard]] std::string_view text(Key key) const {
    return textOrNone(key).value_or(std::string_view());
  }

  // The value if it is of that kind, or null.
  template <class Report>
  [[nodiscard]] const Value* container(Key key, Value::Kind kind, Report report) const {
    const Value* found = found_[key];
    if (found == nullptr || found->kind() == kind) return found;
    if (!found->isNull()) static_cast<void>(report(value_.dictionary(), kNames[key], std::nullopt));
    return nullptr;
  }
  [[nodiscard]] const Value* dictionary(Key key) const {
    return container(key, Value::Kind::dictionary, dictionaryFromDictionary);
  }
  [[nodiscard]] const Value* array(Key key) const {
    return container(key, Value::Kind::array, arrayFromDictionary);
  }
  [[nodiscard]] std::int64_t integer(Key key) const {
    const Value* found = found_[key];
    if (found == nullptr) return 0;
    return found->isNumber() ? *found->integer()
                             : integerFromDictionary(value_.dictionary(), kNames[key], 0);
  }

 private:
  void keep(std::string_view key, const Value& value) {
    if (key.size() < kShortestName || key.size() > kLongestName) return;
    const auto place = std::ranges::find(kWords, wordOf(key)) - kWords.begin();
    const auto index = static_cast<std::size_t>(place);
    if (index < kNames.size() && kNames[index].size() == key.size()) found_[index] = &value;
  }

  const Value& value_;
  std::array<const Value*, kNames.size()> found_{};
};

const Value& valueIn(const Value& dictionary, std::string_view key) {
  static const Value null;
  const auto* entry = ValueAccess::find(dictionary, key);
  return entry != nullptr ? entry->second : null;
}

std::string_view textIn(const Value& dictionary, std::string_view key) {
  return textOrNone(dictionary, key, valueIn(dictionary, key)).value_or(std::string_view());
}

std::shared_ptr<MenuItem> newItem(std::string_view type, std::string_view text) {
  if (type == "item") return MenuItem::itemWithTitle(std::string(text));
  if (hasSectionHeaders()) return MenuItem::sectionHeaderWithTitle(std::string(text));
  auto item = MenuItem::itemWithTitle({});
  item->setAttributedTitle(
      kvl::AttributedText{{{std::string(text), FontRole::menuSmall, ColourRole::label}}});
  return item;
}

kvl::AttributedText twoLines(std::string_view text, const std::string& subtext) {
  return {{{std::string(text), FontRole::menu, ColourRole::label},
           {"\n" + subtext, FontRole::menuSmall, ColourRole::secondaryLabel}}};
}

void setSubtext(MenuItemProperties& item, std::string_view text, std::string_view subtext,
                const Value& description) {
  if (subtext.empty()) return;
  auto rendered = stringWithLocales(subtext, valueIn(description, KVLEncodingKeyLocale));
  if (hasSubtitles()) {
    item.subtitle = std::move(rendered);
  } else {
    item.attributedTitle = twoLines(text, rendered);
  }
}

void requestIcon(const std::shared_ptr<MenuItem>& item, std::string_view path,
                 const MenuContext& context) {
  context.images->imageWithRelativePath(
      RelativePath(path), menuIconSize(),
      [item](std::shared_ptr<kvl::Image> image) { item->setImage(std::move(image)); });
}

void setState(MenuItemProperties& item, std::string_view state) {
  if (state == "on") item.mark = MenuItem::State::on;
  if (state == "mixed") item.mark = MenuItem::State::mixed;
}

void setForm(MenuItemProperties& item, const Value* form, const MenuContext& context) {
  item.enabled = form != nullptr;
  if (form == nullptr) return;
  item.action = context.action;
  item.target = context.target;
  item.representedObject = *form;
  if (const auto identifier = textIn(*form, "id"); !identifier.empty()) {
    item.identifier = identifier;
  } else {
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning,
             "menu item with action missing id: %@", *form);
  }
}

void setDetails(MenuItemProperties& item, const Description& description, std::string_view text,
                const MenuContext& context) {
  using enum Description::Key;
  const auto line = description.text(subtext);
  const auto keys = description.text(shortcut);
  const auto count = description.integer(updates);
  setSubtext(item, text, line, description.value());
  item.keyEquivalent = keys;
  item.toolTip = description.textOrNone(tooltip);
  if (count >= 1 && hasBadges()) item.badge = kvl::MenuItemBadge::updatesWithCount(count);
  item.expectsImage = !description.text(icon).empty() && context.images;
  setState(item, description.text(state));
  setForm(item, description.dictionary(form), context);
}

// The item without its sub-menu, or null for a type that is not known.
std::shared_ptr<MenuItem> menuItemWithoutSubmenu(const Description& description,
                                                 const MenuContext& context) {
  const auto type = description.text(Description::type);
  if (type == "divider") return MenuItem::separatorItem();
  if (type != "title" && type != "item") {
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning, "unknown menu item type: %@", type);
    return nullptr;
  }
  const auto text = textIn(description.value(), KVLEncodingKeyText);
  auto item = newItem(type, text);
  auto& properties = MenuItemAccess::unshared(*item);
  setDetails(properties, description, text, context);
  // Last: an image may come on any thread as soon as it is asked for.
  if (properties.expectsImage) requestIcon(item, description.text(Description::icon), context);
  return item;
}

// A sub-menu that is being built, and the item that is to have it.
struct OpenSubmenu {
  std::shared_ptr<MenuItem> owner;
  std::shared_ptr<kvl::Menu> menu;
  kvl::Array descriptions;
  std::size_t next = 0;
};

// Builds an item with its sub-menus, one description at a time.
class SubmenuBuilder {
 public:
  explicit SubmenuBuilder(const MenuContext& context) : context_(context) {}

  [[nodiscard]] bool isFinished() const noexcept { return open_.empty(); }

  // The item of a description; null when there is none, or when its sub-menu comes first.
  std::shared_ptr<MenuItem> begin(const Value& value) {
    const Description description(value);
    auto item = menuItemWithoutSubmenu(description, context_);
    if (!item || item->kind() == MenuItem::Kind::separator) return item;
    const Value* subitems = description.array(Description::subitems);
    if (subitems == nullptr || ValueAccess::elements(*subitems).empty()) return item;
    item->setEnabled(true);
    open_.push_back({std::move(item), std::make_shared<kvl::Menu>(), *subitems->array()});
    return nullptr;
  }

  // Takes the innermost sub-menu one description further. Returns an item that this has finished
  // and that belongs to no other sub-menu.
  std::shared_ptr<MenuItem> advance() {
    auto& submenu = open_.back();
    auto item = submenu.next < submenu.descriptions.size()
                    ? beginListed(submenu.descriptions[submenu.next++])
                    : finish();
    if (!item || open_.empty()) return item;
    open_.back().menu->addItem(std::move(item));
    return nullptr;
  }

 private:
  std::shared_ptr<MenuItem> beginListed(const Value& description) {
    return description.isNull() ? nullptr : begin(description);
  }

  std::shared_ptr<MenuItem> finish() {
    auto submenu = std::move(open_.back());
    open_.pop_back();
    submenu.owner->setSubmenu(std::move(submenu.menu));
    return submenu.owner;
  }

  const MenuContext& context_;
  std::vector<OpenSubmenu> open_;  // the innermost last
};

// The item that a description gives, or null. Nesting takes no stack. A sub-menu is complete before
// its item gets it, and an item before its menu gets it.
std::shared_ptr<MenuItem> itemWithSubmenus(const Value& description, const MenuContext& context) {
  SubmenuBuilder builder(context);
  auto item = builder.begin(description);
  while (!builder.isFinished()) item = builder.advance();
  return item;
}

constexpr std::string_view kEllipsis = "\u2026";

std::optional<kvl::String> formIdentifier(DictionaryOrNone description) {
  return stringFromDictionary(dictionaryFromDictionary(description, "form"), "id");
}

kvl::Segment segmentOf(const kvl::MenuItem& item) {
  auto submenu = item.submenu();
  const bool hasSubmenu = submenu != nullptr;
  return {.enabled = item.isEnabled(),
          .label = item.title(),
          .image = nullptr,
          .imageScaling = kvl::ImageScaling::proportionallyUpOrDown,
          .menu = std::move(submenu),
          .showsMenuIndicator = hasSubmenu,
          .toolTip = item.toolTip()};
}

void showNoItems(kvl::SegmentedControl& control) {
  auto segment = control.segment(0).value_or(kvl::Segment{});
  segment.enabled = false;
  segment.label = "-";
  segment.image = nullptr;
  segment.menu = nullptr;
  control.setSegments({std::move(segment)});
}

}  // namespace

kvl::Size menuIconSize() {
  static const double height = kvl::menuBarTextHeight("A");
  return {height, height};
}

std::optional<kvl::Dictionary> menuFormWithIdentifier(
    std::string_view identifier, DictionaryOrNone dictionary,
    const std::optional<kvl::Dictionary>& fallback) {
  const auto entries = arrayFromDictionary(dictionary, "menu").value_or(kvl::Array());
  for (const auto& value : entries) {
    const auto entry = value.dictionary();
    const auto id = stringFromDictionary(entry, "id");
    if (id && *id == identifier) return dictionaryFromDictionary(entry, "form");
  }
  return fallback;
}

void addMenuItems(const ArrayOrNone& items, kvl::Menu& menu,
                  const std::shared_ptr<KVLEncodingImageSource>& images,
                  const kvl::MenuAction& action, const std::weak_ptr<void>& target) {
  if (!items) return;
  for (const auto& description : *items) {
    // The null value is no description; what else is no dictionary is one without keys.
    if (description.isNull()) continue;
    menu.addItem(itemWithSubmenus(description, {images, action, target}));
  }
}

std::shared_ptr<kvl::MenuItem> menuItem(DictionaryOrNone description,
                                        const std::shared_ptr<KVLEncodingImageSource>& images,
                                        const kvl::MenuAction& action,
                                        const std::weak_ptr<void>& target) {
  if (!description) return nullptr;
  return itemWithSubmenus(*description, {images, action, target});
}

std::optional<kvl::Dictionary> menuItemWithEllipsis(DictionaryOrNone description,
                                                    const MenuItemCondition& condition) {
  if (!description) return std::nullopt;
  auto copy = *description;
  if (condition && !condition(formIdentifier(description))) return copy;
  const auto text = stringFromDictionary(description, KVLEncodingKeyText);
  if (text && !text->empty() && !text->text().ends_with(kEllipsis))
    copy.set(KVLEncodingKeyText, std::string(text->text()).append(kEllipsis));
  return copy;
}

std::optional<kvl::Dictionary> menuItemWithEllipsis(DictionaryOrNone description) {
  return menuItemWithEllipsis(description, nullptr);
}

void applyMenu(const kvl::Menu& menu, kvl::SegmentedControl& control) {
  const auto items = menu.items();
  if (items.empty()) return showNoItems(control);
  std::vector<kvl::Segment> segments;
  for (const auto& item : items) segments.push_back(segmentOf(*item));
  control.setSegments(std::move(segments));
}

}  // namespace KVLEncoding
