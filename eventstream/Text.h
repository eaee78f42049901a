// What the event-stream grammar needs to know about text.
#pragma once

#include <string>
#include <string_view>

namespace kvl::eventstream {

// Without tabs and Unicode space separators (category Zs) at both ends. The text is UTF-8.
[[nodiscard]] std::string_view trimmed(std::string_view text) noexcept;

// The bytes with everything outside ASCII written as \xNN.
[[nodiscard]] std::string escapingForeignBytes(std::string_view bytes);

}  // namespace kvl::eventstream
