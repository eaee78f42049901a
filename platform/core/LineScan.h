// Finds line ends in text, as fast as memory can be read.
#pragma once

#include <string_view>

namespace kvl::core {

// A line without its end.
struct ScannedLine {
  std::string_view text;
  bool isASCII;
};

// Finds the first line feed (U+000A) of `text`; without one the line is all of it.
using LineScan = ScannedLine (*)(std::string_view text);

// The fastest scan that this processor supports.
[[nodiscard]] LineScan lineScan() noexcept;

// A scan that runs on every processor.
[[nodiscard]] ScannedLine scanLinePortably(std::string_view text);

}  // namespace kvl::core
