// Events as lines of text. One event is always one line, whatever stands in it.
#pragma once

#include <local/KVLEvent.h>

#include <string>
#include <string_view>

namespace kvlocal {

// For people and simple filters: the name, then "id=" and "data=" with their values when present,
// separated by tabs.
[[nodiscard]] std::string plainEventLine(const KVLEvent& event);

// An object with the properties "event", "data" and "id"; absent ones are left out.
[[nodiscard]] std::string jsonEventLine(const KVLEvent& event);

// `value` without characters that end lines, separate fields or steer terminals: backslashes, tabs
// and line ends become `\\`, `\t`, `\r` and `\n`, each byte of other steering characters and of
// what is not UTF-8 `\0` and three octal digits. Any shell's `printf %b` turns it back.
[[nodiscard]] std::string escaped(std::string_view value);

}  // namespace kvlocal
