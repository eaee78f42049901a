// Finds line ends in text, as fast as memory can be read.
#pragma once

#include <cstddef>
#include <string_view>

namespace kvl::core {

// The beginning of a text: a line without its end. Comes in registers.
struct ScannedLine {
  std::size_t length;
  bool isASCII;
};

// Finds the first line feed (U+000A) of `text`; without one the line is all of it.
using LineScan = ScannedLine (*)(std::string_view text);

// The fastest scan that this processor supports.
[[nodiscard]] LineScan lineScan() noexcept;

// A scan that runs on every processor.
[[nodiscard]] ScannedLine scanLinePortably(std::string_view text);

}  // namespace kvl::core
