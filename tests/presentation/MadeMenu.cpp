#include "tests/presentation/MadeMenu.h"

#include "tests/support/LogCapture.h"
#include "tests/support/PlainImage.h"

#include <local/KVLEncodingMenus.h>
#include <local/platform/SegmentedControl.h>

#include <algorithm>
#include <array>
#include <memory>
#include <string_view>
#include <vector>

namespace kvltest {
namespace {

using kvl::Menu;
using kvl::MenuItem;

constexpr int kDeepestMenu = 8;

constexpr std::array<std::string_view, 16> kKeys = {
    "type",  "text", "subtext", "locale",   "shortcut", "updates", "tooltip", "icon",
    "state", "form", "id",      "subitems", "menu",     "find",    "seconds", "date"};

constexpr std::array<std::string_view, 16> kTexts = {
    "item", "title",   "divider", "on",   "off",      "mixed",     "",
    "a",    "Open…",   "%T",      "date", "duration", "date time", "2024-05-01T14:34:56Z",
    "x\ny", "\xff\xfe"};

class DescriptionMaker {
 public:
  explicit DescriptionMaker(std::span<const std::uint8_t> bytes) : rest_(bytes) {}

  kvl::Array array(int depth) {
    kvl::Array result;
    for (int i = byte() % 8; i > 0 && !rest_.empty(); --i) result.append(element(depth + 1));
    return result;
  }

 private:
  std::uint8_t byte() {
    if (rest_.empty()) return 0;
    const auto first = rest_.front();
    rest_ = rest_.subspan(1);
    return first;
  }

  std::string_view text() { return kTexts[byte() % kTexts.size()]; }

  kvl::Value element(int depth) {
    return byte() % 8 != 0 ? kvl::Value(dictionary(depth)) : any(depth);
  }

  kvl::Dictionary dictionary(int depth) {
    kvl::Dictionary result;
    if (byte() % 4 != 0) result.set("type", "item");
    for (int i = byte() % 8; i > 0 && !rest_.empty(); --i) {
      const auto key = kKeys[byte() % kKeys.size()];
      result.set(key, byte() % 4 != 0 ? fitting(key, depth + 1) : any(depth + 1));
    }
    return result;
  }

  // A value of the type that belongs to the key.
  kvl::Value fitting(std::string_view key, int depth) {
    if (depth < kDeepestMenu && key == "form") return dictionary(depth);
    if (depth < kDeepestMenu && (key == "subitems" || key == "locale")) return array(depth);
    if (key == "updates" || key == "seconds") return byte() - 100;
    return text();
  }

  kvl::Value any(int depth) {
    switch (byte() % (depth < kDeepestMenu ? 7 : 5)) {
      case 0:
        return nullptr;
      case 1:
        return true;
      case 2:
        return byte() * 1e300;
      case 3:
        return byte() - 100;
      case 4:
        return text();
      case 5:
        return array(depth);
      default:
        return dictionary(depth);
    }
  }

  std::span<const std::uint8_t> rest_;
};

class PendingImages final : public KVLEncodingImageSource {
 public:
  void imageWithRelativePath(const KVLEncoding::RelativePath&, kvl::Size,
                             Completion completionHandler) override {
    completions.push_back(std::move(completionHandler));
  }
  std::vector<Completion> completions;
};

bool isDocumented(std::string_view line) {
  constexpr std::array<std::string_view, 8> kLines = {"unknown menu item type: ",
                                                      "menu item with action missing id: ",
                                                      "expect ",
                                                      "locale missing find",
                                                      "invalid locale date: ",
                                                      "unknown or misconfigured locale type: ",
                                                      "locale matched multiple: ",
                                                      "locale text too long: "};
  return std::ranges::any_of(kLines, [&](auto known) { return line.starts_with(known); });
}

std::string faultOfItem(const MenuItem& item) {
  const bool form = item.representedObject().dictionary().has_value();
  const bool submenu = item.submenu() != nullptr;
  if (item.isEnabled() != (form || submenu)) return "enabled without reason, or the other way";
  if (item.identifier() && (!form || item.identifier()->empty())) return "an identifier of nothing";
  if (item.badge() && item.badge()->updates < 1) return "a badge of nothing";
  if (item.kind() == MenuItem::Kind::separator && (form || submenu || item.toolTip()))
    return "a separator that is more";
  return {};
}

std::string faultOfItems(const Menu& menu) {
  for (const auto& item : menu.items()) {
    if (auto fault = faultOfItem(*item); !fault.empty()) return fault;
    if (!item->submenu()) continue;
    if (auto fault = faultOfItems(*item->submenu()); !fault.empty()) return fault;
  }
  return {};
}

std::string faultOfSegments(const Menu& menu) {
  kvl::SegmentedControl control;
  KVLEncoding::applyMenu(menu, control);
  const auto expected = std::max<std::size_t>(menu.itemCount(), 1);
  return control.segmentCount() == expected ? "" : "another number of segments";
}

std::string faultOfEllipses(const kvl::Array& descriptions) {
  for (const auto& description : descriptions) {
    const auto once = KVLEncoding::menuItemWithEllipsis(description.dictionary());
    if (KVLEncoding::menuItemWithEllipsis(once) != once) return "two ellipses";
  }
  return {};
}

std::string faultOfLines(const std::vector<std::string>& lines) {
  for (const auto& line : lines) {
    if (!isDocumented(line)) return "undocumented line: " + line;
  }
  return {};
}

}  // namespace

kvl::Value madeDescriptions(std::span<const std::uint8_t> bytes) {
  return DescriptionMaker(bytes).array(0);
}

std::string faultOfMenu(const kvl::Value& descriptions, kvl::SystemVersion version) {
  const LogCapture log;
  const auto images = std::make_shared<PendingImages>();
  const auto descriptionList = descriptions.array().value_or(kvl::Array());
  Menu menu;
  kvl::setSystemVersion(version);
  KVLEncoding::addMenuItems(descriptions, menu, images, nullptr, {});
  for (std::size_t i = 0; i < images->completions.size(); i += 2)
    images->completions[i](std::make_shared<PlainImage>());
  if (menu.itemCount() > descriptionList.size()) return "more items than descriptions";
  for (auto fault : {faultOfItems(menu), faultOfSegments(menu), faultOfEllipses(descriptionList),
                     faultOfLines(log.lines())}) {
    if (!fault.empty()) return fault;
  }
  return {};
}

}  // namespace kvltest
