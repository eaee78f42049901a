// Characters of text in UTF-8 (RFC 3629), and texts that show on a terminal what they hold.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace kvlocal {

// The length in bytes of the valid character that `text` begins with, or 0.
[[nodiscard]] std::size_t characterLength(std::string_view text);

// The code point of one valid character.
[[nodiscard]] char32_t codePoint(std::string_view character);

// Whether a character beyond ASCII would do something to a terminal instead of showing there: the
// C1 controls, the line and paragraph separators, and what changes the direction of the text around
// it. All are below U+10000.
[[nodiscard]] bool needsEscaping(char32_t codePoint);

[[nodiscard]] bool isUTF8(std::string_view text);

// `value` without characters that end lines, separate fields or control terminals: backslashes,
// tabs and line ends become `\\`, `\t`, `\r` and `\n`, each byte of other such characters and of
// what is not UTF-8 `\0` and three octal digits. Any shell's `printf %b` turns it back.
[[nodiscard]] std::string escaped(std::string_view value);

}  // namespace kvlocal
