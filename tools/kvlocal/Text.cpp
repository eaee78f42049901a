#include "tools/kvlocal/Text.h"

#include <local/platform/PrintableText.h>

#include <algorithm>
#include <cstddef>

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

// Where what goes on below the line begins.
std::size_t hangingIndent(std::string_view line, std::size_t width) {
  const std::size_t first = line.find_first_not_of(' ');
  const std::size_t gap = line.find("  ", first);
  const std::size_t second = gap == std::string_view::npos ? gap : line.find_first_not_of(' ', gap);
  if (second <= width / 2) return second;
  return std::min(first + 2, width / 2);
}

void appendWrapped(std::string& text, std::string_view line, std::size_t width) {
  std::size_t indent = 0;
  const std::size_t hanging = line.size() > width ? hangingIndent(line, width) : 0;
  while (line.size() + indent > width) {
    const std::size_t room = width - indent;
    // Spaces at the start are the line's own indent, no place to break it.
    const std::size_t start = line.find_first_not_of(' ');
    const std::size_t space = line.rfind(' ', room);
    const bool breaksAtSpace = space != std::string_view::npos && space > start;
    const std::size_t end = breaksAtSpace ? space : room;
    text.append(line.substr(0, end)).append("\n").append(hanging, ' ');
    line.remove_prefix(std::min(line.find_first_not_of(' ', end), line.size()));
    indent = hanging;
  }
  text += line;
}

}  // namespace

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
  if (!isNumber) return "receiving the answer";
  return "receiving " + std::string(*contentLength) + " bytes";
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
