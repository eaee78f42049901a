#include "tests/eventstream/ReferenceParser.h"

#include <cstdint>

namespace kvltest {
namespace {

// The characters of a UTF-8 text, or absent when it is none (RFC 3629).
std::optional<std::vector<char32_t>> decode(const std::string& text) {
  std::vector<char32_t> characters;
  for (std::size_t i = 0; i < text.size();) {
    const auto lead = static_cast<std::uint8_t>(text[i]);
    int more = 0;
    char32_t character = lead;
    char32_t least = 0;
    if (lead >= 0x80) {
      if (lead >= 0xf0 && lead < 0xf8) {
        more = 3, character = lead & 0x07U, least = 0x10000;
      } else if (lead >= 0xe0 && lead < 0xf0) {
        more = 2, character = lead & 0x0fU, least = 0x800;
      } else if (lead >= 0xc0 && lead < 0xe0) {
        more = 1, character = lead & 0x1fU, least = 0x80;
      } else {
        return std::nullopt;
      }
    }
    ++i;
    for (; more > 0; --more, ++i) {
      if (i == text.size()) return std::nullopt;
      const auto next = static_cast<std::uint8_t>(text[i]);
      if ((next & 0xc0U) != 0x80U) return std::nullopt;
      character = (character << 6U) | (next & 0x3fU);
    }
    if (character < least || character > 0x10ffff) return std::nullopt;
    if (character >= 0xd800 && character <= 0xdfff) return std::nullopt;
    characters.push_back(character);
  }
  return characters;
}

std::string encode(const std::vector<char32_t>& characters) {
  std::string text;
  for (const char32_t c : characters) {
    if (c < 0x80) {
      text += static_cast<char>(c);
    } else if (c < 0x800) {
      text += static_cast<char>(0xc0U | c >> 6U);
      text += static_cast<char>(0x80U | (c & 0x3fU));
    } else if (c < 0x10000) {
      text += static_cast<char>(0xe0U | c >> 12U);
      text += static_cast<char>(0x80U | (c >> 6U & 0x3fU));
      text += static_cast<char>(0x80U | (c & 0x3fU));
    } else {
      text += static_cast<char>(0xf0U | c >> 18U);
      text += static_cast<char>(0x80U | (c >> 12U & 0x3fU));
      text += static_cast<char>(0x80U | (c >> 6U & 0x3fU));
      text += static_cast<char>(0x80U | (c & 0x3fU));
    }
  }
  return text;
}

bool isSpace(char32_t c) {
  return c == 0x09 || c == 0x20 || c == 0xa0 || c == 0x1680 || (c >= 0x2000 && c <= 0x200a) ||
         c == 0x202f || c == 0x205f || c == 0x3000;
}

std::string withoutSpaceAtEnds(const std::string& text) {
  auto characters = *decode(text);
  while (!characters.empty() && isSpace(characters.front())) characters.erase(characters.begin());
  while (!characters.empty() && isSpace(characters.back())) characters.pop_back();
  return encode(characters);
}

std::string escaped(const std::string& line) {
  if (decode(line)) return line;
  static const char* digits = "0123456789abcdef";
  std::string text;
  for (const char c : line) {
    const auto byte = static_cast<std::uint8_t>(c);
    if (byte < 0x80) {
      text += c;
    } else {
      text += std::string("\\x") + digits[byte / 16] + digits[byte % 16];
    }
  }
  return text;
}

std::string shown(const std::optional<std::string>& text) {
  return text ? *text : "(null)";
}

}  // namespace

std::string ReferenceEvent::description() const {
  return "event:" + shown(event) + ",data:" + shown(data) + ",id:" + shown(identifier);
}

std::vector<ReferenceEvent> ReferenceParser::read(std::string_view chunk) {
  std::vector<std::string> lines;
  for (const char byte : chunk) {
    if (byte == '\n') {
      lines.push_back(carried_);
      carried_.clear();
    } else {
      carried_ += byte;
    }
  }
  current_ = {};
  std::vector<ReferenceEvent> events;
  for (const auto& line : lines) {
    const auto colon = line.find(':');
    if (line.empty()) {
      if (!current_.event || current_.event->empty()) continue;
      if (current_.identifier) lastEventID_ = current_.identifier;
      events.push_back(current_);
      current_ = {};
    } else if (line.size() > longestLine_) {
      current_ = {};
    } else if (colon == std::string::npos || !decode(line)) {
      malformedLines_.push_back(escaped(line));
      current_ = {};
    } else {
      readField(line, colon);
    }
  }
  return events;
}

void ReferenceParser::readField(const std::string& line, std::size_t colon) {
  const std::string name = line.substr(0, colon);
  const std::string value = withoutSpaceAtEnds(line.substr(colon + 1));
  if (name == "event") current_.event = value;
  if (name == "id") current_.identifier = value;
  if (name == "data" && !current_.data) current_.data = value;
}

}  // namespace kvltest
