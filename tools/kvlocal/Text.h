// Texts that show on a terminal what they hold, and from which a shell gets the values back.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace kvlocal {

// `value` without characters that end lines, separate fields or do something to terminals
// (kvl::isUnprintable): backslashes, tabs and line ends become `\\`, `\t`, `\r` and `\n`, each byte
// of other such characters and of what is not UTF-8 `\0` and three octal digits. Any shell's
// `printf %b` turns it back.
[[nodiscard]] std::string escaped(std::string_view value);

// The columns of a terminal that the characters take: letters of East Asia two, marks on others
// none.
[[nodiscard]] std::size_t columnsOf(std::string_view text);

// `text` with no line wider than `width` columns, which are above 8. Lines are broken at spaces or
// between wide letters where that is possible; what goes on stands below the second column of its
// line, if that begins in the first half of the width.
[[nodiscard]] std::string wrapped(std::string_view text, std::size_t width);

// What goes on while a body arrives whose answer gives its size with these words. They are a
// service's, so they are repeated only where they are a number.
[[nodiscard]] std::string receivingText(std::optional<std::string_view> contentLength);

}  // namespace kvlocal
