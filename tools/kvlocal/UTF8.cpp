#include "tools/kvlocal/UTF8.h"

#include <algorithm>
#include <array>

namespace kvlocal {
namespace {

// What RFC 3629 allows for a first byte: the character's length and the range of its second byte.
struct Lead {
  unsigned char first, last;
  std::size_t length;
  unsigned char secondMinimum, secondMaximum;
};
constexpr std::array kLeads{
    Lead{0x00, 0x7F, 1, 0x00, 0x00}, Lead{0xC2, 0xDF, 2, 0x80, 0xBF},
    Lead{0xE0, 0xE0, 3, 0xA0, 0xBF}, Lead{0xE1, 0xEC, 3, 0x80, 0xBF},
    Lead{0xED, 0xED, 3, 0x80, 0x9F}, Lead{0xEE, 0xEF, 3, 0x80, 0xBF},
    Lead{0xF0, 0xF0, 4, 0x90, 0xBF}, Lead{0xF1, 0xF3, 4, 0x80, 0xBF},
    Lead{0xF4, 0xF4, 4, 0x80, 0x8F},
};

struct Range {
  char32_t first, last;
};
constexpr std::array kSteering{Range{0x0080, 0x009F}, Range{0x2028, 0x202E}, Range{0x2066, 0x2069}};

bool matches(const Lead& lead, std::string_view text) {
  if (text.size() < lead.length) return false;
  for (std::size_t i = 1; i < lead.length; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    const unsigned char minimum = i == 1 ? lead.secondMinimum : 0x80;
    const unsigned char maximum = i == 1 ? lead.secondMaximum : 0xBF;
    if (byte < minimum || byte > maximum) return false;
  }
  return true;
}

}  // namespace

std::size_t characterLength(std::string_view text) {
  if (text.empty()) return 0;
  const auto first = static_cast<unsigned char>(text.front());
  for (const Lead& lead : kLeads)
    if (first >= lead.first && first <= lead.last) return matches(lead, text) ? lead.length : 0;
  return 0;
}

char32_t codePoint(std::string_view character) {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first;
  char32_t point = first & (0x7FU >> character.size());
  for (const char byte : character.substr(1))
    point = point << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
  return point;
}

bool isSteering(char32_t codePoint) {
  return std::ranges::any_of(kSteering, [codePoint](const Range& range) {
    return codePoint >= range.first && codePoint <= range.last;
  });
}

bool isUTF8(std::string_view text) {
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
    if (length == 0) return false;
    text.remove_prefix(length);
  }
  return true;
}

}  // namespace kvlocal
