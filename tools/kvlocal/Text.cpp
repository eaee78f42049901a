#include "tools/kvlocal/Text.h"

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
constexpr std::array kEscapedRanges{Range{0x0080, 0x009F}, Range{0x2028, 0x202E},
                                    Range{0x2066, 0x2069}};

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

bool isPlainASCII(char character) {
  return character >= ' ' && character <= '~' && character != '\\';
}

bool isPlain(std::string_view character) {
  return character.size() > 1 && !needsEscaping(codePoint(character));
}

char shortEscape(char character) {
  switch (character) {
    case '\\':
      return '\\';
    case '\t':
      return 't';
    case '\r':
      return 'r';
    case '\n':
      return 'n';
    default:
      return '\0';
  }
}

void appendEscape(std::string& text, char character) {
  text += '\\';
  if (const char letter = shortEscape(character)) {
    text += letter;
    return;
  }
  // Always four digits: what follows may be a digit too.
  const auto byte = static_cast<unsigned char>(character);
  text += '0';
  for (int shift = 6; shift >= 0; shift -= 3) text += static_cast<char>('0' + (byte >> shift & 7));
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

bool needsEscaping(char32_t codePoint) {
  return std::ranges::any_of(kEscapedRanges, [codePoint](const Range& range) {
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

std::string escaped(std::string_view value) {
  std::string text;
  while (!value.empty()) {
    const auto* const plainEnd = std::ranges::find_if_not(value, isPlainASCII);
    text.append(value.begin(), plainEnd);
    value.remove_prefix(static_cast<std::size_t>(plainEnd - value.begin()));
    if (value.empty()) break;
    const auto character = value.substr(0, std::max<std::size_t>(characterLength(value), 1));
    if (isPlain(character)) {
      text += character;
    } else {
      for (const char byte : character) appendEscape(text, byte);
    }
    value.remove_prefix(character.size());
  }
  return text;
}

}  // namespace kvlocal
