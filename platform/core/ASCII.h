// Characters of ASCII. Bytes beyond it are none of these, whatever the locale.
#pragma once

#include <algorithm>
#include <string_view>

namespace kvl::ascii {

[[nodiscard]] constexpr bool isDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

[[nodiscard]] constexpr bool isLetter(char c) noexcept {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

[[nodiscard]] constexpr bool isLetterOrDigit(char c) noexcept {
  return isLetter(c) || isDigit(c);
}

[[nodiscard]] constexpr char toLower(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

[[nodiscard]] constexpr char toUpper(char c) noexcept {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// The value of a hexadecimal digit, or -1.
[[nodiscard]] constexpr int hexDigit(char c) noexcept {
  if (isDigit(c)) return c - '0';
  return toLower(c) >= 'a' && toLower(c) <= 'f' ? toLower(c) - 'a' + 10 : -1;
}

[[nodiscard]] constexpr bool equalIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return toLower(x) == toLower(y); });
}

// Without the spaces, tabs and line ends at both ends.
[[nodiscard]] constexpr std::string_view trimmed(std::string_view text) noexcept {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace kvl::ascii
