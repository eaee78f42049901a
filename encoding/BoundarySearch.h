// Looking for a boundary in the parts of a body.
#pragma once

#include <string_view>

namespace kvl::encoding {

// Whether `text` occurs in `bytes`. For texts that hardly ever do: it mostly costs half of what
// memmem(3) costs, and on the worst bytes, which are those of one letter repeated, three to four
// times that.
// @pre `text` is not empty
[[nodiscard]] bool occursIn(std::string_view bytes, std::string_view text) noexcept;

}  // namespace kvl::encoding
