// Text comparisons of HTTP, which know ASCII letters only.
#pragma once

#include <algorithm>
#include <string_view>

namespace kvl::urlloading {

[[nodiscard]] constexpr char lowered(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

[[nodiscard]] constexpr bool equalIgnoringCase(std::string_view a, std::string_view b) noexcept {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lowered(x) == lowered(y); });
}

// Without the spaces and tabs at both ends (RFC 9110, 5.6.3).
[[nodiscard]] constexpr std::string_view trimmed(std::string_view text) noexcept {
  constexpr std::string_view kOptionalWhitespace = " \t\r\n";
  const auto first = text.find_first_not_of(kOptionalWhitespace);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kOptionalWhitespace) - first + 1);
}

// Whether `text` is a token (RFC 9110, 5.6.2).
[[nodiscard]] constexpr bool isToken(std::string_view text) noexcept {
  constexpr std::string_view kPunctuation = "!#$%&'*+-.^_`|~";
  const auto isTokenCharacter = [&](char c) {
    return (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') ||
           kPunctuation.find(c) != std::string_view::npos;
  };
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

}  // namespace kvl::urlloading
