// Reading text that may not be valid UTF-8.
#pragma once

#include <cstddef>
#include <string_view>

namespace kvl::interface {

inline constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
inline constexpr char32_t kReplacementCharacter = 0xfffd;

struct Character {
  char32_t value = kReplacementCharacter;
  std::size_t bytes = 1;
};

// The first character of `text`, which is not empty. A byte that begins no character is a
// replacement character by itself.
[[nodiscard]] inline Character firstCharacter(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  if (first < 0x80) return {first, 1};
  const std::size_t bytes = first >= 0xf0 ? 4 : first >= 0xe0 ? 3 : 2;
  if (first < 0xc2 || first > 0xf4 || text.size() < bytes) return {};
  char32_t value = first & (0x7fU >> bytes);
  for (std::size_t i = 1; i < bytes; ++i) {
    const auto next = static_cast<unsigned char>(text[i]);
    if ((next & 0xc0U) != 0x80) return {};
    value = value << 6U | (next & 0x3fU);
  }
  constexpr char32_t kLeast[] = {0, 0, 0x80, 0x800, 0x10000};  // by the number of bytes
  const bool isSurrogate = value >= 0xd800 && value <= 0xdfff;
  if (value < kLeast[bytes] || value > 0x10ffff || isSurrogate) return {};
  return {value, bytes};
}

}  // namespace kvl::interface
