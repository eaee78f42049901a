// What a decoder that a hostile image has taken over might try.
#pragma once

#include <optional>
#include <string>

namespace kvltest {

// Tries what `words` say, such as "open /etc/passwd", without the C library between. The error's
// number, or 0, or what was to be counted. None when there is no such attempt.
[[nodiscard]] std::optional<int> attempt(const std::string& words);

}  // namespace kvltest
