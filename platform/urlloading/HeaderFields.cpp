#include "platform/core/ASCII.h"
#include "platform/urlloading/Token.h"

#include <local/platform/URLRequest.h>

#include <algorithm>

namespace kvl {
namespace {

auto hasName(std::string_view name) {
  return [name](const HeaderFields::Field& field) {
    return ascii::equalIgnoringCase(field.first, name);
  };
}

}  // namespace

std::optional<std::string_view> HeaderFields::find(std::string_view name) const noexcept {
  const auto field = std::find_if(fields_.begin(), fields_.end(), hasName(name));
  if (field == fields_.end()) return std::nullopt;
  return field->second;
}

void HeaderFields::set(std::string_view name, std::string_view value) {
  const auto first = std::find_if(fields_.begin(), fields_.end(), hasName(name));
  if (first == fields_.end()) return append(name, value);
  // A new pair first: the arguments may be views of this very field.
  *first = Field(name, value);
  const std::string kept = first->first;
  fields_.erase(std::remove_if(first + 1, fields_.end(), hasName(kept)), fields_.end());
}

void HeaderFields::append(std::string_view name, std::string_view value) {
  fields_.push_back(Field(name, value));
}

void HeaderFields::remove(std::string_view name) {
  const std::string removed(name);
  std::erase_if(fields_, hasName(removed));
}

bool isSendableHeaderField(std::string_view name, std::string_view value) noexcept {
  constexpr std::string_view kForbidden("\r\n\0", 3);
  return urlloading::isToken(name) && value.find_first_of(kForbidden) == std::string_view::npos;
}

}  // namespace kvl
