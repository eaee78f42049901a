// Ports for programs that cannot say which one they got.
#pragma once

#include <cstdint>

namespace kvltest {

// A port of 127.0.0.1 that was free a moment ago; whoever listens there must be ready to find it
// taken. Throws std::runtime_error when there is none.
[[nodiscard]] std::uint16_t freePort();

}  // namespace kvltest
