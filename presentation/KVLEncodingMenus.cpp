#include "presentation/MenuBuilder.h"

#include <local/KVLEncodingLocale.h>
#include <local/KVLEncodingMenus.h>
#include <local/platform/FontMeasurement.h>

#include <string>
#include <utility>

KVLEncodingImageSource::~KVLEncodingImageSource() = default;

namespace KVLEncoding {
namespace {

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
  if (items) kvl::presentation::addMenuItems(*items, menu, {images, action, target});
}

std::shared_ptr<kvl::MenuItem> menuItem(DictionaryOrNone description,
                                        const std::shared_ptr<KVLEncodingImageSource>& images,
                                        const kvl::MenuAction& action,
                                        const std::weak_ptr<void>& target) {
  if (!description) return nullptr;
  return kvl::presentation::menuItem(description, {images, action, target});
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
