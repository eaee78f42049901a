// Waiting for what cannot be waited for in any other way.
#pragma once

#include <chrono>
#include <thread>

namespace kvltest {

// Looks again and again until `condition` holds; false when it does not within a minute.
template <class Condition>
[[nodiscard]] bool waitUntil(Condition condition) {
  constexpr std::chrono::seconds kLongest{60};
  constexpr std::chrono::milliseconds kPause{5};
  const auto end = std::chrono::steady_clock::now() + kLongest;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(kPause);
  }
  return true;
}

}  // namespace kvltest
