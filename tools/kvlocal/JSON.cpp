#include "tools/kvlocal/JSON.h"

#include <local/KVLExtensionsDateFormatter.h>
#include <local/platform/PrintableText.h>

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>

namespace kvlocal {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";
constexpr std::string_view kHexDigits = "0123456789abcdef";
constexpr std::string_view kBase64Digits =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void appendEscape(std::string& json, char32_t unit) {
  json += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) json += kHexDigits[unit >> shift & 0xF];
}

// Characters from U+10000 on are two surrogates in JSON.
void appendUnicodeEscape(std::string& json, char32_t codePoint) {
  constexpr char32_t kFirstLong = 0x10000;
  if (codePoint < kFirstLong) return appendEscape(json, codePoint);
  appendEscape(json, 0xD800 + ((codePoint - kFirstLong) >> 10));
  appendEscape(json, 0xDC00 + ((codePoint - kFirstLong) & 0x3FF));
}

void appendASCII(std::string& json, char character) {
  switch (character) {
    case '"':
      json += "\\\"";
      return;
    case '\\':
      json += "\\\\";
      return;
    case '\n':
      json += "\\n";
      return;
    case '\r':
      json += "\\r";
      return;
    case '\t':
      json += "\\t";
      return;
    default:
      break;
  }
  const auto byte = static_cast<unsigned char>(character);
  if (byte >= 0x20 && byte != 0x7F) {
    json += character;
    return;
  }
  appendUnicodeEscape(json, byte);
}

void appendCharacter(std::string& json, std::string_view character) {
  if (character.size() == 1) return appendASCII(json, character.front());
  const char32_t point = kvl::codePoint(character);
  if (kvl::isUnprintable(point)) return appendUnicodeEscape(json, point);
  json += character;
}

void appendString(std::string& json, std::string_view text) {
  json += '"';
  while (!text.empty()) {
    const std::size_t length = kvl::characterLength(text);
    if (length == 0) {
      json += kReplacementCharacter;
    } else {
      appendCharacter(json, text.substr(0, length));
    }
    text.remove_prefix(length == 0 ? 1 : length);
  }
  json += '"';
}

void appendReal(std::string& json, double number) {
  if (!std::isfinite(number)) {
    json += "null";
    return;
  }
  std::array<char, 32> digits{};
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr;
  json.append(digits.data(), end);
}

void appendValue(std::string& json, const kvl::Value& value);

void appendArray(std::string& json, const kvl::Array& array) {
  json += '[';
  const char* separator = "";
  for (const kvl::Value& element : array) {
    json += separator;
    appendValue(json, element);
    separator = ",";
  }
  json += ']';
}

void appendDictionary(std::string& json, const kvl::Dictionary& dictionary) {
  json += '{';
  const char* separator = "";
  for (const auto& [key, value] : dictionary) {
    json += separator;
    appendString(json, key);
    json += ':';
    appendValue(json, value);
    separator = ",";
  }
  json += '}';
}

void appendValue(std::string& json, const kvl::Value& value) {
  using Kind = kvl::Value::Kind;
  switch (value.kind()) {
    case Kind::null:
      json += "null";
      return;
    case Kind::boolean:
      json += *value.boolean() ? "true" : "false";
      return;
    case Kind::integer:
      json += std::to_string(*value.integer());
      return;
    case Kind::real:
      return appendReal(json, *value.real());
    case Kind::date:
      return appendString(json, dateText(*value.date()));
    case Kind::string:
      return appendString(json, *value.string());
    case Kind::data:
      return appendString(json, base64(value.data()->text()));
    case Kind::array:
      return appendArray(json, *value.array());
    case Kind::dictionary:
      return appendDictionary(json, *value.dictionary());
    case Kind::object:
      return appendString(json, value.object()->description());
  }
}

std::uint32_t threeBytes(std::string_view bytes) {
  std::uint32_t group = 0;
  for (std::size_t i = 0; i < 3; ++i)
    group = group << 8 | (i < bytes.size() ? static_cast<unsigned char>(bytes[i]) : 0U);
  return group;
}

}  // namespace

std::string jsonText(const kvl::Value& value) {
  std::string json;
  appendValue(json, value);
  return json;
}

std::string dateText(kvl::Date date) {
  return KVLExtensions::rfc3339().stringFromDate(date);
}

std::string base64(std::string_view bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (; !bytes.empty(); bytes.remove_prefix(std::min<std::size_t>(3, bytes.size()))) {
    const std::uint32_t group = threeBytes(bytes);
    text += kBase64Digits[group >> 18];
    text += kBase64Digits[group >> 12 & 63];
    text += bytes.size() > 1 ? kBase64Digits[group >> 6 & 63] : '=';
    text += bytes.size() > 2 ? kBase64Digits[group & 63] : '=';
  }
  return text;
}

}  // namespace kvlocal
