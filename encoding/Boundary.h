// Boundaries between the parts of a form request's body.
#pragma once

#include "platform/core/Random.h"

#include <cstddef>
#include <string>
#include <string_view>

namespace kvl::encoding {

// Characters of a boundary.
inline constexpr std::size_t kBoundaryLength = 12;

// A boundary of ASCII letters and digits, each drawn uniformly.
[[nodiscard]] std::string drawBoundary(const core::ByteSource& random);

// Whether `text` occurs in `bytes`. For texts that hardly ever do: it mostly costs half of what
// memmem(3) costs, and on the worst bytes, which are those of one letter repeated, three to four
// times that.
// @pre `text` is not empty
[[nodiscard]] bool occursIn(std::string_view bytes, std::string_view text) noexcept;

}  // namespace kvl::encoding
