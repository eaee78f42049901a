#include "platform/interface/binding/KeyEquivalent.h"

#include "platform/interface/binding/Characters.h"

#include <algorithm>
#include <array>

namespace kvl::interface {
namespace {

struct SpecialKey {
  char32_t character;
  Key::Kind kind;
};

constexpr std::array kSpecialKeys{
    SpecialKey{0x03, Key::Kind::enter},
    SpecialKey{0x08, Key::Kind::backspace},
    SpecialKey{'\t', Key::Kind::tab},
    SpecialKey{'\n', Key::Kind::returnKey},
    SpecialKey{'\r', Key::Kind::returnKey},
    SpecialKey{0x19, Key::Kind::backTab},
    SpecialKey{0x1b, Key::Kind::escape},
    SpecialKey{' ', Key::Kind::space},
    SpecialKey{0x7f, Key::Kind::deleteForward},
    SpecialKey{0xf700, Key::Kind::up},
    SpecialKey{0xf701, Key::Kind::down},
    SpecialKey{0xf702, Key::Kind::left},
    SpecialKey{0xf703, Key::Kind::right},
    SpecialKey{0xf727, Key::Kind::insert},
    SpecialKey{0xf728, Key::Kind::deleteForward},
    SpecialKey{0xf729, Key::Kind::home},
    SpecialKey{0xf72b, Key::Kind::end},
    SpecialKey{0xf72c, Key::Kind::pageUp},
    SpecialKey{0xf72d, Key::Kind::pageDown},
    SpecialKey{0xf72e, Key::Kind::print},
    SpecialKey{0xf72f, Key::Kind::scrollLock},
    SpecialKey{0xf730, Key::Kind::pause},
    SpecialKey{0xf731, Key::Kind::systemRequest},
    SpecialKey{0xf735, Key::Kind::menu},
};
constexpr std::size_t kLongestCharacter = 4;  // bytes of UTF-8
constexpr char32_t kFirstFunctionKey = 0xf704;
constexpr char32_t kLastFunctionKey = 0xf726;

}  // namespace

std::optional<Key> keyOf(std::string_view keyEquivalent) {
  if (keyEquivalent.size() > kLongestCharacter) return std::nullopt;
  if (keyEquivalent.starts_with(kByteOrderMark)) keyEquivalent.remove_prefix(kByteOrderMark.size());
  if (keyEquivalent.empty()) return std::nullopt;
  const auto [character, bytes] = firstCharacter(keyEquivalent);
  if (bytes != keyEquivalent.size() || character == kReplacementCharacter) return std::nullopt;
  if (character >= kFirstFunctionKey && character <= kLastFunctionKey)
    return Key{Key::Kind::function, 0, static_cast<int>(character - kFirstFunctionKey) + 1};
  const auto* found = std::ranges::find(kSpecialKeys, character, &SpecialKey::character);
  if (found != kSpecialKeys.end()) return Key{found->kind, 0, 0};
  return Key{Key::Kind::character, character, 0};
}

}  // namespace kvl::interface
