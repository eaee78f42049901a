#include "tools/kvlocal/MenuText.h"

#include "tools/kvlocal/Text.h"
#include "tools/kvlocal/Words.h"

#include <local/platform/UpdateCount.h>

#include <cstddef>
#include <optional>
#include <vector>

namespace kvlocal {
namespace {

using kvl::MenuItem;

// A level of sub-menus, and the room for the mark in front of a title.
constexpr std::size_t kIndentation = 4;
constexpr std::string_view kSeparator = "----";
constexpr std::string_view kOpensMenu = " >";

std::string spaces(std::size_t count) {
  return std::string(count, ' ');
}

// The mark of an item, in the room that titles leave for it.
std::string markOf(const MenuItem& item) {
  switch (item.state()) {
    case MenuItem::State::on:
      return "  x ";
    case MenuItem::State::mixed:
      return "  - ";
    case MenuItem::State::off:
      break;
  }
  return spaces(kIndentation);
}

const char* stateName(MenuItem::State state) {
  if (state == MenuItem::State::on) return "on";
  return state == MenuItem::State::mixed ? "mixed" : "off";
}

const char* kindName(MenuItem::Kind kind) {
  if (kind == MenuItem::Kind::separator) return "separator";
  return kind == MenuItem::Kind::sectionHeader ? "section" : "item";
}

std::vector<std::string> linesOf(std::string_view text) {
  std::vector<std::string> lines;
  for (std::size_t end = text.find('\n'); end != std::string_view::npos; end = text.find('\n')) {
    lines.emplace_back(text.substr(0, end));
    text.remove_prefix(end + 1);
  }
  lines.emplace_back(text);
  return lines;
}

// The title first. Only in an attributed title does a line feed begin a new line.
std::vector<std::string> linesOf(const MenuItem& item) {
  const auto attributed = item.attributedTitle();
  auto lines = attributed ? linesOf(attributed->text()) : std::vector{item.title()};
  if (const auto subtitle = item.subtitle()) lines.push_back(*subtitle);
  return lines;
}

std::string remarksOf(const MenuItem& item, MenuLook look) {
  std::string text;
  const auto add = [&text](const std::string& remark) {
    text += (text.empty() ? "  [" : " [") + remark + "]";
  };
  if (const auto badge = item.badge()) add(kvl::localizedUpdateCount(badge->updates));
  if (const auto key = item.keyEquivalent(); !key.empty()) add(tr("key %@", escaped(key)));
  const auto identifier = item.identifier();
  if (identifier && look.showsIdentifiers) add(tr("id %@", escaped(*identifier)));
  if (item.kind() == MenuItem::Kind::item && !item.isEnabled()) add(tr("disabled"));
  return text;
}

void appendItem(std::string& text, const MenuItem& item, std::size_t margin, MenuLook look) {
  if (item.kind() == MenuItem::Kind::separator) {
    text.append(spaces(margin + kIndentation)).append(kSeparator).append("\n");
    return;
  }
  const bool isHeader = item.kind() == MenuItem::Kind::sectionHeader;
  const auto lines = linesOf(item);
  text += spaces(margin) + (isHeader ? std::string() : markOf(item)) + escaped(lines.front());
  if (item.submenu()) text += kOpensMenu;
  text += remarksOf(item, look) + '\n';
  const std::size_t title = margin + (isHeader ? 0 : kIndentation);
  for (std::size_t i = 1; i < lines.size(); ++i)
    text += spaces(title + 2) + escaped(lines[i]) + '\n';
}

void appendMenu(std::string& text, const kvl::Menu& menu, std::size_t margin, MenuLook look) {
  for (const auto& item : menu.items()) {
    appendItem(text, *item, margin, look);
    if (const auto submenu = item->submenu())
      appendMenu(text, *submenu, margin + kIndentation, look);
  }
}

void setIfPresent(kvl::Dictionary& value, std::string_view key,
                  const std::optional<std::string>& text) {
  if (text) value.set(key, *text);
}

void setWords(kvl::Dictionary& value, const MenuItem& item) {
  const auto lines = linesOf(item);
  value.set("title", lines.front());
  std::string below;
  for (std::size_t i = 1; i < lines.size(); ++i) below += (i > 1 ? "\n" : "") + lines[i];
  if (lines.size() > 1) value.set("subtitle", below);
  setIfPresent(value, "toolTip", item.toolTip());
  if (const auto key = item.keyEquivalent(); !key.empty()) value.set("shortcut", key);
  if (const auto badge = item.badge()) value.set("updates", badge->updates);
}

kvl::Dictionary itemValue(const MenuItem& item) {
  kvl::Dictionary value{{"kind", kindName(item.kind())}};
  if (item.kind() == MenuItem::Kind::separator) return value;
  setWords(value, item);
  if (item.kind() == MenuItem::Kind::item) value.set("state", stateName(item.state()));
  value.set("enabled", item.isEnabled());
  setIfPresent(value, "id", item.identifier());
  if (const kvl::Value form = item.representedObject(); !form.isNull()) value.set("form", form);
  if (const auto submenu = item.submenu()) value.set("menu", menuValue(*submenu));
  return value;
}

}  // namespace

std::string menuText(const kvl::Menu& menu, MenuLook look) {
  std::string text;
  appendMenu(text, menu, 0, look);
  return text;
}

kvl::Array menuValue(const kvl::Menu& menu) {
  kvl::Array values;
  for (const auto& item : menu.items()) values.append(itemValue(*item));
  return values;
}

std::shared_ptr<MenuItem> itemWithIdentifier(const kvl::Menu& menu, std::string_view identifier) {
  for (const auto& item : menu.items()) {
    if (item->identifier() == identifier) return item;
    const auto submenu = item->submenu();
    if (!submenu) continue;
    if (auto found = itemWithIdentifier(*submenu, identifier)) return found;
  }
  return nullptr;
}

}  // namespace kvlocal
