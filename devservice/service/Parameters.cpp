#include "devservice/service/Parameters.h"

#include <charconv>

namespace devservice {

std::optional<std::string> parameter(const Parameters& parameters, const char* name) {
  const auto found = parameters.lower_bound(name);
  if (found == parameters.end() || found->first != name) return std::nullopt;
  return found->second;
}

std::optional<std::int64_t> wholeNumber(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<std::int64_t> number(const Parameters& parameters, const char* name,
                                   std::int64_t least, std::int64_t most) {
  const auto value = wholeNumber(parameter(parameters, name).value_or(""));
  if (!value || *value < least || *value > most) return std::nullopt;
  return value;
}

}  // namespace devservice
