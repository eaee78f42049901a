#include "eventstream/Text.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace kvl::eventstream {
namespace {

constexpr std::uint8_t kFirstForeignByte = 0x80;

// Every character of category Zs (Unicode 15) beyond ASCII, in UTF-8.
constexpr std::array<std::string_view, 16> kForeignSpaces = {
    "\u00a0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005",
    "\u2006", "\u2007", "\u2008", "\u2009", "\u200a", "\u202f", "\u205f", "\u3000"};

std::uint8_t byteAt(std::string_view bytes, std::size_t index) {
  return static_cast<std::uint8_t>(bytes[index]);
}

bool isASCIISpace(std::uint8_t byte) {
  return byte == ' ' || byte == '\t';
}

// The length of the space that the text begins with, or 0.
std::size_t leadingSpace(std::string_view text) {
  const std::uint8_t first = byteAt(text, 0);
  if (first < kFirstForeignByte) return isASCIISpace(first) ? 1 : 0;
  const auto space =
      std::ranges::find_if(kForeignSpaces, [text](auto each) { return text.starts_with(each); });
  return space == kForeignSpaces.end() ? 0 : space->size();
}

// The length of the space that the text ends with, or 0.
std::size_t trailingSpace(std::string_view text) {
  const std::uint8_t last = byteAt(text, text.size() - 1);
  if (last < kFirstForeignByte) return isASCIISpace(last) ? 1 : 0;
  const auto space =
      std::ranges::find_if(kForeignSpaces, [text](auto each) { return text.ends_with(each); });
  return space == kForeignSpaces.end() ? 0 : space->size();
}

}  // namespace

std::string_view trimmed(std::string_view text) noexcept {
  std::size_t space = 1;
  while (!text.empty() && (space = leadingSpace(text)) > 0) text.remove_prefix(space);
  while (!text.empty() && (space = trailingSpace(text)) > 0) text.remove_suffix(space);
  return text;
}

std::string escapingForeignBytes(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    const auto byte = byteAt(bytes, i);
    if (byte < kFirstForeignByte) {
      text += bytes[i];
    } else {
      text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    }
  }
  return text;
}

}  // namespace kvl::eventstream
