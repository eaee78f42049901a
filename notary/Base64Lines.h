// Base64 (RFC 4648, 4) in lines.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace kvl::notary {

// Lines of 64 characters with CR LF between them and none after the last.
[[nodiscard]] std::string base64Lines(std::span<const std::uint8_t> bytes);

}  // namespace kvl::notary
