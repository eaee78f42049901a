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

[[nodiscard]] constexpr bool isBlank(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Without the spaces, tabs and line ends at both ends.
[[nodiscard]] constexpr std::string_view trimmed(std::string_view text) noexcept {
  while (!text.empty() && isBlank(text.front())) text.remove_prefix(1);
  while (!text.empty() && isBlank(text.back())) text.remove_suffix(1);
  return text;
}

}  // namespace kvl::ascii
