#include "examples/gtk/MenuRow.h"

#include <local/platform/Text.h>
#include <local/platform/UpdateCount.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace gtkhost {
namespace {

constexpr std::size_t kLongestLabel = 500;  // in bytes
constexpr std::string_view kEllipsis = "…";

bool isControl(char byte) {
  return static_cast<unsigned char>(byte) < 0x20 || byte == 0x7f;
}

// Where the text can be cut without cutting a character.
std::size_t wholeCharacters(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return text.size();
  while (limit > 0 && (static_cast<unsigned char>(text[limit]) & 0xc0U) == 0x80) --limit;
  return limit;
}

// Letters and digits of ASCII, which every keyboard has.
std::string keysOf(const std::string& keyEquivalent) {
  if (keyEquivalent.size() != 1 || !g_ascii_isalnum(keyEquivalent[0])) return {};
  const char key = keyEquivalent[0];
  const std::string shift = g_ascii_isupper(key) ? "<Shift>" : "";
  return "<Control>" + shift + g_ascii_tolower(key);
}

// The state of the action: on, off, or none. GLib's actions know no dash.
std::optional<bool> markOf(const kvl::MenuItem& item) {
  if (item.state() == kvl::MenuItem::State::off) return std::nullopt;
  return item.state() == kvl::MenuItem::State::on;
}

void activate(GSimpleAction* /*action*/, GVariant* /*parameter*/, gpointer item) {
  // What the item does may replace the menu, and this action with it.
  const auto held = *static_cast<std::shared_ptr<kvl::MenuItem>*>(item);
  held->activate();
}

void letGo(gpointer item, GClosure* /*closure*/) {
  delete static_cast<std::shared_ptr<kvl::MenuItem>*>(item);
}

Owned<GSimpleAction> makeAction(const std::string& name, std::optional<bool> mark) {
  if (!mark) return Owned<GSimpleAction>(g_simple_action_new(name.c_str(), nullptr));
  GVariant* state = g_variant_new_boolean(*mark ? TRUE : FALSE);
  return Owned<GSimpleAction>(g_simple_action_new_stateful(name.c_str(), nullptr, state));
}

// Somebody may hold it still.
void retire(GSimpleAction* action) {
  g_simple_action_set_enabled(action, FALSE);
  g_signal_handlers_disconnect_matched(action, G_SIGNAL_MATCH_FUNC, 0, 0, nullptr,
                                       reinterpret_cast<gpointer>(activate), nullptr);
}

}  // namespace

std::string labelOf(std::string_view text) {
  std::string line = kvl::validUTF8(text.substr(0, kLongestLabel + 4));
  const std::size_t whole = wholeCharacters(line, kLongestLabel);
  const bool isCut = whole < line.size();
  line.resize(whole);
  std::string label;
  for (const char byte : line) {
    if (byte == '_') label += '_';
    label += isControl(byte) ? ' ' : byte;
  }
  return isCut ? label.append(kEllipsis) : label;
}

RowLook lookOf(const kvl::MenuItem& item) {
  std::string text = item.shownTitle();
  if (const auto subtitle = item.subtitle()) text += " – " + *subtitle;
  if (const auto badge = item.badge())
    text += " (" + kvl::localizedUpdateCount(badge->updates) + ")";
  return {labelOf(text), keysOf(item.keyEquivalent()), item.isEnabled() ? item.submenu() : nullptr};
}

RowAction::RowAction(std::shared_ptr<kvl::MenuItem> item, std::string name,
                     GSimpleActionGroup* group)
    : item_(std::move(item)),
      name_(std::move(name)),
      group_(static_cast<GSimpleActionGroup*>(g_object_ref(group))) {
  replace(markOf(*item_));
}

RowAction::~RowAction() {
  g_action_map_remove_action(G_ACTION_MAP(group_.get()), name_.c_str());
  retire(action_.get());
}

void RowAction::update() {
  const auto mark = markOf(*item_);
  if (mark.has_value() != mark_.has_value()) return replace(mark);
  const bool isEnabled = item_->isEnabled() && item_->action();
  g_simple_action_set_enabled(action_.get(), isEnabled ? TRUE : FALSE);
  if (mark == mark_) return;
  mark_ = mark;
  g_simple_action_set_state(action_.get(), g_variant_new_boolean(*mark ? TRUE : FALSE));
}

// Whether an action has a state is decided when it is made.
void RowAction::replace(std::optional<bool> mark) {
  mark_ = mark;
  if (action_) retire(action_.get());
  action_ = makeAction(name_, mark);
  g_signal_connect_data(action_.get(), "activate", G_CALLBACK(activate),
                        new std::shared_ptr<kvl::MenuItem>(item_), letGo, GConnectFlags{});
  update();
  g_action_map_add_action(G_ACTION_MAP(group_.get()), G_ACTION(action_.get()));
}

}  // namespace gtkhost
