#include "presentation/MenuItemBuilder.h"

#include <local/KVLEncodingLocale.h>
#include <local/platform/Log.h>
#include <local/platform/SystemVersion.h>

#include <string>
#include <utility>

namespace kvl::presentation {
namespace {

using KVLEncoding::DictionaryOrNone;

bool hasSectionHeaders() {
  return isSystemVersionAtLeast(14, 0);
}
bool hasBadges() {
  return isSystemVersionAtLeast(14, 0);
}
bool hasSubtitles() {
  return isSystemVersionAtLeast(14, 4);
}

std::optional<std::string> textOrNone(DictionaryOrNone dictionary, std::string_view key) {
  const auto text = KVLEncoding::stringFromDictionary(dictionary, key);
  return text ? std::optional<std::string>(text->text()) : std::nullopt;
}

std::string textOrEmpty(DictionaryOrNone dictionary, std::string_view key) {
  const auto text = KVLEncoding::stringFromDictionary(dictionary, key);
  return std::string(text ? text->text() : std::string_view());
}

std::shared_ptr<MenuItem> newItem(std::string_view type, const std::string& text) {
  if (type == "item") return MenuItem::itemWithTitle(text);
  if (hasSectionHeaders()) return MenuItem::sectionHeaderWithTitle(text);
  auto item = MenuItem::itemWithTitle({});
  item->setAttributedTitle(AttributedText{{{text, FontRole::menuSmall, ColourRole::label}}});
  return item;
}

AttributedText twoLines(const std::string& text, const std::string& subtext) {
  return {{{text, FontRole::menu, ColourRole::label},
           {"\n" + subtext, FontRole::menuSmall, ColourRole::secondaryLabel}}};
}

void setSubtext(MenuItem& item, const std::string& text, std::string_view subtext,
                const Value& locales) {
  if (subtext.empty()) return;
  auto rendered = KVLEncoding::stringWithLocales(subtext, locales);
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
      KVLEncoding::RelativePath(path), KVLEncoding::menuIconSize(),
      [item](std::shared_ptr<Image> image) { item->setImage(std::move(image)); });
}

void setState(MenuItem& item, std::string_view state) {
  if (state == "on") item.setState(MenuItem::State::on);
  if (state == "off") item.setState(MenuItem::State::off);
  if (state == "mixed") item.setState(MenuItem::State::mixed);
}

void setForm(MenuItem& item, const std::optional<Dictionary>& form, const MenuContext& context) {
  item.setEnabled(form.has_value());
  if (!form) return;
  item.setAction(context.action);
  item.setTarget(context.target);
  item.setRepresentedObject(*form);
  if (auto identifier = textOrEmpty(*form, "id"); !identifier.empty()) {
    item.setIdentifier(std::move(identifier));
  } else {
    log("menu item with action missing id: %@", *form);
  }
}

}  // namespace

std::shared_ptr<MenuItem> menuItemWithoutSubmenu(DictionaryOrNone description,
                                                 const MenuContext& context) {
  const auto type = textOrEmpty(description, "type");
  if (type == "divider") return MenuItem::separatorItem();
  if (type != "title" && type != "item") {
    log("unknown menu item type: %@", type);
    return nullptr;
  }
  const auto text = textOrEmpty(description, KVLEncoding::KVLEncodingKeyText);
  const auto subtext = textOrEmpty(description, "subtext");
  auto shortcut = textOrEmpty(description, "shortcut");
  const auto updates = KVLEncoding::integerFromDictionary(description, "updates", 0);
  auto item = newItem(type, text);
  setSubtext(*item, text, subtext, (*description)[KVLEncoding::KVLEncodingKeyLocale]);
  if (!shortcut.empty()) item->setKeyEquivalent(std::move(shortcut));
  item->setToolTip(textOrNone(description, "tooltip"));
  if (updates >= 1 && hasBadges()) item->setBadge(MenuItemBadge::updatesWithCount(updates));
  requestIcon(item, textOrEmpty(description, "icon"), context);
  setState(*item, textOrEmpty(description, "state"));
  setForm(*item, KVLEncoding::dictionaryFromDictionary(description, "form"), context);
  return item;
}

}  // namespace kvl::presentation
