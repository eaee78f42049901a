// Builds menus from their descriptions, and segmented controls from menus.
#include <local/KVLEncodingLocale.h>
#include <local/KVLEncodingMenus.h>
#include <local/platform/FontMeasurement.h>
#include <local/platform/Log.h>
#include <local/platform/SystemVersion.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

KVLEncodingImageSource::~KVLEncodingImageSource() = default;

namespace KVLEncoding {
namespace {

using kvl::ColourRole;
using kvl::FontRole;
using kvl::MenuItem;

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

// The text as `stringFromDictionary` gives it, but where it stands: an object of its own would
// count as a reference to the whole document.
std::optional<std::string_view> textIn(DictionaryOrNone dictionary, std::string_view key) {
  if (!dictionary) return std::nullopt;
  const kvl::Value& value = (*dictionary)[key];
  if (value.isNull()) return std::nullopt;
  const auto text = value.string();
  if (!text) static_cast<void>(stringFromDictionary(dictionary, key));  // reports what is there
  return text;
}

std::optional<std::string> textOrNone(DictionaryOrNone dictionary, std::string_view key) {
  return std::optional<std::string>(textIn(dictionary, key));
}

std::string_view textOrEmpty(DictionaryOrNone dictionary, std::string_view key) {
  return textIn(dictionary, key).value_or(std::string_view());
}

std::shared_ptr<MenuItem> newItem(std::string_view type, const std::string& text) {
  if (type == "item") return MenuItem::itemWithTitle(text);
  if (hasSectionHeaders()) return MenuItem::sectionHeaderWithTitle(text);
  auto item = MenuItem::itemWithTitle({});
  item->setAttributedTitle(kvl::AttributedText{{{text, FontRole::menuSmall, ColourRole::label}}});
  return item;
}

kvl::AttributedText twoLines(const std::string& text, const std::string& subtext) {
  return {{{text, FontRole::menu, ColourRole::label},
           {"\n" + subtext, FontRole::menuSmall, ColourRole::secondaryLabel}}};
}

void setSubtext(MenuItem& item, const std::string& text, std::string_view subtext,
                const kvl::Value& locales) {
  if (subtext.empty()) return;
  auto rendered = stringWithLocales(subtext, locales);
  if (hasSubtitles()) {
    item.setSubtitle(std::move(rendered));
  } else {
    item.setAttributedTitle(twoLines(text, rendered));
  }
}

void requestIcon(const std::shared_ptr<MenuItem>& item, std::string_view path,
                 const MenuContext& context) {
  if (path.empty() || !context.images) return;
  item->setExpectsImage(true);  // first: the image may come inside the request
  context.images->imageWithRelativePath(
      RelativePath(path), menuIconSize(),
      [item](std::shared_ptr<kvl::Image> image) { item->setImage(std::move(image)); });
}

void setState(MenuItem& item, std::string_view state) {
  if (state == "on") item.setState(MenuItem::State::on);
  if (state == "off") item.setState(MenuItem::State::off);
  if (state == "mixed") item.setState(MenuItem::State::mixed);
}

void setForm(MenuItem& item, const std::optional<kvl::Dictionary>& form,
             const MenuContext& context) {
  item.setEnabled(form.has_value());
  if (!form) return;
  item.setAction(context.action);
  item.setTarget(context.target);
  item.setRepresentedObject(*form);
  if (const auto identifier = textOrEmpty(*form, "id"); !identifier.empty()) {
    item.setIdentifier(std::string(identifier));
  } else {
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning,
             "menu item with action missing id: %@", *form);
  }
}

// The item without its sub-menu, or null for a type that is not known.
std::shared_ptr<MenuItem> menuItemWithoutSubmenu(DictionaryOrNone description,
                                                 const MenuContext& context) {
  const auto type = textOrEmpty(description, "type");
  if (type == "divider") return MenuItem::separatorItem();
  if (type != "title" && type != "item") {
    kvl::log(kvl::LogCategory::menus, kvl::LogLevel::warning, "unknown menu item type: %@", type);
    return nullptr;
  }
  const std::string text(textOrEmpty(description, KVLEncodingKeyText));
  const auto subtext = textOrEmpty(description, "subtext");
  const auto shortcut = textOrEmpty(description, "shortcut");
  const auto updates = integerFromDictionary(description, "updates", 0);
  auto item = newItem(type, text);
  setSubtext(*item, text, subtext, (*description)[KVLEncodingKeyLocale]);
  if (!shortcut.empty()) item->setKeyEquivalent(std::string(shortcut));
  item->setToolTip(textOrNone(description, "tooltip"));
  if (updates >= 1 && hasBadges()) item->setBadge(kvl::MenuItemBadge::updatesWithCount(updates));
  requestIcon(item, textOrEmpty(description, "icon"), context);
  setState(*item, textOrEmpty(description, "state"));
  setForm(*item, dictionaryFromDictionary(description, "form"), context);
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
  std::shared_ptr<MenuItem> begin(DictionaryOrNone description) {
    auto item = menuItemWithoutSubmenu(description, context_);
    if (!item || item->kind() == MenuItem::Kind::separator) return item;
    const auto subitems = arrayFromDictionary(description, "subitems");
    if (!subitems || subitems->empty()) return item;
    item->setEnabled(true);
    open_.push_back({std::move(item), std::make_shared<kvl::Menu>(), *subitems});
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
  std::shared_ptr<MenuItem> beginListed(const kvl::Value& description) {
    return description.isNull() ? nullptr : begin(description.dictionary());
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
std::shared_ptr<MenuItem> itemWithSubmenus(DictionaryOrNone description,
                                           const MenuContext& context) {
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
    menu.addItem(itemWithSubmenus(description.dictionary(), {images, action, target}));
  }
}

std::shared_ptr<kvl::MenuItem> menuItem(DictionaryOrNone description,
                                        const std::shared_ptr<KVLEncodingImageSource>& images,
                                        const kvl::MenuAction& action,
                                        const std::weak_ptr<void>& target) {
  if (!description) return nullptr;
  return itemWithSubmenus(description, {images, action, target});
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
