#include "devservice/service/Json.h"

#include <array>
#include <cstdio>

namespace devservice {

std::string jsonString(std::string_view text) {
  std::string result = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') {
      result += {'\\', character};
    } else if (static_cast<unsigned char>(character) < ' ') {
      std::array<char, 8> escape{};
      std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(character));
      result += escape.data();
    } else {
      result += character;
    }
  }
  return result + "\"";
}

JsonObject& JsonObject::add(std::string_view key, std::string_view text) {
  return addJson(key, jsonString(text));
}

JsonObject& JsonObject::add(std::string_view key, std::int64_t number) {
  return addJson(key, std::to_string(number));
}

JsonObject& JsonObject::add(std::string_view key, const JsonObject& object) {
  return addJson(key, object.text());
}

JsonObject& JsonObject::addJson(std::string_view key, std::string_view json) {
  if (!entries_.empty()) entries_ += ',';
  entries_ += jsonString(key) + ":" + std::string(json);
  return *this;
}

JsonArray& JsonArray::add(std::string_view json) {
  if (!elements_.empty()) elements_ += ',';
  elements_ += json;
  return *this;
}

}  // namespace devservice
