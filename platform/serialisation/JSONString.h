// Escapes in the strings of JSON.
#pragma once

#include <string>
#include <string_view>

namespace kvl::serialisation {

// Appends what stands between the quotes of a string, without its escapes. False for a malformed
// escape, and for half of a surrogate pair.
[[nodiscard]] bool appendUnescaped(std::string& text, std::string_view escaped);

}  // namespace kvl::serialisation
