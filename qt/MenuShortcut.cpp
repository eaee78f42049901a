#include "qt/MenuShortcut.h"

#include <local/qt/Conversions.h>

#include <QChar>
#include <QString>
#include <algorithm>
#include <array>
#include <optional>

namespace kvl::qt {
namespace {

constexpr std::size_t kLongestCharacter = 4;  // bytes of UTF-8

struct SpecialKey {
  char32_t character;
  int key;
};

constexpr std::array kSpecialKeys{
    SpecialKey{0x03, Qt::Key_Enter},        SpecialKey{0x08, Qt::Key_Backspace},
    SpecialKey{'\t', Qt::Key_Tab},          SpecialKey{'\n', Qt::Key_Return},
    SpecialKey{'\r', Qt::Key_Return},       SpecialKey{0x19, int{Qt::SHIFT} | int{Qt::Key_Backtab}},
    SpecialKey{0x1b, Qt::Key_Escape},       SpecialKey{' ', Qt::Key_Space},
    SpecialKey{0x7f, Qt::Key_Delete},       SpecialKey{0xf700, Qt::Key_Up},
    SpecialKey{0xf701, Qt::Key_Down},       SpecialKey{0xf702, Qt::Key_Left},
    SpecialKey{0xf703, Qt::Key_Right},      SpecialKey{0xf727, Qt::Key_Insert},
    SpecialKey{0xf728, Qt::Key_Delete},     SpecialKey{0xf729, Qt::Key_Home},
    SpecialKey{0xf72b, Qt::Key_End},        SpecialKey{0xf72c, Qt::Key_PageUp},
    SpecialKey{0xf72d, Qt::Key_PageDown},   SpecialKey{0xf72e, Qt::Key_Print},
    SpecialKey{0xf72f, Qt::Key_ScrollLock}, SpecialKey{0xf730, Qt::Key_Pause},
    SpecialKey{0xf731, Qt::Key_SysReq},     SpecialKey{0xf735, Qt::Key_Menu},
};
constexpr char32_t kFirstFunctionKey = 0xf704;
constexpr char32_t kLastFunctionKey = 0xf726;

std::optional<int> specialKey(char32_t character) {
  if (character >= kFirstFunctionKey && character <= kLastFunctionKey)
    return Qt::Key_F1 + static_cast<int>(character - kFirstFunctionKey);
  const auto* found = std::ranges::find(kSpecialKeys, character, &SpecialKey::character);
  return found != kSpecialKeys.end() ? std::optional(found->key) : std::nullopt;
}

constexpr char32_t kLatin = 0xff;  // the last character of Latin 1

// Keys have the names of upper-case letters, but for those that have none in Latin 1.
int keyOf(char32_t character) {
  const auto upper = QChar::toUpper(character);
  return static_cast<int>(character <= kLatin && upper > kLatin ? character : upper);
}

// None for what is no character of a keyboard.
std::optional<int> typedKey(char32_t character) {
  if (!QChar::isPrint(character) || QChar::isSpace(character) ||
      QChar::category(character) == QChar::Other_PrivateUse)
    return std::nullopt;
  const auto key = keyOf(character);
  return QChar::isUpper(character) ? int{Qt::SHIFT} | key : key;
}

}  // namespace

QKeySequence shortcutOf(std::string_view keyEquivalent) {
  if (keyEquivalent.empty() || keyEquivalent.size() > kLongestCharacter) return {};
  const auto characters = qString(keyEquivalent).toUcs4();
  if (characters.size() != 1 || characters[0] == QChar::ReplacementCharacter) return {};
  auto key = specialKey(characters[0]);
  if (!key) key = typedKey(characters[0]);
  return key ? QKeySequence(int{Qt::CTRL} | *key) : QKeySequence();
}

}  // namespace kvl::qt
