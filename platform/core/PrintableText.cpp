#include <local/platform/PrintableText.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>

namespace kvl {
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
constexpr std::array kUnprintable{
    Range{0x0000, 0x001F},   Range{0x007F, 0x009F},   Range{0x00AD, 0x00AD},
    Range{0x061C, 0x061C},   Range{0x180E, 0x180E},   Range{0x200B, 0x200B},
    Range{0x200E, 0x200F},   Range{0x2028, 0x202E},   Range{0x2060, 0x2064},
    Range{0x2066, 0x206F},   Range{0xFEFF, 0xFEFF},   Range{0xFFF9, 0xFFFB},
    Range{0x1BCA0, 0x1BCA3}, Range{0x1D173, 0x1D17A}, Range{0xE0001, 0xE0001},
    Range{0xE0020, 0xE007F},
};

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
  return character >= ' ' && character <= '~';
}

char shortEscape(char character) {
  if (character == '\n') return 'n';
  if (character == '\r') return 'r';
  return character == '\t' ? 't' : '\0';
}

void appendByte(std::string& text, char character) {
  constexpr std::string_view digits = "0123456789abcdef";
  if (const char letter = shortEscape(character)) {
    text += {'\\', letter};
    return;
  }
  const auto byte = static_cast<unsigned char>(character);
  text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
}

void appendCodePoint(std::string& text, char32_t point) {
  std::array<char, 8> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(),
                                 static_cast<std::uint32_t>(point), 16)
                       .ptr;
  text.append("\\u{").append(digits.data(), end).append("}");
}

// Of a text that begins with something else than plain ASCII.
std::size_t appendNext(std::string& text, std::string_view rest) {
  const std::size_t length = characterLength(rest);
  if (length < 2) {
    appendByte(text, rest.front());
    return 1;
  }
  const auto character = rest.substr(0, length);
  const char32_t point = codePoint(character);
  if (isUnprintable(point)) {
    appendCodePoint(text, point);
  } else {
    text += character;
  }
  return length;
}

}  // namespace

std::size_t characterLength(std::string_view text) noexcept {
  if (text.empty()) return 0;
  const auto first = static_cast<unsigned char>(text.front());
  for (const Lead& lead : kLeads)
    if (first >= lead.first && first <= lead.last) return matches(lead, text) ? lead.length : 0;
  return 0;
}

char32_t codePoint(std::string_view character) noexcept {
  const auto first = static_cast<unsigned char>(character.front());
  if (character.size() == 1) return first;
  char32_t point = first & (0x7FU >> character.size());
  for (const char byte : character.substr(1))
    point = point << 6 | (static_cast<unsigned char>(byte) & 0x3FU);
  return point;
}

bool isUnprintable(char32_t codePoint) noexcept {
  return std::ranges::any_of(kUnprintable, [codePoint](const Range& range) {
    return codePoint >= range.first && codePoint <= range.last;
  });
}

std::string printable(std::string_view text) {
  std::string result;
  result.reserve(text.size());
  while (!text.empty()) {
    const auto* const plainEnd = std::ranges::find_if_not(text, isPlainASCII);
    result.append(text.begin(), plainEnd);
    text.remove_prefix(static_cast<std::size_t>(plainEnd - text.begin()));
    if (!text.empty()) text.remove_prefix(appendNext(result, text));
  }
  return result;
}

}  // namespace kvl
