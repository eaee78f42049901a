// The parameters of a request's query.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace devservice {

// By name, in the order of the query for one name.
using Parameters = std::multimap<std::string, std::string>;

// The first one of this name.
[[nodiscard]] std::optional<std::string> parameter(const Parameters& parameters, const char* name);

// The whole number, in decimal digits, that a text is.
[[nodiscard]] std::optional<std::int64_t> wholeNumber(std::string_view text);

// The number that a parameter holds, if there is one and it lies between the bounds.
[[nodiscard]] std::optional<std::int64_t> number(const Parameters& parameters, const char* name,
                                                 std::int64_t least, std::int64_t most);

}  // namespace devservice
