#include "tools/kvlocal/EventText.h"

#include "tools/kvlocal/JSON.h"
#include "tools/kvlocal/UTF8.h"

#include <algorithm>

namespace kvlocal {
namespace {

bool isPlainASCII(char character) {
  return character >= ' ' && character <= '~' && character != '\\';
}

bool isPlain(std::string_view character) {
  return character.size() > 1 && !isSteering(codePoint(character));
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

std::string plainEventLine(const KVLEvent& event) {
  std::string line = escaped(event.event().value_or(""));
  if (const auto identifier = event.identifier()) line += "\tid=" + escaped(*identifier);
  if (const auto data = event.data()) line += "\tdata=" + escaped(*data);
  return line + '\n';
}

std::string jsonEventLine(const KVLEvent& event) {
  kvl::Dictionary value;
  if (const auto name = event.event()) value.set("event", *name);
  if (const auto data = event.data()) value.set("data", *data);
  if (const auto identifier = event.identifier()) value.set("id", *identifier);
  return jsonText(value) + '\n';
}

}  // namespace kvlocal
