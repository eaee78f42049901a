#include "tools/kvlocal/Text.h"

#include "tools/kvlocal/Words.h"

#include <local/platform/PrintableText.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <span>

namespace kvlocal {
namespace {

bool isPlainASCII(char character) {
  return character >= ' ' && character <= '~' && character != '\\';
}

bool isPlain(std::string_view character) {
  return character.size() > 1 && !kvl::isUnprintable(kvl::codePoint(character));
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

struct Range {
  char32_t first;
  char32_t last;
};
constexpr std::array kWide{Range{0x1100, 0x115F},  Range{0x2E80, 0x303E}, Range{0x3041, 0xA4CF},
                           Range{0xAC00, 0xD7A3},  Range{0xF900, 0xFAFF}, Range{0xFE30, 0xFE6F},
                           Range{0xFF00, 0xFF60},  Range{0xFFE0, 0xFFE6}, Range{0x1F300, 0x1FAFF},
                           Range{0x20000, 0x3FFFD}};
constexpr std::array kWithoutWidth{Range{0x300, 0x36F}, Range{0x200B, 0x200F},
                                   Range{0x2060, 0x206F}, Range{0xFE00, 0xFE0F}};

bool isIn(std::span<const Range> ranges, char32_t character) {
  return std::ranges::any_of(ranges, [character](const Range& range) {
    return character >= range.first && character <= range.last;
  });
}

std::size_t columnsOf(char32_t character) {
  if (isIn(kWithoutWidth, character)) return 0;
  return isIn(kWide, character) ? 2 : 1;
}

// A character and how many bytes it has; of what is not UTF-8, a byte.
struct Letter {
  char32_t code;
  std::size_t length;
};

Letter letterAt(std::string_view text, std::size_t at) {
  const std::size_t length = kvl::characterLength(text.substr(at));
  if (length == 0) return {U'\xFFFD', 1};
  return {kvl::codePoint(text.substr(at, length)), length};
}

// Whether a line may end between the two: nothing begins with what closes.
bool mayBreak(char32_t before, char32_t after) {
  constexpr std::u32string_view kClosing = U"、。，．・：；！？）」』】ー";
  constexpr std::u32string_view kOpening = U"（「『【";
  if (after == U' ') return true;
  if (before == U' ' || !(isIn(kWide, before) || isIn(kWide, after))) return false;
  return kClosing.find(after) == std::u32string_view::npos &&
         kOpening.find(before) == std::u32string_view::npos;
}

// Where a line that is wider than `room` ends.
std::size_t endOf(std::string_view line, std::size_t room) {
  // Spaces at the start are the line's own indent, no place to break it.
  const std::size_t start = line.find_first_not_of(' ');
  std::size_t best = 0;
  std::size_t columns = 0;
  char32_t before = U' ';
  for (std::size_t at = 0; at < line.size();) {
    const Letter letter = letterAt(line, at);
    if (at > start && mayBreak(before, letter.code)) best = at;
    columns += columnsOf(letter.code);
    if (columns > room) return best > 0 ? best : std::max(at, letter.length);
    at += letter.length;
    before = letter.code;
  }
  return line.size();
}

// Where what goes on below the line begins.
std::size_t hangingIndent(std::string_view line, std::size_t width) {
  const std::size_t first = line.find_first_not_of(' ');
  const std::size_t gap = line.find("  ", first);
  const std::size_t second = gap == std::string_view::npos ? gap : line.find_first_not_of(' ', gap);
  if (second == std::string_view::npos) return std::min(first + 2, width / 2);
  const std::size_t column = kvlocal::columnsOf(line.substr(0, second));
  return column <= width / 2 ? column : std::min(first + 2, width / 2);
}

void appendWrapped(std::string& text, std::string_view line, std::size_t width) {
  std::size_t indent = 0;
  const std::size_t hanging = kvlocal::columnsOf(line) > width ? hangingIndent(line, width) : 0;
  while (kvlocal::columnsOf(line) + indent > width) {
    const std::size_t end = endOf(line, width - indent);
    text.append(line.substr(0, end)).append("\n").append(hanging, ' ');
    line.remove_prefix(std::min(line.find_first_not_of(' ', end), line.size()));
    indent = hanging;
  }
  text += line;
}

}  // namespace

std::size_t columnsOf(std::string_view text) {
  std::size_t columns = 0;
  for (std::size_t at = 0; at < text.size();) {
    const Letter letter = letterAt(text, at);
    columns += columnsOf(letter.code);
    at += letter.length;
  }
  return columns;
}

std::string wrapped(std::string_view text, std::size_t width) {
  std::string result;
  for (;;) {
    const std::size_t end = text.find('\n');
    appendWrapped(result, text.substr(0, end), width);
    if (end == std::string_view::npos) return result;
    result += '\n';
    text.remove_prefix(end + 1);
  }
}

std::string receivingText(std::optional<std::string_view> contentLength) {
  const auto isDigit = [](char character) { return character >= '0' && character <= '9'; };
  const bool isNumber =
      contentLength && !contentLength->empty() && std::ranges::all_of(*contentLength, isDigit);
  if (!isNumber) return tr("receiving the answer");
  return tr("receiving %@ bytes", *contentLength);
}

std::string escaped(std::string_view value) {
  std::string text;
  while (!value.empty()) {
    const auto* const plainEnd = std::ranges::find_if_not(value, isPlainASCII);
    text.append(value.begin(), plainEnd);
    value.remove_prefix(static_cast<std::size_t>(plainEnd - value.begin()));
    if (value.empty()) break;
    const auto character = value.substr(0, std::max<std::size_t>(kvl::characterLength(value), 1));
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
