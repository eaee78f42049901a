// How long an event stream may be silent.
#pragma once

#include <chrono>

namespace kvl::eventstream {

// What streams that are opened from now on get: `KVLEventStreamStateTimeoutInterval`, unless a test
// has set another.
[[nodiscard]] std::chrono::nanoseconds timeoutInterval();
// A seam for tests. Process-wide.
void setTimeoutInterval(std::chrono::nanoseconds interval);

}  // namespace kvl::eventstream
