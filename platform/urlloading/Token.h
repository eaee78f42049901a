// Names in HTTP.
#pragma once

#include "platform/core/ASCII.h"

#include <algorithm>
#include <string_view>

namespace kvl::urlloading {

// Whether `text` is a token (RFC 9110, 5.6.2).
[[nodiscard]] constexpr bool isToken(std::string_view text) noexcept {
  constexpr std::string_view kPunctuation = "!#$%&'*+-.^_`|~";
  const auto isTokenCharacter = [&](char c) {
    return ascii::isLetterOrDigit(c) || kPunctuation.find(c) != std::string_view::npos;
  };
  return !text.empty() && std::all_of(text.begin(), text.end(), isTokenCharacter);
}

}  // namespace kvl::urlloading
