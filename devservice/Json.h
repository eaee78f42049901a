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
  [[nodiscard]] std::string text() const { return "{" + entries_ + "}"; }

 private:
  JsonObject& addRaw(std::string_view key, std::string_view json);

  std::string entries_;
};

}  // namespace devservice
