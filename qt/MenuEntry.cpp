#include "qt/MenuEntry.h"

#include "qt/MenuBadge.h"
#include "qt/MenuShortcut.h"
#include "qt/PlainText.h"

#include <algorithm>
#include <optional>
#include <string>

namespace kvl::qt {
namespace {

bool isSmall(const AttributedText& text) {
  return !text.runs.empty() && std::ranges::all_of(text.runs, [](const TextRun& run) {
    return run.font == FontRole::menuSmall;
  });
}

// An attributed title may hold the second line, too.
void takeTitle(MenuEntry& entry, const MenuItem& item) {
  const auto attributed = item.attributedTitle();
  const auto text = attributed ? attributed->text() : item.title();
  const auto lineEnd = attributed ? text.find('\n') : std::string::npos;
  entry.title = lineOf(std::string_view(text).substr(0, lineEnd));
  if (lineEnd != std::string::npos)
    entry.subtitle = lineOf(std::string_view(text).substr(lineEnd + 1)).trimmed();
  entry.smallTitle = attributed && isSmall(*attributed);
}

void takeOtherWords(MenuEntry& entry, const MenuItem& item) {
  if (const auto subtitle = item.subtitle()) entry.subtitle = lineOf(*subtitle);
  if (const auto toolTip = item.toolTip()) entry.toolTip = linesOf(*toolTip);
  if (const auto badge = item.badge()) entry.badge = badgeWords(*badge);
  entry.keys = shortcutOf(item.keyEquivalent());
  if (!entry.keys.isEmpty()) entry.shortcut = entry.keys.toString(QKeySequence::NativeText);
}

}  // namespace

MenuEntry entryOf(const MenuItem& item) {
  MenuEntry entry;
  entry.kind = item.kind();
  entry.enabled = item.isEnabled();
  if (entry.kind == MenuItem::Kind::separator) return entry;
  takeTitle(entry, item);
  if (entry.kind == MenuItem::Kind::sectionHeader) return entry;
  takeOtherWords(entry, item);
  entry.state = item.state();
  entry.hasSubmenu = item.submenu() != nullptr;
  entry.image = item.image();
  entry.expectsIcon = entry.image || item.expectsImage();
  return entry;
}

}  // namespace kvl::qt
