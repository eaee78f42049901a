// Texts from outside, made fit to be shown.
#pragma once

#include <string>
#include <string_view>

namespace kvl::interface {

// The longest text that views show, in UTF-16 code units. What is longer ends with an ellipsis.
inline constexpr int kLongestShownText = 1000;

// One line: line breaks, tabs and other control characters become spaces, and bytes that are no
// UTF-8 become U+FFFD. Nothing beyond the longest text is looked at. Any thread.
[[nodiscard]] std::string shownLine(std::string_view text);

// The same with its line breaks, each as a line feed.
[[nodiscard]] std::string shownLines(std::string_view text);

}  // namespace kvl::interface
