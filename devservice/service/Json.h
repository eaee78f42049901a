// JSON text of the small documents that the development service makes up.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace devservice {

// With quotation marks. Bytes that are not UTF-8 must not get here.
[[nodiscard]] std::string jsonString(std::string_view text);

// Collects the entries of one object, in order.
class JsonObject {
 public:
  JsonObject& add(std::string_view key, std::string_view text);
  JsonObject& add(std::string_view key, std::int64_t number);
  JsonObject& add(std::string_view key, const JsonObject& object);
  // `json` is the text of any value.
  JsonObject& addJson(std::string_view key, std::string_view json);
  [[nodiscard]] std::string text() const { return "{" + entries_ + "}"; }

 private:
  std::string entries_;
};

// Collects the elements of one array, each the text of any value.
class JsonArray {
 public:
  JsonArray& add(std::string_view json);
  [[nodiscard]] std::string text() const { return "[" + elements_ + "]"; }

 private:
  std::string elements_;
};

}  // namespace devservice
