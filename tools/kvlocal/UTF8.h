// Characters of text in UTF-8 (RFC 3629).
#pragma once

#include <cstddef>
#include <string_view>

namespace kvlocal {

// The length in bytes of the valid character that `text` begins with, or 0.
[[nodiscard]] std::size_t characterLength(std::string_view text);

// The code point of one valid character.
[[nodiscard]] char32_t codePoint(std::string_view character);

// Whether a character beyond ASCII steers who shows it: the C1 controls, the line and paragraph
// separators, and what changes the direction of the text around it. All are below U+10000.
[[nodiscard]] bool isSteering(char32_t codePoint);

[[nodiscard]] bool isUTF8(std::string_view text);

}  // namespace kvlocal
