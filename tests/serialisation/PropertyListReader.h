// A strict reader of binary property lists, for tests of the writer.
#pragma once

#include <local/platform/Value.h>

#include <cstdint>
#include <optional>
#include <span>

namespace kvltest {

// The value, if the bytes are as the writer should make them and not only readable: no gaps and
// nothing left over, the smallest sizes everywhere, the top object first, each container used once
// and after what refers to it, and equal strings, numbers and dates written once.
[[nodiscard]] std::optional<kvl::Value> valueFromStrictPropertyList(
    std::span<const std::uint8_t> bytes);

}  // namespace kvltest
