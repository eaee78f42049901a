/// @file
/// How a `Value` is stored. Part of Value.h, so that values are copied inline; not for use by
/// hosts.
#pragma once

#include <local/platform/Export.h>

#include <cstdint>

namespace kvl::detail {

/// The 16 bytes of a value. The lowest byte of the head is the kind. For values held inline the
/// rest of the head is 0; for objects platform/core/ValueAccess.h describes it.
struct ValueCell {
  union Payload {
    std::int64_t integer;
    double real;
    const void* pointer;
  };

  /// The head of a value of a `Value::Kind`.
  static constexpr std::uint64_t headOf(auto kind) noexcept {
    return static_cast<std::uint64_t>(kind);
  }
  [[nodiscard]] constexpr std::uint8_t kind() const noexcept {
    return static_cast<std::uint8_t>(head & 0xFF);
  }

  std::uint64_t head;
  Payload payload;
};

}  // namespace kvl::detail
