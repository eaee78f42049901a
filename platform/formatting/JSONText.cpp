#include "platform/formatting/RFC3339.h"

#include <local/platform/PrintableText.h>
#include <local/platform/Text.h>

#include <array>
#include <charconv>
#include <cmath>
#include <utility>
#include <vector>

namespace kvl {
namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";
constexpr std::string_view kHexDigits = "0123456789abcdef";

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
  const char32_t point = codePoint(character);
  if (isUnprintable(point)) return appendUnicodeEscape(json, point);
  json += character;
}

void appendString(std::string& json, std::string_view text) {
  json += '"';
  while (!text.empty()) {
    const std::size_t length = characterLength(text);
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

std::string dateText(Date date) {
  return formatting::rfc3339Formatter(formatting::SecondFraction::none).stringFromDate(date);
}

// What is no container.
void appendScalar(std::string& json, const Value& value) {
  switch (value.kind()) {
    case Value::Kind::boolean:
      json += *value.boolean() ? "true" : "false";
      return;
    case Value::Kind::integer:
      json += std::to_string(*value.integer());
      return;
    case Value::Kind::real:
      return appendReal(json, *value.real());
    case Value::Kind::date:
      return appendString(json, dateText(*value.date()));
    case Value::Kind::string:
      return appendString(json, *value.string());
    case Value::Kind::data:
      return appendString(json, base64(value.data()->bytes()));
    case Value::Kind::object:
      return appendString(json, value.object()->description());
    default:
      json += "null";
      return;
  }
}

// Writes one value. Containers that have been opened wait in a list of their own, since no thread's
// stack is as large as a document may be deep.
class Writer {
 public:
  explicit Writer(std::string& json) : json_(json) {}

  void write(const Value& value) {
    open(value);
    while (!open_.empty()) writeNext();
  }

 private:
  // What is left of a container, which the value that is written keeps alive.
  struct Container {
    bool isArray = false;
    const Value* element = nullptr;            // the next of an array
    const Dictionary::Entry* entry = nullptr;  // and of a dictionary
    std::size_t left = 0;
    bool hasBegun = false;
  };

  void open(const Value& value) {
    if (const auto array = value.array()) {
      json_ += '[';
      open_.push_back({.isArray = true, .element = array->begin(), .left = array->size()});
    } else if (const auto dictionary = value.dictionary()) {
      json_ += '{';
      open_.push_back({.entry = dictionary->begin(), .left = dictionary->size()});
    } else {
      appendScalar(json_, value);
    }
  }

  void writeNext() {
    Container& container = open_.back();
    if (container.left == 0) {
      json_ += container.isArray ? ']' : '}';
      open_.pop_back();
      return;
    }
    if (std::exchange(container.hasBegun, true)) json_ += ',';
    --container.left;
    if (container.isArray) return open(*container.element++);
    const auto& [key, value] = *container.entry++;
    appendString(json_, key);
    json_ += ':';
    open(value);
  }

  std::string& json_;
  std::vector<Container> open_;
};

}  // namespace

std::string jsonText(const Value& value) {
  std::string json;
  Writer(json).write(value);
  return json;
}

}  // namespace kvl
