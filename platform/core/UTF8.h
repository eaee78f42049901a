// Text in UTF-8.
#pragma once

#include <string_view>

namespace kvl::core {

// Whether the bytes are well-formed UTF-8 (RFC 3629).
[[nodiscard]] bool isUTF8(std::string_view bytes) noexcept;

}  // namespace kvl::core
